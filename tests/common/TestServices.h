#pragma once

#include "app/PhoneService.h"
#include "app/Session.h"
#include "desktop/DesktopNotifier.h"
#include "pairing/PhoneConnection.h"
#include "shell/AppServices.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

// What AppDelegate makes for the window, for tests of the shell and its screens: the phone
// connection (whose watchdog pings the session's address for real) and the notifier.
class TestServices
{
public:
    explicit TestServices(quint16 phoneServicePort = Session::defaultPhoneServicePort,
        PhoneConnection::Options options = {}, ConnectionWatchdog::Ping ping = &TestServices::ping)
        : phone(session(), std::move(ping), options)
    {
        session().setPhoneServicePortForTesting(phoneServicePort);
    }

    static Session& session() { return Session::instance(); }

    // The phone at `address` paired and connected, as when the user pressed Pair (or as its
    // message does once it is the trusted one).
    void pair(const QString& address, const QString& name, const QString& email, const QString& baseURL)
    {
        if (phone.offer({ address, name, email, baseURL }, address) == PhoneConnection::Decision::Held)
            phone.acceptPending(phone.pending()->id);
    }

    // A phone that never answers, at once (no time-outs to wait for).
    static void noAnswer(
        std::chrono::milliseconds, QObject* context, std::function<void(std::optional<int>)> done)
    {
        QMetaObject::invokeMethod(
            context, [done] { done(std::nullopt); }, Qt::QueuedConnection);
    }

    DesktopNotifier notifier;
    PhoneConnection phone;
    AppServices services { phone, notifier };

private:
    static void ping(
        std::chrono::milliseconds timeout, QObject* context, std::function<void(std::optional<int>)> done)
    {
        QNetworkRequest request(QUrl(session().phoneServiceUrl(u"/ping")));
        request.setTransferTimeout(int(timeout.count()));
        QNetworkReply* reply = PhoneService::network()->get(request);
        QObject::connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
            reply->deleteLater();
            const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            done(status.isValid() ? std::optional<int>(status.toInt()) : std::nullopt);
        });
    }
};
