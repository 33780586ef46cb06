#pragma once

#include <QString>

#include <optional>

// The speed and the time left of a transfer, as a person reads them: the rate is a moving
// average over the last few seconds (samples closer than a quarter second are gathered into
// one), so the figures settle instead of jumping with every network burst, and nothing is
// claimed before a second of data.
class TransferRate
{
public:
    // How long the average remembers: a change of speed shows fully after about this time.
    static constexpr double smoothingSeconds = 3.0;

    // Bytes `done` of `total` (0: unknown) at `msecs` on any steady clock. A count that goes
    // back starts afresh (a new stage).
    void sample(qint64 done, qint64 total, qint64 msecs);
    void reset();

    std::optional<double> bytesPerSecond() const;
    // Seconds to go at the current speed; none while the total or the speed is unknown.
    std::optional<qint64> secondsLeft() const;

    // "12.3 MB/s", with the file sizes' units.
    static QString formatRate(double bytesPerSecond);
    // "0:07", "12:30", "1:02:03": the same in every language.
    static QString formatDuration(qint64 seconds);
    // What the overlay shows under the stage: "12.3 MB/s · 0:42 left", or the speed alone
    // while the end is unknown; empty before there is a speed.
    QString describe() const;

private:
    qint64 m_startMs = -1;
    qint64 m_lastMs = -1;
    qint64 m_startDone = 0;
    qint64 m_lastDone = 0;
    qint64 m_done = 0;
    qint64 m_total = 0;
    double m_rate = 0;
    bool m_hasRate = false;
};
