#include "app/Log.h"

#include <QMutex>
#include <QMutexLocker>

#include <cstdio>

namespace Log {

namespace {
QMutex mutex;
std::function<void(const QString&)> currentObserver;
} // namespace

void line(const QString& text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    QMutexLocker lock(&mutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
    if (currentObserver)
        currentObserver(text);
}

void setObserver(std::function<void(const QString&)> observer)
{
    QMutexLocker lock(&mutex);
    currentObserver = std::move(observer);
}

QString debugQuoted(const QString& text)
{
    QString escaped = text;
    escaped.replace(u'\\', QStringLiteral("\\\\"));
    escaped.replace(u'"', QStringLiteral("\\\""));
    return u'"' + escaped + u'"';
}

} // namespace Log
