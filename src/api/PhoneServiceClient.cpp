#include "api/PhoneServiceClient.h"

#include "api/RecordDecoding.h"
#include "api/ReplyCap.h"
#include "app/Session.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>

PhoneServiceClient::PhoneServiceClient(const Session& session, QObject* parent)
    : QObject(parent)
    , m_session(session)
    , m_network(new QNetworkAccessManager(this))
{
    // The phone is on the local network: a system proxy must not intercept it.
    m_network->setProxy(QNetworkProxy::NoProxy);
}

void PhoneServiceClient::fetchUsers(
    std::chrono::milliseconds timeout, QObject* context, std::function<void(const UsersReply&)> done)
{
    QNetworkRequest request(QUrl(m_session.phoneServiceUrl(u"/getUsers")));
    request.setTransferTimeout(int(timeout.count()));
    QNetworkReply* reply = m_network->get(request);
    ReplyCap::limit(reply, m_replyCap);
    // The transfer time-out only counts silence; this ends an answer that trickles for ever.
    QTimer::singleShot(timeout, reply, &QNetworkReply::abort);
    // The reply goes when it ends, whether or not anyone is still there to hear it.
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
        done(reply->error() == QNetworkReply::NoError ? RecordDecoding::usersBody(reply->readAll())
                                                      : UsersReply {});
    });
}

void PhoneServiceClient::notifyGroupsUpdated()
{
    if (m_session.phoneIPAddress().isEmpty())
        return;
    QNetworkReply* reply
        = m_network->post(QNetworkRequest(QUrl(m_session.phoneServiceUrl(u"/updateGroups"))), QByteArray());
    ReplyCap::limit(reply, m_replyCap);
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}

void PhoneServiceClient::ping(
    std::chrono::milliseconds timeout, QObject* context, std::function<void(std::optional<int>)> done)
{
    QNetworkRequest request(QUrl(m_session.phoneServiceUrl(u"/ping")));
    request.setTransferTimeout(int(timeout.count()));
    QNetworkReply* reply = m_network->get(request);
    ReplyCap::limit(reply, m_replyCap);
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        done(status.isValid() ? std::optional<int>(status.toInt()) : std::nullopt);
    });
}
