#include "api/ReplyCap.h"

#include "app/Log.h"

#include <QNetworkReply>

namespace ReplyCap {

namespace {
constexpr auto cutProperty = "varnexReplyCut";
}

void limit(QNetworkReply* reply, qint64 cap)
{
    QObject::connect(
        reply, &QNetworkReply::downloadProgress, reply, [reply, cap](qint64 received, qint64 total) {
            if ((received <= cap && total <= cap) || wasCut(reply))
                return;
            reply->setProperty(cutProperty, true);
            Log::line(QStringLiteral("[PhoneService] ❌ The answer from %1 is over %2 bytes: not read")
                          .arg(Log::escaped(reply->url().toString()))
                          .arg(cap));
            reply->abort();
        });
}

bool wasCut(const QNetworkReply* reply)
{
    return reply->property(cutProperty).toBool();
}

} // namespace ReplyCap
