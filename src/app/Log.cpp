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

QString escaped(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (QChar c : text) {
        const char16_t u = c.unicode();
        const bool control = u < 0x20 || (u >= 0x7f && u <= 0x9f) || u == 0x2028 || u == 0x2029;
        const bool bidi = (u >= 0x202a && u <= 0x202e) || (u >= 0x2066 && u <= 0x2069) || u == 0x200e || u == 0x200f;
        if (u == u'\\')
            out += QStringLiteral("\\\\");
        else if (control || bidi)
            out += QStringLiteral("\\u%1").arg(uint(u), 4, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

} // namespace Log
