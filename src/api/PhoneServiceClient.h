#pragma once

#include "api/Records.h"
#include "api/ReplyCap.h"

#include <QObject>

#include <chrono>
#include <functional>
#include <optional>

class QNetworkAccessManager;
class Session;

// The calls to the phone's own service (port 8080, at the session's address): its associated
// users, the notice that the groups changed, and the watchdog's ping. Made once by AppDelegate
// and handed down. Answers come on the main thread and are dropped when `context` is gone;
// none is read past the cap (ReplyCap).
class PhoneServiceClient : public QObject
{
    Q_OBJECT

public:
    explicit PhoneServiceClient(const Session& session, QObject* parent = nullptr);

    // GET "/getUsers". `timeout` ends the request however slowly its answer trickles in.
    void fetchUsers(
        std::chrono::milliseconds timeout, QObject* context, std::function<void(const UsersReply&)> done);

    // POST "/updateGroups" with no body; the answer, failures included, is ignored. Nothing is
    // sent while no phone address is known.
    void notifyGroupsUpdated();

    // GET "/ping": `done` gets the HTTP status, or nothing when no answer came within `timeout`.
    void ping(
        std::chrono::milliseconds timeout, QObject* context, std::function<void(std::optional<int>)> done);

    // A smaller cap on what an answer may bring, for tests.
    void setReplyCap(qint64 bytes) { m_replyCap = bytes; }

private:
    const Session& m_session;
    QNetworkAccessManager* m_network;
    qint64 m_replyCap = ReplyCap::maxReplyBytes;
};
