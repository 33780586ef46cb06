#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <optional>

// Keeps an eye on the trusted phone for its owner, the phone connection. While watching (the
// phone is connected), pings it every second: any HTTP answer, error statuses included, means
// it is there. It counts as lost only once pings have failed for lostAfter (3 s) and at least
// twice in a row, so one dropped ping on a busy Wi-Fi changes nothing, and the loss is noticed
// within 6 s of the phone going quiet. While seeking (lost, or not yet seen since the start),
// pings it every two seconds, starting at once, and reports it found on a 2xx answer:
// something at the phone's address that answers with an error is not the phone.
class ConnectionWatchdog : public QObject
{
    Q_OBJECT

public:
    struct Timing
    {
        std::chrono::milliseconds period { 1000 };
        std::chrono::milliseconds pingTimeout { 1500 };
        std::chrono::milliseconds lostAfter { 3000 };
        std::chrono::milliseconds seekPeriod { 2000 };
    };

    // Sends one ping to the phone's current address and calls `done` with the HTTP status, or
    // nothing when no HTTP answer came within `timeout`; dropped when `context` goes.
    using Ping = std::function<void(std::chrono::milliseconds timeout, QObject* context,
        std::function<void(std::optional<int> status)> done)>;

    ConnectionWatchdog(Ping ping, Timing timing, QObject* parent = nullptr);

    void watch();
    void seek();
    void stop();

Q_SIGNALS:
    void lost();
    void found();

private:
    enum class Mode { Off, Watching, Seeking };
    void enter(Mode mode);
    void sendPing();

    Ping m_ping;
    Timing m_timing;
    Mode m_mode = Mode::Off;
    QTimer m_timer;
    // Answers to pings sent before the last change of mode say nothing of the phone now.
    quint64 m_round = 0;
    int m_failures = 0; // in a row
    QElapsedTimer m_failingSince; // since the first of them was sent
};
