#include "app/Session.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "common/Settle.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/QRCodeViewController.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHash>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace std::chrono_literals;

class TestShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void navigationLooks_data();
    void navigationLooks();
    void screensAreMadeOnceAndKept();
    void connectedTitle_data();
    void connectedTitle();
    void watchdogKeepsAnAnsweringPhone();
    void watchdogReturnsToPairingWhenThePhoneGoesQuiet_data();
    void watchdogReturnsToPairingWhenThePhoneGoesQuiet();
    void pairingReplacesThePairingScreenAtOnce();
    void overlaysShowTheirTextsAndStages();
    void aboutShowsTheVersion();
};

void TestShell::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION));
    installTranslations(*QCoreApplication::instance());
}

void TestShell::init()
{
    MainViewController::setWatchdogTimingForTesting(3s, 3s);
    Session::instance().resetForTesting();
    Session::instance().setPhoneServicePortForTesting(Session::defaultPhoneServicePort);
}

struct Look
{
    QColor background;
    QColor text;
    bool on;
};
Q_DECLARE_METATYPE(Look)

namespace {

int distance(QRgb a, QRgb b)
{
    return qAbs(qRed(a) - qRed(b)) + qAbs(qGreen(a) - qGreen(b)) + qAbs(qBlue(a) - qBlue(b));
}

// What a tab shows on screen: its commonest colour is the fill, and the colour inside its
// title that stands out most from the fill is the title's.
QString drawnLook(CustomButton* tab)
{
    const QImage image = tab->grab().toImage().convertToFormat(QImage::Format_RGB32);
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            ++counts[image.pixel(x, y)];
    }
    QRgb fill = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > counts.value(fill))
            fill = it.key();
    }
    QRgb ink = fill;
    const QRect title = tab->titleRect().toAlignedRect() & image.rect();
    for (int y = title.top(); y <= title.bottom(); ++y) {
        for (int x = title.left(); x <= title.right(); ++x) {
            if (distance(image.pixel(x, y), fill) > distance(ink, fill))
                ink = image.pixel(x, y);
        }
    }
    return QColor(fill).name() + u' ' + QColor(ink).name();
}

// The drawn look a tab should have: the fill exactly, the title's colour within anti-aliasing.
bool looksLike(CustomButton* tab, const Look& look)
{
    const QStringList drawn = drawnLook(tab).split(u' ');
    return drawn.at(0) == look.background.name()
        && distance(QColor(drawn.at(1)).rgb(), look.text.rgb()) <= 48;
}

} // namespace

void TestShell::navigationLooks_data()
{
    QTest::addColumn<QStringList>("actions");
    QTest::addColumn<int>("screen");
    QTest::addColumn<Look>("encryptTab");
    QTest::addColumn<Look>("decryptTab");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<bool>("backingDarkOrange");
    const Look selected { Colors::grayColor, Colors::primaryColor, false };
    const Look unselected { Colors::darkOrange, Colors::grayColor, true };
    QTest::newRow("fresh") << QStringList {} << 0 << selected << unselected << "info" << false;
    QTest::newRow("decrypt") << QStringList { u"decrypt"_qs } << 1 << unselected << selected << "info" << true;
    QTest::newRow("about") << QStringList { u"about"_qs } << 2 << unselected << unselected << "info_fill" << false;
    QTest::newRow("decrypt then encrypt keeps backing")
        << QStringList { u"decrypt"_qs, u"encrypt"_qs } << 0 << selected << unselected << "info" << true;
    QTest::newRow("about then decrypt") << QStringList { u"about"_qs, u"decrypt"_qs } << 1 << unselected << selected
                                        << "info" << true;
}

void TestShell::navigationLooks()
{
    QFETCH(QStringList, actions);
    QFETCH(int, screen);
    QFETCH(Look, encryptTab);
    QFETCH(Look, decryptTab);
    QFETCH(bool, backingDarkOrange);

    MainViewController main;
    main.resize(1100, 720);
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    for (const QString& action : actions) {
        // Through the buttons, as a user would.
        if (action == u"encrypt")
            QTest::mouseClick(main.encryptButtonTest, Qt::LeftButton);
        else if (action == u"decrypt")
            QTest::mouseClick(main.decryptButtonCustom, Qt::LeftButton);
        else
            QTest::mouseClick(main.aboutButton, Qt::LeftButton);
    }
    const QList<QWidget*> screens { main.vc1, main.vc2, main.vc3 };
    QCOMPARE(main.currentScreen(), screens.at(screen));
    // What is drawn, once the tabs' animations are over.
    QTRY_VERIFY2(
        looksLike(main.encryptButtonTest, encryptTab), qPrintable(drawnLook(main.encryptButtonTest)));
    QTRY_VERIFY2(
        looksLike(main.decryptButtonCustom, decryptTab), qPrintable(drawnLook(main.decryptButtonCustom)));
    QCOMPARE(main.encryptButtonTest->isChecked(), encryptTab.on);
    QCOMPARE(main.decryptButtonCustom->isChecked(), decryptTab.on);
    QTEST(main.aboutIconName(), "icon");
    QCOMPARE(main.encryptButtonBackground() == Colors::darkOrange, backingDarkOrange);
}

void TestShell::screensAreMadeOnceAndKept()
{
    MainViewController main;
    main.show();
    QVERIFY(main.vc1 && main.vc2 && main.vc3);
    auto* label = new QLabel(QStringLiteral("kept"), main.vc2);
    QPointer<QWidget> encrypt = main.vc1;
    for (int round = 0; round < 2; ++round) {
        main.selectDecrypt();
        main.selectAbout();
        main.selectEncrypt();
    }
    main.selectDecrypt();
    QCOMPARE(main.currentScreen(), main.vc2);
    QCOMPARE(label->parentWidget(), main.vc2);
    QCOMPARE(main.vc1, encrypt.data());
    QCOMPARE(main.encryptButtonTest->title(), QStringLiteral("ENCRYPT"));
    QCOMPARE(main.decryptButtonCustom->title(), QStringLiteral("DECRYPT"));
}

void TestShell::connectedTitle_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("title");
    QTest::newRow("named") << "My phone" << "Varnex Dekstop Application (Connected: My phone)";
    QTest::newRow("no name") << "" << "Varnex Dekstop Application (Connected: )";
}

void TestShell::connectedTitle()
{
    QFETCH(QString, name);
    Session::instance().setMobileDeviceName(name);
    AppWindow window;
    window.showMain();
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QTEST(window.windowTitle(), "title");
}

void TestShell::watchdogKeepsAnAnsweringPhone()
{
    PhoneSimProcess sim;
    QVERIFY(sim.isRunning());
    Session::instance().setPhoneServicePortForTesting(sim.port());
    Session::instance().setPhoneIPAddress(QStringLiteral("127.0.0.1"));
    Session::instance().setPhoneConnected(true);
    QVERIFY(sim.setFault(QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 503 } }));

    MainViewController::setWatchdogTimingForTesting(100ms, 300ms);
    MainViewController main;
    QSignalSpy lost(&main, &MainViewController::connectionLost);
    // An error status is still an answer: several rounds later the phone counts as connected.
    auto pings = [&sim] {
        int n = 0;
        for (const auto& request : sim.requests())
            n += request.toObject().value(u"path").toString() == u"/ping" && request.toObject().value(u"method").toString() == u"GET";
        return n;
    };
    QTRY_VERIFY_WITH_TIMEOUT(pings() >= 4, 5000);
    QCOMPARE(lost.size(), 0);
    QVERIFY(Session::instance().isPhoneConnected());
}

void TestShell::watchdogReturnsToPairingWhenThePhoneGoesQuiet_data()
{
    QTest::addColumn<bool>("stopProcess");
    QTest::newRow("phone stops answering") << false;
    QTest::newRow("phone is gone") << true;
}

void TestShell::watchdogReturnsToPairingWhenThePhoneGoesQuiet()
{
    QFETCH(bool, stopProcess);
    PhoneSimProcess sim;
    QVERIFY(sim.isRunning());
    Session::instance().setPhoneServicePortForTesting(sim.port());
    Session::instance().setPhoneIPAddress(QStringLiteral("127.0.0.1"));
    Session::instance().setPhoneConnected(true);

    // Production timings take 3 to 6 seconds; the same loop runs here ten times faster.
    MainViewController::setWatchdogTimingForTesting(300ms, 300ms);
    AppWindow window;
    window.showMain();
    window.show();
    QVERIFY(qobject_cast<MainViewController*>(window.content()));
    if (stopProcess)
        sim.stop();
    else
        QVERIFY(sim.setFault(QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));

    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<QRCodeViewController*>(window.content()) != nullptr, 5000);
    QVERIFY(!Session::instance().isPhoneConnected());
    QTRY_COMPARE(window.windowTitle(), QStringLiteral("Varnex Dekstop Application (Not connected)"));
    if (!stopProcess)
        sim.clearFaults();
}

void TestShell::pairingReplacesThePairingScreenAtOnce()
{
    QRCodeViewController::setAddressSourceForTesting([] { return QStringList { u"10.0.0.7"_qs }; });
    AppWindow window;
    window.showPairing();
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto* pairing = qobject_cast<QRCodeViewController*>(window.content());
    QVERIFY(pairing);
    QCOMPARE(window.windowTitle(), QStringLiteral("Varnex Dekstop Application (Not connected)"));
    Session::instance().setMobileDeviceName(QStringLiteral("Pixel"));
    QElapsedTimer clock;
    clock.start();
    Session::instance().setPhoneConnected(true);
    // Well within the one-second poll: the signal moves the window on.
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<MainViewController*>(window.content()) != nullptr, 2000);
    QVERIFY(clock.elapsed() < 900);
    QTRY_COMPARE(window.windowTitle(), QStringLiteral("Varnex Dekstop Application (Connected: Pixel)"));
    QRCodeViewController::setAddressSourceForTesting({});
}

void TestShell::overlaysShowTheirTextsAndStages()
{
    QWidget screen;
    screen.resize(800, 600);
    EncryptingViewController encrypting(&screen);
    DecryptingViewController decrypting(&screen);
    QCOMPARE(encrypting.encrpytingText()->text(), QStringLiteral("ENCRYPTING"));
    QCOMPARE(decrypting.decryptingText()->text(), QStringLiteral("DECRYPTING"));
    QCOMPARE(encrypting.geometry(), screen.rect());
    QSignalSpy cancel(&encrypting, &ProgressOverlay::cancelRequested);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    screen.resize(900, 650);
    QTRY_COMPARE(encrypting.geometry(), screen.rect());
    QTest::keyClick(encrypting.cancelButton(), Qt::Key_Space);
    QCOMPARE(cancel.size(), 1);
    encrypting.setStage(QStringLiteral("Sending"), 3'000'000'000LL, 6'000'000'000LL);
    QCOMPARE(encrypting.stageLabel()->text(), QStringLiteral("Sending"));
}

void TestShell::aboutShowsTheVersion()
{
    AboutViewController about;
    QCOMPARE(about.version->text(), QStringLiteral("Version"));
    QCOMPARE(about.versionNum->text(), QStringLiteral("1.0.0"));
}

QTEST_MAIN(TestShell)
#include "tst_shell.moc"
