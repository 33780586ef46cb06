#include "pairing/PairingRateLimiter.h"

PairingRateLimiter::PairingRateLimiter(int burst, std::chrono::milliseconds window)
    : m_burst(burst)
    , m_window(window)
{
}

bool PairingRateLimiter::admit(const QString& peer, Clock::time_point now)
{
    std::lock_guard lock(m_mutex);
    // Forget peers whose window has passed, so the table stays as small as the set of peers
    // that paired in the last few seconds.
    for (auto it = m_recent.begin(); it != m_recent.end();) {
        auto& stamps = it.value();
        while (!stamps.empty() && now - stamps.front() >= m_window)
            stamps.pop_front();
        it = stamps.empty() ? m_recent.erase(it) : std::next(it);
    }
    auto& stamps = m_recent[peer];
    if (int(stamps.size()) >= m_burst)
        return false;
    stamps.push_back(now);
    return true;
}
