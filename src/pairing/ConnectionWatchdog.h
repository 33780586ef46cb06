#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <chrono>

// Keeps an eye on the trusted phone. While it is connected, pings it every second: any HTTP
// answer, error statuses included, means it is there. It counts as lost only once pings have
// failed for lostAfter (3 s) and at least twice in a row, so one dropped ping on a busy Wi-Fi
// changes nothing, and the loss is noticed within 6 s of the phone going quiet. While it is
// not connected (lost, or not yet seen since the start), pings it every two seconds and
// reconnects when it answers.
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
    static void setTimingForTesting(const Timing& timing);

    explicit ConnectionWatchdog(QObject* parent = nullptr);

    void start();

private:
    void onConnectedChanged(bool connected);
    void sendPing();

    Timing m_timing;
    QTimer m_timer;
    int m_failures = 0; // in a row
    QElapsedTimer m_failingSince; // since the first of them was sent
};
