#include "pairing/ConnectionWatchdog.h"

#include "pairing/PairingLog.h"

ConnectionWatchdog::ConnectionWatchdog(Ping ping, Timing timing, QObject* parent)
    : QObject(parent)
    , m_ping(std::move(ping))
    , m_timing(timing)
{
    connect(&m_timer, &QTimer::timeout, this, &ConnectionWatchdog::sendPing);
}

void ConnectionWatchdog::watch()
{
    enter(Mode::Watching);
}

void ConnectionWatchdog::seek()
{
    enter(Mode::Seeking);
    // At start, a reachable trusted phone connects without waiting for a round.
    sendPing();
}

void ConnectionWatchdog::stop()
{
    enter(Mode::Off);
}

void ConnectionWatchdog::enter(Mode mode)
{
    m_mode = mode;
    ++m_round;
    m_failures = 0;
    if (mode == Mode::Off)
        m_timer.stop();
    else
        m_timer.start(mode == Mode::Watching ? m_timing.period : m_timing.seekPeriod);
}

void ConnectionWatchdog::sendPing()
{
    const bool watching = m_mode == Mode::Watching;
    QElapsedTimer sent;
    sent.start();
    m_ping(watching ? m_timing.pingTimeout : m_timing.seekPeriod, this,
        [this, round = m_round, watching, sent](std::optional<int> status) {
            if (round != m_round)
                return;
            if (!watching) {
                if (status && *status / 100 == 2)
                    Q_EMIT found();
                return;
            }
            if (status) {
                m_failures = 0;
                return;
            }
            if (m_failures++ == 0)
                m_failingSince = sent;
            qCInfo(lcPairing) << "ping got no answer; failures in a row:" << m_failures;
            if (m_failures >= 2 && m_failingSince.elapsed() >= m_timing.lostAfter.count())
                Q_EMIT lost();
        });
}
