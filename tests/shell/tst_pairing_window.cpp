#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PairingGate.h"
#include "screens/AboutViewController.h"
#include "screens/PairingRequestBar.h"
#include "screens/QRCodeViewController.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace std::chrono_literals;

// What the user sees of pairing while connected: the bar when another phone asks, the title,
// and the paired phone with Disconnect on the About screen. The phone is the simulator (it
// answers the watchdog's pings); the other phone is a plain request to the real listener.
class TestPairingWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void switchTakesTheOtherPhone();
    void ignoreOrSilenceKeepsThePhone_data();
    void ignoreOrSilenceKeepsThePhone();
    void aNameCannotDisguiseTheBar();
    void disconnectReturnsToPairing();

private:
    void askToPair(const QString& name, const QString& ip = u"10.0.0.99"_qs);
    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<MobileDeviceListener> m_listener;
    std::unique_ptr<AppWindow> m_window;
};

namespace {

MainViewController* mainOf(AppWindow& window)
{
    return qobject_cast<MainViewController*>(window.content());
}

} // namespace

void TestPairingWindow::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    // One ping at start, then none for the length of a test: the switched-to phone of these
    // tests does not exist.
    MainViewController::setWatchdogTimingForTesting(10min, 3s);
}

void TestPairingWindow::init()
{
    Settings::open()->clear();
    Session::instance().resetForTesting();
    PairingGate::instance().resetForTesting();
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    m_listener = std::make_unique<MobileDeviceListener>(0);
    QVERIFY(m_listener->start());
    const QByteArray phone
        = R"({"ip":"127.0.0.1","mobileDeviceName":"Ann's phone","email":"ann@example.com","baseURL":"http://127.0.0.1:8080/"})";
    QCOMPARE(LoopbackClient::exchange(
                 m_listener->port(), LoopbackClient::request("POST", "/myInformation", phone)),
        200);
    m_window = std::make_unique<AppWindow>();
    m_window->showMain();
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    QVERIFY(mainOf(*m_window));
    QTRY_COMPARE(
        m_window->windowTitle(), QStringLiteral("Varnex Dekstop Application (Connected: Ann's phone)"));
}

void TestPairingWindow::cleanup()
{
    m_window.reset();
    m_listener.reset();
}

void TestPairingWindow::askToPair(const QString& name, const QString& ip)
{
    const QJsonObject message { { u"ip"_qs, ip }, { u"mobileDeviceName"_qs, name },
        { u"email"_qs, u"eve@example.com"_qs }, { u"baseURL"_qs, QString(u"http://" + ip + u":8080/") } };
    QCOMPARE(LoopbackClient::exchange(m_listener->port(),
                 LoopbackClient::request("POST", "/myInformation", QJsonDocument(message).toJson())),
        200);
}

void TestPairingWindow::switchTakesTheOtherPhone()
{
    PairingRequestBar* bar = mainOf(*m_window)->pairingRequestBar;
    QVERIFY(!bar->isVisible());
    QWidget* focused = QApplication::focusWidget();
    askToPair(u"Eve's phone"_qs);
    QTRY_VERIFY(bar->isVisible());
    QCOMPARE(bar->messageLabel->text(),
        QStringLiteral("Eve's phone (10.0.0.99) wants to pair with this computer"));
    QCOMPARE(QApplication::focusWidget(), focused); // a keystroke meant elsewhere cannot answer it
    QCOMPARE(bar->switchButton->accessibleName(), QStringLiteral("Switch"));
    QCOMPARE(bar->ignoreButton->accessibleName(), QStringLiteral("Ignore"));
    QVERIFY(bar->switchButton->focusPolicy() & Qt::TabFocus);
    // Nothing has changed until the user says so.
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("127.0.0.1"));
    QCOMPARE(m_window->windowTitle(), QStringLiteral("Varnex Dekstop Application (Connected: Ann's phone)"));

    bar->switchButton->setFocus();
    QTest::keyClick(bar->switchButton, Qt::Key_Space);
    QTRY_VERIFY(!bar->isVisible());
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("10.0.0.99"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("eve@example.com"));
    QTRY_COMPARE(
        m_window->windowTitle(), QStringLiteral("Varnex Dekstop Application (Connected: Eve's phone)"));
    AboutViewController* about = mainOf(*m_window)->vc3;
    QCOMPARE(about->pairedPhone->text(), QStringLiteral("Paired with Eve's phone (10.0.0.99)"));
    QVERIFY(mainOf(*m_window)); // still the main window
}

void TestPairingWindow::ignoreOrSilenceKeepsThePhone_data()
{
    QTest::addColumn<bool>("clickIgnore");
    QTest::newRow("Ignore") << true;
    QTest::newRow("no answer") << false;
}

void TestPairingWindow::ignoreOrSilenceKeepsThePhone()
{
    QFETCH(bool, clickIgnore);
    if (!clickIgnore)
        PairingGate::instance().setHoldTimeForTesting(300ms);
    PairingRequestBar* bar = mainOf(*m_window)->pairingRequestBar;
    askToPair(u"Eve's phone"_qs);
    QTRY_VERIFY(bar->isVisible());
    if (clickIgnore)
        QTest::mouseClick(bar->ignoreButton, Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!bar->isVisible(), 5000);
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("127.0.0.1"));
    QCOMPARE(m_window->windowTitle(), QStringLiteral("Varnex Dekstop Application (Connected: Ann's phone)"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
}

void TestPairingWindow::aNameCannotDisguiseTheBar()
{
    PairingRequestBar* bar = mainOf(*m_window)->pairingRequestBar;
    const QString name = u"<b>Ann's phone</b>\n\u202Eenohp\u202C"_qs + QString(300, u'x');
    askToPair(name);
    QTRY_VERIFY(bar->isVisible());
    QCOMPARE(bar->messageLabel->textFormat(), Qt::PlainText);
    const QString text = bar->messageLabel->text();
    QVERIFY(!text.contains(u'\n') && !text.contains(QChar(0x202E)));
    QVERIFY2(text.size() < 100, qPrintable(text));
    QVERIFY(text.endsWith(u"… (10.0.0.99) wants to pair with this computer"));
    m_window->grab().save(QStringLiteral("pairing-request-bar.png"));
}

void TestPairingWindow::disconnectReturnsToPairing()
{
    QRCodeViewController::setAddressSourceForTesting([] { return QStringList { u"10.0.0.7"_qs }; });
    MainViewController* main = mainOf(*m_window);
    QSignalSpy lost(main, &MainViewController::connectionLost);
    main->selectAbout();
    AboutViewController* about = main->vc3;
    QTRY_VERIFY(about->isVisible());
    QCOMPARE(about->pairedPhone->text(), QStringLiteral("Paired with Ann's phone (127.0.0.1)"));
    QCOMPARE(about->disconnectButton->accessibleName(), QStringLiteral("Disconnect"));
    QTest::mouseClick(about->disconnectButton, Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<QRCodeViewController*>(m_window->content()) != nullptr, 5000);
    QVERIFY(!Session::instance().isPhoneConnected());
    QCOMPARE(lost.size(), 1);
    QCOMPARE(m_window->windowTitle(), QStringLiteral("Varnex Dekstop Application (Not connected)"));
    // As after a lost phone: the stored session stays for the next pairing.
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://127.0.0.1:8080/"));
    QRCodeViewController::setAddressSourceForTesting({});
}

QTEST_MAIN(TestPairingWindow)
#include "tst_pairing_window.moc"
