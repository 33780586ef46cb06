#include "app/Session.h"
#include "app/Settings.h"
#include "common/PhoneSimProcess.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsController.h"

#include <QElapsedTimer>
#include <QTest>

#include <thread>

// The phone's change signals, sent as fast as a host can send them, against the fetches they
// cause on the phone (counted from the simulator's request log).
class TestChangeSignals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void burstsAreCoalesced_data();
    void burstsAreCoalesced();

private:
    std::unique_ptr<PhoneSimProcess> m_sim;
};

namespace {

const QString owner = QStringLiteral("alex.morgan@example.com");

int fetches(PhoneSimProcess& sim, const QString& pathPart)
{
    int n = 0;
    for (const auto& r : sim.requests()) {
        const QJsonObject request = r.toObject();
        n += request.value(u"method").toString() == u"GET" && request.value(u"path").toString().contains(pathPart);
    }
    return n;
}

} // namespace

void TestChangeSignals::initTestCase()
{
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestChangeSignals::burstsAreCoalesced_data()
{
    QTest::addColumn<int>("signals");
    QTest::newRow("one of each") << 1;
    QTest::newRow("a flood of 100 each") << 100;
}

void TestChangeSignals::burstsAreCoalesced()
{
    QFETCH(int, signals);
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, owner);
    Session::instance().resetForTesting();
    Session::instance().setPhoneIPAddress(u"127.0.0.1"_qs);
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneConnected(true);
    MobileDeviceListener listener(0);
    QVERIFY(listener.start());
    AssociationsStore store;
    RecipientsController controller(&store);
    m_sim->clearRequests();

    // Sent from another thread so the main loop runs meanwhile, as it would in the program.
    std::atomic<qint64> burstMs { 0 };
    std::thread phone([port = listener.port(), signals, &burstMs] {
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < signals; ++i) {
            LoopbackClient::exchange(port, LoopbackClient::request("POST", "/updateAssociates", {}));
            LoopbackClient::exchange(port, LoopbackClient::request("POST", "/updateGroups", {}));
        }
        burstMs = clock.elapsed();
    });
    QTRY_VERIFY_WITH_TIMEOUT(fetches(*m_sim, u"/getUsers"_qs) >= 1, 10000);
    phone.join();
    QTRY_VERIFY_WITH_TIMEOUT(!controller.isBusy(), 10000);
    // One look per half second however many signals arrive, so the fetches follow the
    // burst's length, not its count; each users reply refreshes the groups once more.
    const int looks = int(burstMs / RecipientsController::changeSignalDebounceMilliseconds) + 2;
    const int users = fetches(*m_sim, u"/getUsers"_qs);
    const int groups = fetches(*m_sim, u"/groups/"_qs);
    const QByteArray counts = QStringLiteral("burst %1 ms, %2 users and %3 groups fetches")
                                  .arg(burstMs.load()).arg(users).arg(groups).toUtf8();
    qInfo("%s", counts.constData());
    QVERIFY2(users >= 1 && users <= looks, counts.constData());
    QVERIFY2(groups >= 1 && groups <= 2 * looks, counts.constData());
    QVERIFY(!store.users.isEmpty());
}

QTEST_GUILESS_MAIN(TestChangeSignals)
#include "tst_change_signals.moc"
