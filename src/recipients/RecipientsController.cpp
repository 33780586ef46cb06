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
    // The phone's change signals take effect at once; the tick stays as the fallback.
    connect(&Session::instance(), &Session::associatesUpdated, this, &RecipientsController::updateTick);
    connect(&Session::instance(), &Session::groupsUpdated, this, &RecipientsController::updateTick);
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
    QNetworkReply* reply = PhoneService::network()->get(QNetworkRequest(QUrl(Session::instance().phoneServiceUrl(u"/getUsers"))));
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        const bool answered = reply->error() == QNetworkReply::NoError;
        if (!answered || !m_store->setUsersFromReply(reply->readAll())) {
            Log::line(QStringLiteral("\"Cannot extract users from mobile app\""));
            return;
        }
        Q_EMIT usersLoaded(!m_store->users.isEmpty());
        refreshGroups();
    });
}

void RecipientsController::refreshGroups()
{
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user) {
        m_store->rebuildAssociations();
        return;
    }
    NetworkClient::shared().fetchGroups(*user, this, [this](const APIResult<QList<GroupPtr>>& result) {
        if (result.isSuccess())
            m_store->setGroups(result.value());
        m_store->rebuildAssociations(); // on failure, with the groups already held
    });
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
