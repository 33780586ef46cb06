#pragma once

#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "desktop/DesktopNotifier.h"
#include "pairing/PhoneConnection.h"
#include "shell/AppServices.h"

// What AppDelegate makes for the window, for tests of the shell and its screens: the phone
// service client (whose pings reach the session's address for real, unless `ping` replaces
// them), the group API's client, the phone connection and the notifier.
class TestServices
{
public:
    explicit TestServices(quint16 phoneServicePort = Session::defaultPhoneServicePort,
        PhoneConnection::Options options = {}, ConnectionWatchdog::Ping ping = {})
        : phone(
            session(),
            ping ? std::move(ping)
                 : [this](auto timeout, QObject* context,
                       auto done) { phoneService.ping(timeout, context, std::move(done)); },
            options)
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

    PhoneServiceClient phoneService { session() };
    NetworkClient api;
    DesktopNotifier notifier;
    PhoneConnection phone;
    AppServices services { phone, notifier, phoneService, api };
};
