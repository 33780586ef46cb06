#pragma once

#include "recipients/AssociationsStore.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <chrono>

class NetworkClient;
class PhoneServiceClient;
class Session;

// Keeps the associations store in step with the phone: loads the users and the groups,
// notices the phone's change signals (through the session's signals, at most once per 500 ms,
// and by a 3-second tick as the fallback), refreshes the groups 0.8 s after a group's members
// changed, and tells the phone when the desktop changed its groups. However many signals a
// phone (or a host pretending to be one) sends, at most one users fetch and one groups fetch
// are in flight, with at most one more of each queued behind them.
class RecipientsController : public QObject
{
    Q_OBJECT

public:
    RecipientsController(AssociationsStore& store, const Session& session, PhoneServiceClient& phoneService,
        NetworkClient& api, QObject* parent = nullptr);

    static constexpr int tickMilliseconds = 3000;
    static constexpr int membersChangedDelayMilliseconds = 800;
    static constexpr int changeSignalDebounceMilliseconds = 500;
    // A users or groups fetch that has not ended by then is abandoned, so that one request the
    // phone never answers cannot hold back every later reload.
    static constexpr std::chrono::milliseconds defaultFetchTimeout { 30000 };
    void setFetchTimeout(std::chrono::milliseconds timeout) { m_fetchTimeout = timeout; }

    // Starts the tick and loads the users once (the screen's view has loaded).
    void start();

    void loadUsers();
    void refreshGroups();
    void updateTick();
    // "GroupMembersChanged": a group's members or name changed; the groups are fetched again
    // 0.8 s later.
    void groupMembersChanged();

    // True while a fetch is on the wire or change signals wait for their look.
    bool isStarted() const { return m_started; }
    bool isBusy() const { return m_users.inFlight || m_groups.inFlight || m_changeSignals.isActive(); }

    AssociationsStore& store() const { return m_store; }

Q_SIGNALS:
    void usersLoaded(bool anyUsers);

private:
    // One kind of fetch: whether one is on the wire, and whether another was asked for
    // meanwhile (it runs once the current one ends, however often it was asked for).
    struct FetchState
    {
        bool inFlight = false;
        bool again = false;
    };
    void fetchUsers();
    void fetchGroups(const QString& user);

    AssociationsStore& m_store;
    const Session& m_session;
    PhoneServiceClient& m_phoneService;
    NetworkClient& m_api;
    QDateTime m_lastChange;
    QDateTime m_lastGroupsChange;
    QTimer m_tick;
    bool m_started = false;
    QTimer m_changeSignals;
    FetchState m_users;
    FetchState m_groups;
    std::chrono::milliseconds m_fetchTimeout = defaultFetchTimeout;
};
