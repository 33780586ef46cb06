#include "app/Session.h"
#include "app/Settings.h"
#include "common/PhoneSimProcess.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsController.h"

#include <QElapsedTimer>
#include <QTest>
#include <QTimer>

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
        n += request.value(u"method").toString() == u"GET"
            && request.value(u"path").toString().contains(pathPart);
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
    QTest::addColumn<int>("pauseMs"); // between two signals of a kind
    QTest::addColumn<int>("usersDelayMs"); // how long the phone takes to list its users
    QTest::newRow("one of each") << 1 << 0 << 0;
    QTest::newRow("a flood of 100 each") << 100 << 0 << 0;
    // Half a second's look: a steady stream gives a fetch per look, not per signal.
    QTest::newRow("a stream for a second") << 100 << 10 << 0;
    // One fetch in flight: a slow phone is not sent a second request before it answers.
    QTest::newRow("a stream while the phone is slow") << 60 << 50 << 1000;
}

void TestChangeSignals::burstsAreCoalesced()
{
    QFETCH(int, signals);
    QFETCH(int, pauseMs);
    QFETCH(int, usersDelayMs);
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, owner);
    Session::instance().resetForTesting();
    Session::instance().setPhoneIPAddress(u"127.0.0.1"_qs);
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneConnected(true);
    m_sim->clearFaults();
    if (usersDelayMs > 0)
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/getUsers"_qs }, { u"delayMs"_qs, usersDelayMs } }));
    MobileDeviceListener listener(0);
    QVERIFY(listener.start());
    AssociationsStore store;
    RecipientsController controller(&store);
    m_sim->clearRequests();

    // The phone's signals come from a timer on this thread (or all at once), so the
    // controller's own replies are handled in between, as in the program.
    int sent = 0;
    QElapsedTimer stream;
    stream.start();
    QTimer phone;
    phone.setInterval(pauseMs);
    connect(&phone, &QTimer::timeout, this, [&] {
        do {
            LoopbackClient::exchange(
                listener.port(), LoopbackClient::request("POST", "/updateAssociates", {}));
            LoopbackClient::exchange(listener.port(), LoopbackClient::request("POST", "/updateGroups", {}));
        } while (++sent < signals && pauseMs == 0);
        if (sent == signals)
            phone.stop();
    });
    phone.start();
    QTRY_VERIFY_WITH_TIMEOUT(sent == signals, 20000);
    const qint64 streamMs = stream.elapsed();
    QTRY_VERIFY_WITH_TIMEOUT(fetches(*m_sim, u"/getUsers"_qs) >= 1 && !controller.isBusy(), 20000);

    // A look every half second, and never a second users fetch before the first answered:
    // the fetches follow the stream's length and the phone's pace, not the signals' count.
    // Each users reply refreshes the groups once more.
    const qint64 looks = streamMs / RecipientsController::changeSignalDebounceMilliseconds + 2;
    const qint64 answers = usersDelayMs > 0 ? streamMs / usersDelayMs + 2 : looks;
    const int users = fetches(*m_sim, u"/getUsers"_qs);
    const int groups = fetches(*m_sim, u"/groups/"_qs);
    const QByteArray counts = QStringLiteral("%1 signals each in %2 ms: %3 users and %4 groups fetches")
                                  .arg(signals)
                                  .arg(streamMs)
                                  .arg(users)
                                  .arg(groups)
                                  .toUtf8();
    qInfo("%s", counts.constData());
    QVERIFY2(users >= 1 && users <= std::min(looks, answers), counts.constData());
    QVERIFY2(groups >= 1 && groups <= 2 * looks, counts.constData());
    QVERIFY(!store.users.isEmpty());
    m_sim->clearFaults();
}

QTEST_GUILESS_MAIN(TestChangeSignals)
#include "tst_change_signals.moc"
