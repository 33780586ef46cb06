#include "pairing/ConnectionWatchdog.h"

#include "app/PhoneService.h"
#include "app/Session.h"
#include "pairing/PairingGate.h"

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

Q_LOGGING_CATEGORY(lcWatchdog, "varnex.pairing")

namespace {
ConnectionWatchdog::Timing& currentTiming()
{
    static ConnectionWatchdog::Timing timing;
    return timing;
}
} // namespace

void ConnectionWatchdog::setTimingForTesting(const Timing& timing)
{
    currentTiming() = timing;
}

ConnectionWatchdog::ConnectionWatchdog(QObject* parent)
    : QObject(parent)
    , m_timing(currentTiming())
{
    connect(&m_timer, &QTimer::timeout, this, &ConnectionWatchdog::sendPing);
    connect(
        &Session::instance(), &Session::phoneConnectedChanged, this, &ConnectionWatchdog::onConnectedChanged);
}

void ConnectionWatchdog::start()
{
    onConnectedChanged(Session::instance().isPhoneConnected());
}

void ConnectionWatchdog::onConnectedChanged(bool connected)
{
    m_failures = 0;
    m_timer.start(connected ? m_timing.period : m_timing.seekPeriod);
    // Looking for the phone starts at once: at start, a reachable trusted phone connects
    // without waiting for a round.
    if (!connected)
        sendPing();
}

void ConnectionWatchdog::sendPing()
{
    Session& session = Session::instance();
    const bool watching = session.isPhoneConnected();
    if (!watching && !PairingGate::instance().trustedPhone())
        return; // nobody to look for
    QNetworkRequest request(QUrl(session.phoneServiceUrl(u"/ping")));
    request.setTransferTimeout(int((watching ? m_timing.pingTimeout : m_timing.seekPeriod).count()));
    QNetworkReply* reply = PhoneService::network()->get(request);
    const quint64 epoch = session.phoneEpoch();
    QElapsedTimer sent;
    sent.start();
    connect(reply, &QNetworkReply::finished, this, [this, reply, epoch, watching, sent] {
        reply->deleteLater();
        Session& session = Session::instance();
        // A ping sent to a phone the user has since replaced says nothing of the new one, and
        // one sent before the state changed says nothing of the state now.
        if (session.phoneEpoch() != epoch || session.isPhoneConnected() != watching)
            return;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!watching) {
            // Something at the phone's address that answers with an error is not the phone.
            if (status.isValid() && status.toInt() / 100 == 2)
                PairingGate::instance().phoneFound();
            return;
        }
        if (status.isValid()) {
            m_failures = 0;
            return;
        }
        if (m_failures++ == 0)
            m_failingSince = sent;
        qCInfo(lcWatchdog) << "ping got no answer:" << reply->errorString()
                           << "failures in a row:" << m_failures;
        if (m_failures >= 2 && m_failingSince.elapsed() >= m_timing.lostAfter.count())
            PairingGate::instance().phoneLost();
    });
}
