#include "shell/ConnectionWatchdog.h"

#include "app/PhoneService.h"
#include "app/Session.h"

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

Q_LOGGING_CATEGORY(lcWatchdog, "varnex.shell")

ConnectionWatchdog::ConnectionWatchdog(std::chrono::milliseconds period, std::chrono::milliseconds pingTimeout,
                                       QObject* parent)
    : QObject(parent)
    , m_pingTimeout(pingTimeout)
{
    m_timer.setInterval(period);
    connect(&m_timer, &QTimer::timeout, this, &ConnectionWatchdog::tick);
}

void ConnectionWatchdog::start()
{
    sendPing();
    m_timer.start();
}

void ConnectionWatchdog::tick()
{
    if (!Session::instance().isPhoneConnected()) {
        m_timer.stop();
        Q_EMIT connectionLost();
        return;
    }
    sendPing();
}

void ConnectionWatchdog::sendPing()
{
    QNetworkRequest request(QUrl(Session::instance().phoneServiceUrl(u"/ping")));
    request.setTransferTimeout(int(m_pingTimeout.count()));
    QNetworkReply* reply = PhoneService::network()->get(request);
    const quint64 epoch = Session::instance().phoneEpoch();
    connect(reply, &QNetworkReply::finished, this, [reply, epoch] {
        reply->deleteLater();
        const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
        if (answered)
            return;
        qCInfo(lcWatchdog) << "ping got no answer:" << reply->errorString();
        // A ping sent to a phone the user has since switched away from says nothing of the new one.
        if (Session::instance().phoneEpoch() == epoch)
            Session::instance().setPhoneConnected(false);
    });
}
