#pragma once

#include "api/APIResult.h"
#include "api/AnswerJudging.h"
#include "api/Records.h"
#include "api/ReplyCap.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>

#include <chrono>
#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

// The client of the phone's group API. Every call reads the stored base URL afresh, appends
// its path, and ends in exactly one completion on the main thread. Without a stored base URL
// the completion runs at once, on the calling thread, with notAuthenticated. When `context`
// is destroyed before the answer arrives, the completion is dropped. The program's one client
// is shared(), which AppDelegate hands down; tests make their own.
class NetworkClient : public QObject
{
    Q_OBJECT

public:
    template <typename T> using Completion = std::function<void(const APIResult<T>&)>;

    explicit NetworkClient(QObject* parent = nullptr);
    static NetworkClient& shared();

    static constexpr std::chrono::seconds defaultRequestTimeout { 30 };
    static constexpr std::chrono::seconds defaultResourceTimeout { 300 };
    // Shorter time-outs, for tests.
    void setTimeouts(std::chrono::milliseconds request, std::chrono::milliseconds resource);
    // A smaller cap on what an answer may bring (ReplyCap), for tests.
    void setReplyCap(qint64 bytes) { m_replyCap = bytes; }

    void createGroup(
        const QString& user, const QString& name, QObject* context, Completion<GroupPtr> completion);
    // `deadline`, when given, ends the request that long after it was sent, however slowly
    // its answer still trickles in.
    void fetchGroups(const QString& user, QObject* context, Completion<QList<GroupPtr>> completion,
        std::optional<std::chrono::milliseconds> deadline = std::nullopt);
    void updateGroup(qint64 groupId, const QString& name, QObject* context, Completion<GroupPtr> completion);
    void deleteGroup(qint64 groupId, QObject* context, Completion<NoContent> completion);
    void fetchUsersNotAssociated(qint64 groupId, const QString& user, QObject* context,
        Completion<QList<GroupMemberModel>> completion);
    void addUsersToGroup(
        qint64 groupId, const QList<qint64>& userIds, QObject* context, Completion<NoContent> completion);
    void removeUsersFromGroup(
        qint64 groupId, const QList<qint64>& userIds, QObject* context, Completion<NoContent> completion);

private:
    struct Request
    {
        QByteArray method;
        QString path;
        std::optional<QJsonObject> body;
        bool acceptJson = false;
        std::optional<std::chrono::milliseconds> deadline; // the resource time-out otherwise
    };

    // Sends the request and hands the raw exchange on; false (nothing sent) without a base URL.
    bool send(const Request& request, QObject* context, std::function<void(const Exchange&)> done);

    template <typename T>
    void call(const Request& request, QObject* context, Completion<T> completion,
        APIResult<T> (*judge)(const Exchange&));

    QNetworkAccessManager* m_network;
    std::chrono::milliseconds m_requestTimeout = defaultRequestTimeout;
    std::chrono::milliseconds m_resourceTimeout = defaultResourceTimeout;
    qint64 m_replyCap = ReplyCap::maxReplyBytes;
};
