#include "operations/TransferRate.h"

#include "storage/File.h"

#include <cmath>

namespace {
constexpr qint64 minimumStepMs = 250;
constexpr qint64 warmUpMs = 1000;
} // namespace

void TransferRate::reset()
{
    *this = TransferRate();
}

void TransferRate::sample(qint64 done, qint64 total, qint64 msecs)
{
    if (m_startMs < 0 || done < m_lastDone || msecs < m_lastMs) {
        reset();
        m_startMs = m_lastMs = msecs;
        m_startDone = m_lastDone = m_done = done;
        m_total = total;
        return;
    }
    m_done = done;
    m_total = total;
    const qint64 step = msecs - m_lastMs;
    if (step < minimumStepMs)
        return;
    const double seconds = step / 1000.0;
    const double instant = (done - m_lastDone) / seconds;
    m_lastMs = msecs;
    m_lastDone = done;
    if (!m_hasRate) {
        if (msecs - m_startMs < warmUpMs)
            return;
        // The first estimate is the plain average so far, not a blend with zero.
        m_rate = (done - m_startDone) / ((msecs - m_startMs) / 1000.0);
        m_hasRate = true;
        return;
    }
    const double weight = 1.0 - std::exp(-seconds / smoothingSeconds);
    m_rate += weight * (instant - m_rate);
}

std::optional<double> TransferRate::bytesPerSecond() const
{
    if (!m_hasRate)
        return std::nullopt;
    return m_rate;
}

std::optional<qint64> TransferRate::secondsLeft() const
{
    if (!m_hasRate || m_total <= 0 || m_rate < 1.0)
        return std::nullopt;
    return qint64(std::ceil(std::max<qint64>(0, m_total - m_done) / m_rate));
}

QString TransferRate::formatRate(double bytesPerSecond)
{
    //: Transfer speed, %1 is an amount such as 12.3 MB
    //% "%1/s"
    return qtTrId("transferSpeed").arg(formatFileSize(quint64(std::max(0.0, bytesPerSecond))));
}

QString TransferRate::formatDuration(qint64 seconds)
{
    seconds = std::max<qint64>(0, seconds);
    const qint64 h = seconds / 3600;
    const qint64 m = seconds / 60 % 60;
    const qint64 s = seconds % 60;
    const QString ss = QString::number(s).rightJustified(2, u'0');
    if (h > 0)
        return QString::number(h) + u':' + QString::number(m).rightJustified(2, u'0') + u':' + ss;
    return QString::number(m) + u':' + ss;
}

QString TransferRate::describe() const
{
    const auto rate = bytesPerSecond();
    if (!rate)
        return {};
    const auto left = secondsLeft();
    if (!left)
        return formatRate(*rate);
    //: Speed and time left of a transfer, as in "12.3 MB/s · 0:42 left"
    //% "%1 · %2 left"
    return qtTrId("transferSpeedAndTimeLeft").arg(formatRate(*rate), formatDuration(*left));
}
