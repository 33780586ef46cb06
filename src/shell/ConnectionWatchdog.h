#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>

// Pings the phone while it is connected. A ping that gets no HTTP answer at all clears the
// session's connected flag; any HTTP answer, error statuses included, keeps it. Once the
// flag is seen cleared the watchdog stops and reports the loss.
class ConnectionWatchdog : public QObject
{
    Q_OBJECT

public:
    explicit ConnectionWatchdog(std::chrono::milliseconds period = std::chrono::seconds(3),
                                std::chrono::milliseconds pingTimeout = std::chrono::seconds(3),
                                QObject* parent = nullptr);

    void start();
    bool isRunning() const { return m_timer.isActive(); }

Q_SIGNALS:
    void connectionLost();

private:
    void tick();
    void sendPing();

    QTimer m_timer;
    std::chrono::milliseconds m_pingTimeout;
};
