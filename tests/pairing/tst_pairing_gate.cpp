#include "app/Session.h"
#include "app/Settings.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PairingGate.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

// Who may take the place of the connected phone, and when: over real sockets, as a phone and
// an intruder on the same network would send it.
class TestPairingGate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void whenAMessageTakesEffect_data();
    void whenAMessageTakesEffect();
    void switchAppliesTheWaitingMessage();
    void ignoreAndTimeOutDropIt_data();
    void ignoreAndTimeOutDropIt();
    void aNewerRequestReplacesTheWaitingOne();
    void losingThePhoneDropsTheRequest();
    void disconnectKeepsTheStoredValues();

private:
    int pair(const QString& ip, const QString& email, const QString& name = u"Phone"_qs,
        const QString& baseURL = u"http://10.0.0.7:8080/"_qs);
    void connectFirstPhone();
    std::unique_ptr<MobileDeviceListener> m_listener;
};

void TestPairingGate::init()
{
    Settings::open()->clear();
    Session::instance().resetForTesting();
    PairingGate::instance().resetForTesting();
    m_listener = std::make_unique<MobileDeviceListener>(0);
    QVERIFY(m_listener->start());
}

int TestPairingGate::pair(
    const QString& ip, const QString& email, const QString& name, const QString& baseURL)
{
    QJsonObject message { { u"ip"_qs, ip }, { u"mobileDeviceName"_qs, name }, { u"baseURL"_qs, baseURL } };
    if (!email.isNull())
        message.insert(u"email"_qs, email);
    return LoopbackClient::exchange(m_listener->port(),
        LoopbackClient::request(
            "POST", "/myInformation", QJsonDocument(message).toJson(QJsonDocument::Compact)));
}

void TestPairingGate::connectFirstPhone()
{
    QCOMPARE(pair(u"10.0.0.7"_qs, u"ann@example.com"_qs, u"Ann's phone"_qs), 200);
    QVERIFY(Session::instance().isPhoneConnected());
}

void TestPairingGate::whenAMessageTakesEffect_data()
{
    QTest::addColumn<bool>("connected");
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("email");
    QTest::addColumn<bool>("appliedAtOnce");
    QTest::newRow("pairing screen: any phone") << false << "10.0.0.99"
                                               << "eve@example.com" << true;
    QTest::newRow("same phone re-pairs") << true << "10.0.0.7"
                                         << "ann@example.com" << true;
    QTest::newRow("same address, other user") << true << "10.0.0.7"
                                              << "eve@example.com" << false;
    QTest::newRow("same user, other address") << true << "10.0.0.99"
                                              << "ann@example.com" << false;
    QTest::newRow("same address, no e-mail") << true << "10.0.0.7" << QString() << false;
}

void TestPairingGate::whenAMessageTakesEffect()
{
    QFETCH(bool, connected);
    QFETCH(QString, ip);
    QFETCH(QString, email);
    QFETCH(bool, appliedAtOnce);
    connectFirstPhone();
    if (!connected)
        Session::instance().setPhoneConnected(false);
    QSignalSpy pending(&PairingGate::instance(), &PairingGate::pendingChanged);

    QCOMPARE(pair(ip, email, u"Renamed"_qs, u"http://10.0.0.99:8080/"_qs), 200); // answered either way
    QVERIFY(Session::instance().isPhoneConnected());
    if (appliedAtOnce) {
        QCOMPARE(Session::instance().phoneIPAddress(), ip);
        QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Renamed"));
        QVERIFY(!PairingGate::instance().pending());
        return;
    }
    // Nothing of the intruder's is stored: not the address, the e-mail, nor the base URL.
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("10.0.0.7"));
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Ann's phone"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://10.0.0.7:8080/"));
    QTRY_COMPARE(pending.size(), 1);
    const auto waiting = PairingGate::instance().pending();
    QVERIFY(waiting);
    QCOMPARE(waiting->message.ip, ip);
    QCOMPARE(waiting->peer, QStringLiteral("127.0.0.1"));
}

void TestPairingGate::switchAppliesTheWaitingMessage()
{
    connectFirstPhone();
    QSignalSpy applied(&PairingGate::instance(), &PairingGate::pairingApplied);
    QCOMPARE(
        pair(u"10.0.0.99"_qs, u"bob@example.com"_qs, u"Bob's phone"_qs, u"http://10.0.0.99:8080/"_qs), 200);
    QTRY_VERIFY(PairingGate::instance().pending());
    QVERIFY(PairingGate::instance().acceptPending(PairingGate::instance().pending()->id));
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("10.0.0.99"));
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Bob's phone"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("bob@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://10.0.0.99:8080/"));
    QVERIFY(!PairingGate::instance().pending());
    QTRY_VERIFY(!applied.isEmpty());
    // The new phone is now the one that re-pairs at once.
    QCOMPARE(pair(u"10.0.0.99"_qs, u"bob@example.com"_qs, u"Bob again"_qs), 200);
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Bob again"));
}

void TestPairingGate::ignoreAndTimeOutDropIt_data()
{
    QTest::addColumn<bool>("ignore");
    QTest::newRow("Ignore") << true;
    QTest::newRow("no answer") << false;
}

void TestPairingGate::ignoreAndTimeOutDropIt()
{
    QFETCH(bool, ignore);
    PairingGate::instance().setHoldTimeForTesting(ignore ? 60s : 300ms);
    connectFirstPhone();
    QCOMPARE(pair(u"10.0.0.99"_qs, u"eve@example.com"_qs), 200);
    QTRY_VERIFY(PairingGate::instance().pending());
    const quint64 id = PairingGate::instance().pending()->id;
    if (ignore)
        PairingGate::instance().ignorePending(id);
    QTRY_VERIFY_WITH_TIMEOUT(!PairingGate::instance().pending(), 5000);
    QVERIFY(!PairingGate::instance().acceptPending(id)); // a late Switch does nothing
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("10.0.0.7"));
    QVERIFY(Session::instance().isPhoneConnected());
}

void TestPairingGate::aNewerRequestReplacesTheWaitingOne()
{
    PairingGate::instance().setHoldTimeForTesting(400ms);
    connectFirstPhone();
    QCOMPARE(pair(u"10.0.0.98"_qs, u"eve@example.com"_qs, u"First"_qs), 200);
    QTRY_VERIFY(PairingGate::instance().pending());
    const quint64 first = PairingGate::instance().pending()->id;
    QCOMPARE(pair(u"10.0.0.99"_qs, u"eve@example.com"_qs, u"Second"_qs), 200);
    QTRY_COMPARE(PairingGate::instance().pending().value_or(PendingPairing {}).message.mobileDeviceName,
        QStringLiteral("Second"));
    // A Switch meant for the first one must not apply the second.
    QVERIFY(!PairingGate::instance().acceptPending(first));
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("10.0.0.7"));
    QTRY_VERIFY_WITH_TIMEOUT(!PairingGate::instance().pending(), 5000);
}

void TestPairingGate::losingThePhoneDropsTheRequest()
{
    connectFirstPhone();
    QCOMPARE(pair(u"10.0.0.99"_qs, u"eve@example.com"_qs), 200);
    QTRY_VERIFY(PairingGate::instance().pending());
    Session::instance().setPhoneConnected(false); // the watchdog's doing
    QTRY_VERIFY(!PairingGate::instance().pending());
    // Back on the pairing screen, pairing is instant again.
    QCOMPARE(pair(u"10.0.0.99"_qs, u"eve@example.com"_qs, u"Eve"_qs), 200);
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Eve"));
}

void TestPairingGate::disconnectKeepsTheStoredValues()
{
    connectFirstPhone();
    QCOMPARE(pair(u"10.0.0.99"_qs, u"eve@example.com"_qs), 200);
    QTRY_VERIFY(PairingGate::instance().pending());
    QSignalSpy flag(&Session::instance(), &Session::phoneConnectedChanged);
    PairingGate::instance().disconnect();
    QVERIFY(!Session::instance().isPhoneConnected());
    QVERIFY(!PairingGate::instance().pending());
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://10.0.0.7:8080/"));
    QTRY_COMPARE(flag.size(), 1);
}

QTEST_GUILESS_MAIN(TestPairingGate)
#include "tst_pairing_gate.moc"
