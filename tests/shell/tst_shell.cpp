#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/PhoneSimProcess.h"
#include "files/IntakeList.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PairingGate.h"
#include "recipients/AssociationsStore.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/PairingRequestBar.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppDelegate.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace std::chrono_literals;

// The window's flow with the simulator as the phone: navigation, the title, the bar another
// phone's pairing message brings up, the return to pairing when the phone goes (also while a
// dialog is open) or is let go, and a second start.
class TestShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void navigationLooks_data();
    void navigationLooks();
    void pairing_data();
    void pairing();
    void leavingThePhone_data();
    void leavingThePhone();
    void phoneLeavesWhileADialogIsOpen_data();
    void phoneLeavesWhileADialogIsOpen();
    void overlaysCoverTheirWindow();
    void oneInstanceAtATime();

private:
    QTemporaryDir m_home;
    std::unique_ptr<PhoneSimProcess> m_sim;
};

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

// What a tab draws: its fill under the title, and the title in the look's colour (within
// anti-aliasing) somewhere in its box.
bool looksLike(CustomButton* tab, const Look& look)
{
    const QImage image = tab->grab().toImage().convertToFormat(QImage::Format_RGB32);
    if (image.pixel(image.width() / 2, image.height() - 2) != look.background.rgb())
        return false;
    const QRect title = tab->titleRect().toAlignedRect() & image.rect();
    for (int y = title.top(); y <= title.bottom(); ++y) {
        for (int x = title.left(); x <= title.right(); ++x) {
            if (distance(image.pixel(x, y), look.text.rgb()) <= 48)
                return true;
        }
    }
    return false;
}

bool showsPairing(const AppWindow& window)
{
    return qobject_cast<QRCodeViewController*>(window.content()) != nullptr;
}

QString title(const QString& phone = {}, bool connected = false)
{
    return connected ? u"Varnex Dekstop Application (Connected: %1)"_qs.arg(phone)
                     : u"Varnex Dekstop Application (Not connected)"_qs;
}

} // namespace

void TestShell::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION));
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    QRCodeViewController::setAddressSourceForTesting([] { return QStringList { u"10.0.0.7"_qs }; });
}

// Paired with the simulator, which answers pings until a test makes it stop.
void TestShell::init()
{
    if (!m_sim || !m_sim->isRunning())
        m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    m_sim->clearFaults();
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, u"alex.morgan@example.com"_qs);
    Session::instance().resetForTesting();
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneIPAddress(QStringLiteral("127.0.0.1"));
    Session::instance().setPhoneConnected(true);
    Session::instance().setMobileDeviceName(u"Ann's phone"_qs);
    PairingGate::instance().resetForTesting();
    MainViewController::setWatchdogTimingForTesting(200ms, 300ms);
}

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
    QTest::newRow("decrypt") << QStringList { u"decrypt"_qs } << 1 << unselected << selected << "info"
                             << true;
    QTest::newRow("about") << QStringList { u"about"_qs } << 2 << unselected << unselected << "info_fill"
                           << false;
    // Encrypt's backing stays dark orange once Decrypt was selected.
    const QStringList roundTrip { u"decrypt"_qs, u"about"_qs, u"decrypt"_qs, u"about"_qs, u"encrypt"_qs };
    QTest::newRow("round trip") << roundTrip << 0 << selected << unselected << "info" << true;
}

void TestShell::navigationLooks()
{
    QFETCH(QStringList, actions);
    QFETCH(int, screen);
    QFETCH(Look, encryptTab);
    QFETCH(Look, decryptTab);
    QFETCH(bool, backingDarkOrange);

    MainViewController main;
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    // The screens are made once and kept while hidden.
    const QList<QPointer<QWidget>> screens { main.vc1, main.vc2, main.vc3 };
    // Through the buttons, as a user would.
    const QHash<QString, QWidget*> buttons { { u"encrypt"_qs, main.encryptButtonTest },
        { u"decrypt"_qs, main.decryptButtonCustom }, { u"about"_qs, main.aboutButton } };
    for (const QString& action : actions)
        QTest::mouseClick(buttons.value(action), Qt::LeftButton);
    QVERIFY(screens.at(screen));
    QCOMPARE(main.currentScreen(), screens.at(screen).data());
    // What is drawn, once the tabs' animations are over.
    QTRY_VERIFY(looksLike(main.encryptButtonTest, encryptTab));
    QTRY_VERIFY(looksLike(main.decryptButtonCustom, decryptTab));
    QCOMPARE(main.encryptButtonTest->isChecked(), encryptTab.on);
    QCOMPARE(main.decryptButtonCustom->isChecked(), decryptTab.on);
    QTEST(main.aboutIconName(), "icon");
    QCOMPARE(main.encryptButtonBackground() == Colors::darkOrange, backingDarkOrange);
    QCOMPARE(main.encryptButtonTest->title(), QStringLiteral("ENCRYPT"));
    QCOMPARE(main.decryptButtonCustom->title(), QStringLiteral("DECRYPT"));
    QCOMPARE(main.vc3->version->text(), QStringLiteral("Version"));
    QCOMPARE(main.vc3->versionNum->text(), QStringLiteral("1.0.0"));
}

void TestShell::pairing_data()
{
    QTest::addColumn<QString>("first"); // the name of the phone that pairs
    QTest::addColumn<QString>("other"); // the name of the phone that asks next
    QTest::addColumn<QString>("shown");
    QTest::addColumn<QString>("answer");
    QTest::newRow("Switch") << u"Ann's phone"_qs << u"Eve's phone"_qs << u"Eve's phone"_qs << u"Switch"_qs;
    QTest::newRow("Ignore, a phone without a name")
        << QString() << u"Eve's phone"_qs << u"Eve's phone"_qs << u"Ignore"_qs;
    // Markup, a line break and a right-to-left override cannot disguise the message.
    QTest::newRow("no answer to a disguised name")
        << u"Ann's phone"_qs << u"<b>Ann's phone</b>\n\u202Eenohp\u202C"_qs + QString(300, u'x')
        << u"<b>Ann's phone</b>enohpxxxxxxxxxxxxxxxx…"_qs << QString();
}

void TestShell::pairing()
{
    QFETCH(QString, first);
    QFETCH(QString, other);
    QFETCH(QString, answer);
    if (answer.isEmpty())
        PairingGate::instance().setHoldTimeForTesting(300ms);
    // One ping at start, then none: the phone switched to does not exist.
    MainViewController::setWatchdogTimingForTesting(10min, 3s);
    Session::instance().setPhoneConnected(false);
    MobileDeviceListener listener(0);
    QVERIFY(listener.start());
    const auto send
        = [&listener](const QString& name, const QString& ip, const QString& email, const QString& url) {
              const QJsonObject message { { u"ip"_qs, ip }, { u"mobileDeviceName"_qs, name },
                  { u"email"_qs, email }, { u"baseURL"_qs, url } };
              return LoopbackClient::exchange(listener.port(),
                  LoopbackClient::request("POST", "/myInformation", QJsonDocument(message).toJson()));
          };
    AppWindow window;
    window.showPairing();
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(showsPairing(window));
    QCOMPARE(window.windowTitle(), title());

    QCOMPARE(send(first, u"127.0.0.1"_qs, u"ann@example.com"_qs, m_sim->baseUrl()), 200);
    QElapsedTimer clock;
    clock.start();
    // Well within the pairing screen's one-second poll: the signal moves the window on.
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<MainViewController*>(window.content()) != nullptr, 2000);
    QVERIFY(clock.elapsed() < 900);
    QTRY_COMPARE(window.windowTitle(), title(first, true));
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    const QPointer<PairingRequestBar> bar = main->pairingRequestBar;
    QVERIFY(!bar->isVisible());

    QWidget* focused = QApplication::focusWidget();
    QCOMPARE(send(other, u"10.0.0.99"_qs, u"eve@example.com"_qs, u"http://10.0.0.99:8080/"_qs), 200);
    QTRY_VERIFY(bar->isVisible());
    QCOMPARE(bar->messageLabel->textFormat(), Qt::PlainText);
    QFETCH(QString, shown);
    QCOMPARE(bar->messageLabel->text(), QString(shown + u" (10.0.0.99) wants to pair with this computer"));
    QCOMPARE(QApplication::focusWidget(), focused); // a keystroke meant elsewhere cannot answer it
    QCOMPARE(bar->switchButton->accessibleName(), QStringLiteral("Switch"));
    QCOMPARE(bar->ignoreButton->accessibleName(), QStringLiteral("Ignore"));
    QVERIFY(bar->switchButton->focusPolicy() & Qt::TabFocus);
    // Nothing changes until the user says so.
    QCOMPARE(window.windowTitle(), title(first, true));
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("127.0.0.1"));

    if (answer == u"Switch") {
        bar->switchButton->setFocus();
        QTest::keyClick(bar->switchButton, Qt::Key_Space);
    } else if (answer == u"Ignore") {
        QTest::mouseClick(bar->ignoreButton, Qt::LeftButton);
    }
    const bool switched = answer == u"Switch";
    // Switch opens fresh screens: the old phone's people, groups and group ids mean nothing to
    // the new one.
    QTRY_VERIFY_WITH_TIMEOUT(switched ? !main : !bar->isVisible(), 5000);
    auto* now = qobject_cast<MainViewController*>(window.content());
    QVERIFY(now && !now->pairingRequestBar->isVisible());
    QCOMPARE(Session::instance().phoneIPAddress(), switched ? u"10.0.0.99"_qs : u"127.0.0.1"_qs);
    QCOMPARE(
        Settings::string(Settings::userEmailKey), switched ? u"eve@example.com"_qs : u"ann@example.com"_qs);
    QTRY_COMPARE(window.windowTitle(), title(switched ? other : first, true));
    QCOMPARE(now->vc3->pairedPhone->text(),
        switched ? u"Paired with Eve's phone (10.0.0.99)"_qs : u"Paired with %1 (127.0.0.1)"_qs.arg(first));
}

void TestShell::leavingThePhone_data()
{
    QTest::addColumn<QString>("event");
    for (const char* event : { "an error status is an answer", "phone is gone", "Disconnect" })
        QTest::newRow(event) << QString::fromLatin1(event);
}

void TestShell::leavingThePhone()
{
    QFETCH(QString, event);
    // Production timings take 3 to 6 seconds; the same loop runs here faster.
    MainViewController::setWatchdogTimingForTesting(100ms, 300ms);
    AppWindow window;
    window.showMain();
    window.show();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    QSignalSpy lost(main.data(), &MainViewController::connectionLost);
    if (event == u"Disconnect") {
        AboutViewController* about = main->vc3;
        main->selectAbout();
        QTRY_VERIFY(about->isVisible());
        QCOMPARE(about->pairedPhone->text(), QStringLiteral("Paired with Ann's phone (127.0.0.1)"));
        QCOMPARE(about->disconnectButton->accessibleName(), QStringLiteral("Disconnect"));
        QTest::mouseClick(about->disconnectButton, Qt::LeftButton);
    } else if (event == u"phone is gone") {
        m_sim->stop();
    } else {
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 503 } }));
        QVERIFY(m_sim->clearRequests());
        const auto pings = [this] {
            const QJsonArray requests = m_sim->requests();
            return std::count_if(requests.begin(), requests.end(),
                [](const QJsonValue& r) { return r[u"path"] == u"/ping"_qs && r[u"method"] == u"GET"_qs; });
        };
        QTRY_VERIFY_WITH_TIMEOUT(pings() >= 4, 5000);
        QCOMPARE(lost.size(), 0);
        QVERIFY(Session::instance().isPhoneConnected());
        QCOMPARE(window.content(), main.data());
        return;
    }
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
    QVERIFY(!Session::instance().isPhoneConnected());
    QCOMPARE(lost.size(), 1); // the watchdog also sees the phone gone after Disconnect
    QTRY_COMPARE(window.windowTitle(), title());
    // The stored session stays for the next pairing.
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("alex.morgan@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), m_sim->baseUrl());
}

void TestShell::phoneLeavesWhileADialogIsOpen_data()
{
    QTest::addColumn<QString>("dialog");
    for (const char* dialog : { "create group", "file chooser", "delete group", "remove member",
             "operation failure", "file chooser opened as the fade began" })
        QTest::newRow(dialog) << QString::fromLatin1(dialog);
}

void TestShell::phoneLeavesWhileADialogIsOpen()
{
    QFETCH(QString, dialog);
    // The last row opens its dialog after the phone left, in a shown window, so the swap
    // fades and the fade ends inside the dialog's loop. The others are not shown: without the
    // fade a swap happens at once, so one that came too early shows.
    const bool late = dialog.endsWith(u"fade began");
    AppWindow window;
    if (late)
        window.show();
    window.showMain();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    QSignalSpy lost(main.data(), &MainViewController::connectionLost);
    EncryptViewController* encrypt = main->vc1;
    RecipientsPanel* panel = encrypt->recipients;
    QTRY_VERIFY_WITH_TIMEOUT(panel->store()->groups.size() >= 2, 5000);

    FakeDialogs dialogs;
    bool checkedWhileOpen = false;
    // Inside the dialog's nested event loop: the phone stops answering, the watchdog notices,
    // and the window must not pull the screen away from under the open dialog.
    dialogs.whileOpen = [&] {
        if (late) {
            QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
        } else {
            QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
            QVERIFY(lost.wait(5000));
            QVERIFY(window.isPairingPending());
            QCOMPARE(window.content(), main.data());
        }
        // Deferred deletions run inside a dialog's loop, as they would in a real one.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(main); // its code is on this dialog's stack
        QVERIFY(!main->isVisible());
        checkedWhileOpen = true;
    };

    const QString file = m_home.filePath(u"notes.txt.vx"_qs);
    QFile(file).open(QIODevice::WriteOnly);
    dialogs.filesToChoose = QStringList { m_home.filePath(u"notes.txt"_qs) };
    if (dialog == u"create group") {
        dialogs.answers.enqueue(u"Climbers"_qs);
        panel->createGroupButtonClicked();
    } else if (dialog == u"file chooser") {
        encrypt->chooseFiles();
    } else if (dialog == u"delete group" || dialog == u"remove member") {
        qint64 family = -1;
        for (const auto& g : panel->store()->groups)
            family = g->groupMembers.isEmpty() ? family : g->id;
        QVERIFY(family > 0);
        dialogs.answers.enqueue(
            dialog == u"delete group" ? QVariant(0) : QVariant::fromValue(QList<int> { 0 }));
        if (dialog == u"delete group")
            panel->menuDeleteGroup(family); // a group with members: an alert
        else
            panel->menuRemoveMember(family);
    } else if (dialog == u"operation failure") {
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"status"_qs, 500 } }));
        DecryptViewController* decrypt = main->vc2;
        decrypt->addFiles({ file });
        decrypt->intakeList()->flip(0);
        decrypt->uploadForDecryption();
    } else {
        // An operation that fails as the phone leaves does this.
        connect(
            main.data(), &MainViewController::connectionLost, this, [&] { encrypt->chooseFiles(); },
            Qt::QueuedConnection);
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    }
    // Back to pairing once the dialog (and any that followed it) closed.
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 10000);
    QTRY_VERIFY(checkedWhileOpen);
    QVERIFY(!window.isPairingPending());
    QTRY_VERIFY(!main);
    QVERIFY(!dialogs.shown.isEmpty() || dialog.startsWith(u"file chooser"));
}

void TestShell::overlaysCoverTheirWindow()
{
    QWidget window;
    auto* screen = new QWidget(&window);
    screen->setGeometry(100, 80, 500, 400);
    auto* encrypting = new EncryptingViewController(screen);
    auto* decrypting = new DecryptingViewController(screen);
    QCOMPARE(encrypting->encrpytingText()->text(), QStringLiteral("ENCRYPTING"));
    QCOMPARE(decrypting->decryptingText()->text(), QStringLiteral("DECRYPTING"));
    QSignalSpy cancel(encrypting, &ProgressOverlay::cancelRequested);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    // The whole window, not only the screen, and still when the window grows.
    window.resize(900, 650);
    QTRY_COMPARE(encrypting->geometry(), window.rect());
    QTest::keyClick(encrypting->cancelButton(), Qt::Key_Space);
    QCOMPARE(cancel.size(), 1);
}

void TestShell::oneInstanceAtATime()
{
    FakeDialogs dialogs;
    {
        AppDelegate first;
        QVERIFY(first.claimSingleInstance());
        AppDelegate second;
        // The second start hands over (tst_commandline runs that with the real program);
        // no dialog stands in its way.
        QVERIFY(!second.claimSingleInstance());
        QCOMPARE(dialogs.shown.size(), 0);
    }
    // The first one ended: the next start runs.
    AppDelegate next;
    QVERIFY(next.claimSingleInstance());
}

QTEST_MAIN(TestShell)
#include "tst_shell.moc"
