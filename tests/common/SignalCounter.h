#pragma once

#include <QObject>

// Counts a signal's emissions as a receiver on the test's thread sees them. A signal emitted
// on another thread (the listener's, say) arrives queued, so the count is only ever touched
// here; QSignalSpy would record on the emitting thread, racing with the test's reads.
class SignalCounter : public QObject
{
public:
    template<typename Sender, typename Signal>
    SignalCounter(const Sender* sender, Signal signal)
    {
        connect(sender, signal, this, [this] { ++m_count; });
    }

    int count() const { return m_count; }

private:
    int m_count = 0;
};
