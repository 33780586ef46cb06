#pragma once

#include "app/Log.h"

#include <QMutex>
#include <QStringList>

// Collects the lines the program writes to standard output while it is alive.
class LogCapture
{
public:
    LogCapture()
    {
        Log::setObserver([this](const QString& line) {
            QMutexLocker lock(&m_mutex);
            m_lines.append(line);
        });
    }
    ~LogCapture() { Log::setObserver({}); }

    QStringList lines() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_lines;
};
