#include "api/NetworkClient.h"

#include "api/ReplyCap.h"
#include "app/Log.h"
#include "app/Settings.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>
#include <QUrl>

Q_LOGGING_CATEGORY(lcApi, "varnex.api", QtInfoMsg)

NetworkClient& NetworkClient::shared()
{
    static NetworkClient* client = new NetworkClient; // lives as long as the process
    return *client;
}

NetworkClient::NetworkClient(QObject* parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
{
    if (auto* app = QCoreApplication::instance(); app && thread() != app->thread())
        moveToThread(app->thread());
    m_network->setProxy(QNetworkProxy::NoProxy);
}

void NetworkClient::setTimeouts(std::chrono::milliseconds request, std::chrono::milliseconds resource)
{
    m_requestTimeout = request;
    m_resourceTimeout = resource;
}

namespace {

// Once an HTTP status arrived, Qt's error kind only restates it (400 and 418 come as protocol
// errors, 407 as a proxy error): the exchange failed only when the transfer itself broke.
bool isTransferFailure(QNetworkReply::NetworkError error)
{
    return error != QNetworkReply::NoError && (int(error) < 100 || error == QNetworkReply::ProtocolFailure);
}

} // namespace

bool NetworkClient::send(const Request& request, QObject* context, std::function<void(const Exchange&)> done)
{
    const auto base = Settings::string(Settings::baseUrlKey);
    if (!base)
        return false;
    // Plain concatenation: the base URL decides whether there is a "/" between them.
    QNetworkRequest networkRequest(QUrl(*base + request.path));
    networkRequest.setTransferTimeout(
        int(std::min(m_requestTimeout, request.deadline.value_or(m_requestTimeout)).count()));
    QByteArray payload;
    if (request.body) {
        networkRequest.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
        payload = QJsonDocument(*request.body).toJson(QJsonDocument::Compact);
    }
    if (request.acceptJson)
        networkRequest.setRawHeader("Accept", "application/json");

    QNetworkReply* reply = request.body
        ? m_network->sendCustomRequest(networkRequest, request.method, payload)
        : m_network->sendCustomRequest(networkRequest, request.method);
    ReplyCap::limit(reply, m_replyCap);
    auto* resourceTimer = new QTimer(reply);
    resourceTimer->setSingleShot(true);
    connect(resourceTimer, &QTimer::timeout, reply, [reply] {
        reply->setProperty("varnexResourceTimeout", true);
        reply->abort();
    });
    resourceTimer->start(std::min(m_resourceTimeout, request.deadline.value_or(m_resourceTimeout)));

    QPointer<QObject> guard(context);
    const bool guarded = context != nullptr;
    connect(reply, &QNetworkReply::finished, this, [reply, guard, guarded, done = std::move(done)] {
        reply->deleteLater();
        if (guarded && !guard)
            return; // the screen that asked is gone
        Exchange exchange;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (ReplyCap::wasCut(reply)) {
            // Judged as no answer at all: what little was read says nothing.
            exchange.failure = QStringLiteral("The answer is too large.");
        } else {
            if (status.isValid())
                exchange.status = status.toInt();
            const QByteArray body = reply->readAll();
            if (!body.isEmpty() || status.isValid())
                exchange.body = body;
            const auto error = reply->error();
            if (status.isValid() ? isTransferFailure(error) : error != QNetworkReply::NoError) {
                exchange.failure = reply->property("varnexResourceTimeout").toBool()
                    ? QStringLiteral("The request timed out.")
                    : reply->errorString();
            }
        }
        // Qt's error text can quote the server's reason phrase.
        qCDebug(lcApi).noquote() << reply->operation() << Log::escaped(reply->url().toString())
                                 << exchange.status.value_or(0) << Log::escaped(reply->errorString());
        done(exchange);
    });
    return true;
}

template <typename T>
void NetworkClient::call(const Request& request, QObject* context, Completion<T> completion,
    APIResult<T> (*judge)(const Exchange&))
{
    const bool sent = send(
        request, context, [completion, judge](const Exchange& exchange) { completion(judge(exchange)); });
    if (!sent)
        completion(APIError::notAuthenticated());
}

void NetworkClient::createGroup(
    const QString& user, const QString& name, QObject* context, Completion<GroupPtr> completion)
{
    call<GroupPtr>({ "POST", QStringLiteral("v2/groups"), CreateGroupRequest { user, name }.toJson(), true },
        context, std::move(completion), &AnswerJudging::judgeRecord);
}

void NetworkClient::fetchGroups(const QString& user, QObject* context, Completion<QList<GroupPtr>> completion,
    std::optional<std::chrono::milliseconds> deadline)
{
    call<QList<GroupPtr>>({ "GET", u"v2/groups/" + user, std::nullopt, false, deadline }, context,
        std::move(completion), &AnswerJudging::judgeGroupList);
}

void NetworkClient::updateGroup(
    qint64 groupId, const QString& name, QObject* context, Completion<GroupPtr> completion)
{
    call<GroupPtr>(
        { "PATCH", u"v2/groups/" + QString::number(groupId), UpdateGroupRequest { name }.toJson() }, context,
        std::move(completion), &AnswerJudging::judgeRecord);
}

void NetworkClient::deleteGroup(qint64 groupId, QObject* context, Completion<NoContent> completion)
{
    call<NoContent>({ "DELETE", u"v2/groups/" + QString::number(groupId), std::nullopt }, context,
        std::move(completion), &AnswerJudging::judgeNoContent);
}

void NetworkClient::fetchUsersNotAssociated(
    qint64 groupId, const QString& user, QObject* context, Completion<QList<GroupMemberModel>> completion)
{
    call<QList<GroupMemberModel>>(
        { "GET", u"v2/groups/" + QString::number(groupId) + u"/users/" + user + u"/users-not-associated",
            std::nullopt },
        context, std::move(completion), &AnswerJudging::judgeMemberList);
}

void NetworkClient::addUsersToGroup(
    qint64 groupId, const QList<qint64>& userIds, QObject* context, Completion<NoContent> completion)
{
    call<NoContent>({ "POST", u"v2/groups/" + QString::number(groupId) + u"/users/add",
                        AddUsersToGroupRequest { userIds }.toJson() },
        context, std::move(completion), &AnswerJudging::judgeNoContent);
}

void NetworkClient::removeUsersFromGroup(
    qint64 groupId, const QList<qint64>& userIds, QObject* context, Completion<NoContent> completion)
{
    call<NoContent>({ "POST", u"v2/groups/" + QString::number(groupId) + u"/users/remove",
                        RemoveUsersFromGroupRequest { userIds }.toJson() },
        context, std::move(completion), &AnswerJudging::judgeNoContent);
}
