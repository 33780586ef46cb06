#include "recipients/RecipientsController.h"

#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Log.h"
#include "app/Session.h"
#include "app/Settings.h"

RecipientsController::RecipientsController(AssociationsStore& store, const Session& session,
    PhoneServiceClient& phoneService, NetworkClient& api, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_session(session)
    , m_phoneService(phoneService)
    , m_api(api)
    , m_lastChange(session.associatesUpdatedAt())
    , m_lastGroupsChange(session.groupsUpdatedAt())
{
    m_tick.setInterval(tickMilliseconds);
    connect(&m_tick, &QTimer::timeout, this, [this] {
        if (!m_session.isPhoneConnected()) {
            m_tick.stop();
            return;
        }
        updateTick();
    });
    // The phone's change signals take effect within half a second; the tick stays as the
    // fallback. The timer is not restarted by later signals, so a steady stream of them still
    // leads to a look every 500 ms rather than postponing it for ever.
    m_changeSignals.setSingleShot(true);
    m_changeSignals.setInterval(changeSignalDebounceMilliseconds);
    connect(&m_changeSignals, &QTimer::timeout, this, &RecipientsController::updateTick);
    auto onSignal = [this] {
        if (!m_changeSignals.isActive())
            m_changeSignals.start();
    };
    connect(&session, &Session::associatesUpdated, this, onSignal);
    connect(&session, &Session::groupsUpdated, this, onSignal);
    // The same phone found again: what changed on it meanwhile is fetched, and the tick resumes.
    connect(&session, &Session::phoneConnectedChanged, this, [this](bool connected) {
        if (connected && m_started)
            start();
    });
}

void RecipientsController::start()
{
    m_started = true;
    updateTick();
    if (m_session.isPhoneConnected())
        m_tick.start();
    loadUsers();
}

void RecipientsController::groupMembersChanged()
{
    QTimer::singleShot(membersChangedDelayMilliseconds, this, &RecipientsController::refreshGroups);
}

void RecipientsController::loadUsers()
{
    if (m_users.inFlight) {
        m_users.again = true;
        return;
    }
    fetchUsers();
}

void RecipientsController::fetchUsers()
{
    m_users = { true, false };
    m_phoneService.fetchUsers(m_fetchTimeout, this, [this](const UsersReply& reply) {
        m_users.inFlight = false;
        if (!reply.readable) {
            Log::line(QStringLiteral("\"Cannot extract users from mobile app\""));
        } else {
            if (reply.users) // JSON but no object changes nothing
                m_store.setUsers(*reply.users);
            Q_EMIT usersLoaded(!m_store.users().isEmpty());
            refreshGroups();
        }
        if (m_users.again)
            fetchUsers();
    });
}

void RecipientsController::refreshGroups()
{
    // Without a signed-in user the groups held stay as they are.
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        return;
    if (m_groups.inFlight) {
        m_groups.again = true;
        return;
    }
    fetchGroups(*user);
}

void RecipientsController::fetchGroups(const QString& user)
{
    m_groups = { true, false };
    m_api.fetchGroups(
        user, this,
        [this](const APIResult<QList<GroupPtr>>& result) {
            m_groups.inFlight = false;
            if (result.isSuccess()) // a failure keeps the groups held
                m_store.setGroups(result.value());
            if (m_groups.again)
                refreshGroups(); // reads the signed-in user afresh
        },
        m_fetchTimeout);
}

void RecipientsController::updateTick()
{
    const QDateTime associates = m_session.associatesUpdatedAt();
    if (m_lastChange != associates) {
        m_lastChange = associates;
        loadUsers();
    }
    const QDateTime groups = m_session.groupsUpdatedAt();
    if (m_lastGroupsChange != groups) {
        m_lastGroupsChange = groups;
        refreshGroups();
    }
    // The encrypted-files listing of each tick is the result folder's own (watched and timed).
}
