#include "recipients/RecipientsController.h"

#include "api/NetworkClient.h"
#include "app/Log.h"
#include "app/PhoneService.h"
#include "app/Session.h"
#include "app/Settings.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QUrl>

GroupNotifications& GroupNotifications::instance()
{
    static GroupNotifications notifications;
    return notifications;
}

RecipientsController::RecipientsController(AssociationsStore* store, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_lastChange(Session::instance().associatesUpdatedAt())
    , m_lastGroupsChange(Session::instance().groupsUpdatedAt())
{
    m_tick.setInterval(tickMilliseconds);
    connect(&m_tick, &QTimer::timeout, this, [this] {
        if (!Session::instance().isPhoneConnected()) {
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
    connect(&Session::instance(), &Session::associatesUpdated, this, onSignal);
    connect(&Session::instance(), &Session::groupsUpdated, this, onSignal);
    // The same phone found again: what changed on it meanwhile is fetched, and the tick resumes.
    connect(&Session::instance(), &Session::phoneConnectedChanged, this, [this](bool connected) {
        if (connected && m_started)
            start();
    });
    connect(&GroupNotifications::instance(), &GroupNotifications::groupMembersChanged, this, [this] {
        QPointer<RecipientsController> self(this);
        QTimer::singleShot(membersChangedDelayMilliseconds, this, [self] {
            if (self)
                self->refreshGroups();
        });
    });
}

void RecipientsController::start()
{
    m_started = true;
    updateTick();
    if (Session::instance().isPhoneConnected())
        m_tick.start();
    loadUsers();
}

void RecipientsController::postGroupMembersChanged()
{
    Q_EMIT GroupNotifications::instance().groupMembersChanged();
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
    QNetworkRequest request(QUrl(Session::instance().phoneServiceUrl(u"/getUsers")));
    request.setTransferTimeout(int(m_fetchTimeout.count()));
    QNetworkReply* reply = PhoneService::network()->get(request);
    // The transfer time-out only counts silence; this ends an answer that trickles for ever.
    QTimer::singleShot(m_fetchTimeout, reply, &QNetworkReply::abort);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        m_users.inFlight = false;
        const bool answered = reply->error() == QNetworkReply::NoError;
        if (!answered || !m_store->setUsersFromReply(reply->readAll())) {
            Log::line(QStringLiteral("\"Cannot extract users from mobile app\""));
        } else {
            Q_EMIT usersLoaded(!m_store->users.isEmpty());
            refreshGroups();
        }
        if (m_users.again)
            fetchUsers();
    });
}

void RecipientsController::refreshGroups()
{
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user) {
        m_store->rebuildAssociations();
        return;
    }
    if (m_groups.inFlight) {
        m_groups.again = true;
        return;
    }
    fetchGroups(*user);
}

void RecipientsController::fetchGroups(const QString& user)
{
    m_groups = { true, false };
    NetworkClient::shared().fetchGroups(
        user, this,
        [this](const APIResult<QList<GroupPtr>>& result) {
            m_groups.inFlight = false;
            if (result.isSuccess())
                m_store->setGroups(result.value());
            m_store->rebuildAssociations(); // on failure, with the groups already held
            if (m_groups.again)
                refreshGroups(); // reads the signed-in user afresh
        },
        m_fetchTimeout);
}

void RecipientsController::updateTick()
{
    const QDateTime associates = Session::instance().associatesUpdatedAt();
    if (m_lastChange != associates) {
        m_lastChange = associates;
        loadUsers();
    }
    const QDateTime groups = Session::instance().groupsUpdatedAt();
    if (m_lastGroupsChange != groups) {
        m_lastGroupsChange = groups;
        refreshGroups();
    }
    // The encrypted-files listing of each tick is the result folder's own (watched and timed).
}

void RecipientsController::notifyPhoneGroupsUpdated()
{
    if (Session::instance().phoneIPAddress().isEmpty())
        return;
    QNetworkRequest request(QUrl(Session::instance().phoneServiceUrl(u"/updateGroups")));
    QNetworkReply* reply = PhoneService::network()->post(request, QByteArray());
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}
