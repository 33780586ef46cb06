#include "api/ReplyCap.h"

#include "app/Log.h"

#include <QNetworkReply>

namespace ReplyCap {

namespace {
constexpr auto cutProperty = "varnexReplyCut";
}

void limit(QNetworkReply* reply, qint64 cap)
{
    // What is buffered counts, after any decompression, and a declared length past the cap
    // ends the reply before it is read.
    const auto check = [reply, cap] {
        const qint64 declared = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
        if (wasCut(reply) || (reply->bytesAvailable() <= cap && declared <= cap))
            return;
        reply->setProperty(cutProperty, true);
        Log::line(QStringLiteral("[PhoneService] ❌ The answer from %1 is over %2 bytes: not read")
                      .arg(Log::escaped(reply->url().toString()))
                      .arg(cap));
        reply->abort();
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, check);
    QObject::connect(reply, &QNetworkReply::readyRead, reply, check);
}

bool wasCut(const QNetworkReply* reply)
{
    return reply->property(cutProperty).toBool();
}

} // namespace ReplyCap
