#pragma once

#include <QHash>
#include <QString>

#include <chrono>
#include <deque>
#include <mutex>

// Counts pairing messages per peer address in a sliding window: a peer that sent `burst`
// messages within `window` is refused until the oldest of them leaves the window. Refused
// attempts are not counted, so a peer recovers one window after it stops, however hard it
// tried meanwhile.
class PairingRateLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    PairingRateLimiter(int burst, std::chrono::milliseconds window);

    // True when the message may go on (and counts it); false: answer 429.
    bool admit(const QString& peer, Clock::time_point now = Clock::now());

private:
    int m_burst;
    std::chrono::milliseconds m_window;
    std::mutex m_mutex;
    QHash<QString, std::deque<Clock::time_point>> m_recent;
};
