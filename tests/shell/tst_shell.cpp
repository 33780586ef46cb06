#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/Parts.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "desktop/SingleInstance.h"
#include "files/IntakeList.h"
#include "operations/OperationRun.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"
#include "pairing/TrustedPhone.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileTableView.h"
#include "screens/PairedPhone.h"
#include "screens/PairingRequestBar.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "shell/QuitGuard.h"
#include "storage/WorkingFolders.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QDataStream>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QLocalSocket>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <QToolButton>
#include <malloc.h>

#include <qrencode.h>

using namespace std::chrono_literals;

// The window's flow with the simulator as the trusted phone: navigation and its keys, the
// title, the pairing screen's code and address, the bar a phone's pairing message brings up, losing the phone
// (also while a dialog or an operation is open) and finding it again with the window as it was, a start that
// finds the phone by itself, forgetting it, files handed over from outside, and quitting.
class TestShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void navigationLooks_data();
    void navigationLooks();
    void keysDoWhatTheyDo();
    void pairingAddress_data();
    void pairingAddress();
    void pairing();
    void forgettingThePhone();
    void lostAndFoundKeepsTheWindowAsItWas();
    void phoneLeavesWhileADialogIsOpen_data();
    void phoneLeavesWhileADialogIsOpen();
    void openFiles_data();
    void openFiles();
    void handOverRefusedWhileItsSocketCloses();
    void quittingWhileAnOperationRunsAsks();

private:
    // What the window is built on, anew; paired with the simulator when `paired`.
    void makeApp(PhoneConnection::Options options, bool paired = true);
    // The window on the main screens, shown and active.
    MainViewController* showMain(AppWindow& window);
    // An empty file named `name` in the test's home.
    QString file(const QString& name);

    QTemporaryDir m_home;
    QStringList m_addresses; // this computer's, as the pairing screen finds them
    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<TestServices> m_app;
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
    QRCodeViewController::setAddressSourceForTesting([this] { return m_addresses; });
}

// Paired with the simulator, the trusted phone, which answers pings until a test makes it stop.
void TestShell::init()
{
    if (!m_sim || !m_sim->isRunning())
        m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    m_sim->clearFaults();
    m_addresses = { u"192.168.1.20"_qs };
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, u"alex.morgan@example.com"_qs);
    TrustedPhone { u"alex.morgan@example.com"_qs, u"Ann's phone"_qs, u"127.0.0.1"_qs, m_sim->baseUrl() }
        .save();
    // The production rule (lost after 3 s and two failures in a row), faster.
    makeApp({ 60s, { 100ms, 300ms, 600ms, 200ms } });
}

void TestShell::makeApp(PhoneConnection::Options options, bool paired)
{
    m_app.reset();
    Session::instance().resetForTesting();
    m_app = std::make_unique<TestServices>(m_sim->port(), options);
    if (paired)
        m_app->pair(u"127.0.0.1"_qs, u"Ann's phone"_qs, u"alex.morgan@example.com"_qs, m_sim->baseUrl());
}

MainViewController* TestShell::showMain(AppWindow& window)
{
    window.showMain();
    window.show();
    window.activateWindow();
    if (!QTest::qWaitForWindowActive(&window))
        return nullptr;
    return qobject_cast<MainViewController*>(window.content());
}

QString TestShell::file(const QString& name)
{
    TestFiles::write(m_home.filePath(name), "x");
    return m_home.filePath(name);
}

void TestShell::navigationLooks_data()
{
    QTest::addColumn<QStringList>("actions");
    QTest::addColumn<int>("screen");
    QTest::addColumn<Look>("encryptTab");
    QTest::addColumn<Look>("decryptTab");
    QTest::addColumn<QString>("icon");
    QTest::addColumn<bool>("backingDarkOrange");
    // The titles keep their hues, made dark enough to read on the fills.
    const Look selected { Colors::grayColor, Colors::readableOn(Colors::primaryColor, Colors::grayColor),
        false };
    const Look unselected { Colors::darkOrange, Colors::readableOn(Colors::grayColor, Colors::darkOrange),
        true };
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

    MainViewController main(m_app->services);
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    // The screens are made once and kept while hidden.
    const QList<QPointer<QWidget>> screens { main.encryptScreen(), main.decryptScreen(), main.aboutScreen() };
    // Through the buttons, as a user would.
    const QHash<QString, QWidget*> buttons { { u"encrypt"_qs, part<CustomButton>(&main, "encryptTab") },
        { u"decrypt"_qs, part<CustomButton>(&main, "decryptTab") },
        { u"about"_qs, part<QToolButton>(&main, "aboutButton") } };
    for (const QString& action : actions)
        QTest::mouseClick(buttons.value(action), Qt::LeftButton);
    QVERIFY(screens.at(screen));
    QCOMPARE(main.currentScreen(), screens.at(screen).data());
    // What is drawn, once the tabs' animations are over.
    QTRY_VERIFY(looksLike(part<CustomButton>(&main, "encryptTab"), encryptTab));
    QTRY_VERIFY(looksLike(part<CustomButton>(&main, "decryptTab"), decryptTab));
    QCOMPARE(part<CustomButton>(&main, "encryptTab")->isChecked(), encryptTab.on);
    QCOMPARE(part<CustomButton>(&main, "decryptTab")->isChecked(), decryptTab.on);
    QTEST(main.aboutIconName(), "icon");
    QCOMPARE(main.encryptButtonBackground() == Colors::darkOrange, backingDarkOrange);
    QCOMPARE(part<QLabel>(main.aboutScreen(), "version")->text(), QStringLiteral("Version"));
    QCOMPARE(part<QLabel>(main.aboutScreen(), "versionNum")->text(), QStringLiteral("1.0.0"));
}

// The window's keys, as a user presses them.
void TestShell::keysDoWhatTheyDo()
{
    FakeDialogs dialogs;
    AppWindow window(m_app->services);
    MainViewController* main = showMain(window);
    QVERIFY(main);
    QCOMPARE(main->currentScreen(), main->encryptScreen());
    // The keyboard starts on the first control, the Encrypt tab; Enter presses a button as Space does.
    QCOMPARE(window.focusWidget(), part<CustomButton>(main, "encryptTab"));
    part<CustomButton>(main, "decryptTab")->setFocus();
    QTest::keyClick(part<CustomButton>(main, "decryptTab"), Qt::Key_Return);
    QTRY_COMPARE(main->currentScreen(), main->decryptScreen());
    QTest::keyClick(&window, Qt::Key_1, Qt::ControlModifier);
    QTest::keyClick(&window, Qt::Key_2, Qt::ControlModifier);
    QTRY_COMPARE(main->currentScreen(), main->decryptScreen());
    // Ctrl+O chooses files for the screen shown: the Decrypt screen's chooser.
    dialogs.filesToChoose = { file(u"c.vx"_qs) };
    QTest::keyClick(&window, Qt::Key_O, Qt::ControlModifier);
    QTRY_COMPARE(main->decryptScreen()->filesToDecrypt().size(), 1);
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::encryptedFilesFolder());
    QCOMPARE(main->encryptScreen()->filesToEncrypt().size(), 0);

    QTest::keyClick(&window, Qt::Key_1, Qt::ControlModifier);
    QTRY_COMPARE(main->currentScreen(), main->encryptScreen());
    main->encryptScreen()->addFiles({ file(u"a.txt"_qs), file(u"b.txt"_qs) });
    // Ctrl+A marks all, Delete removes the marked ones; on the Decrypt list nothing changes.
    main->encryptScreen()->widgets().intakeTable->setFocus();
    QTest::keyClick(&window, Qt::Key_A, Qt::ControlModifier);
    QTRY_COMPARE(main->encryptScreen()->intakeList()->markedCount(), 2);
    QTest::keyClick(&window, Qt::Key_Delete);
    QTRY_COMPARE(main->encryptScreen()->filesToEncrypt().size(), 0);
    QCOMPARE(main->decryptScreen()->filesToDecrypt().size(), 1);

    // Ctrl+F: the recipients' search, from any screen; there Ctrl+A is the field's own.
    QTest::keyClick(&window, Qt::Key_F1);
    QTRY_COMPARE(main->currentScreen(), main->aboutScreen());
    QTest::keyClick(&window, Qt::Key_F, Qt::ControlModifier);
    QLineEdit* search = main->encryptScreen()->recipients()->widgets().searchTextField;
    QTRY_VERIFY(search->hasFocus());
    QCOMPARE(main->currentScreen(), main->encryptScreen());
    main->encryptScreen()->addFiles({ m_home.filePath(u"a.txt"_qs) });
    QTest::keyClicks(search, u"ben"_qs);
    QTest::keyClick(search, Qt::Key_A, Qt::ControlModifier);
    QCOMPARE(search->selectedText(), u"ben"_qs);
    QCOMPARE(main->encryptScreen()->intakeList()->markedCount(), 0);

    // Seen in tool tips, and heard as the buttons' key bindings.
    QCOMPARE(main->encryptScreen()->widgets().chooseFilesButton->toolTip(),
        u"Choose files to add, or drop them on the list (Ctrl+O)"_qs);
    QCOMPARE(part<QWidget>(main, "decryptTabBacking")->toolTip(), u"DECRYPT (Ctrl+2)"_qs);
    QCOMPARE(part<QToolButton>(main, "aboutButton")->toolTip(), u"About (F1)"_qs);
    QAccessibleInterface* about
        = QAccessible::queryAccessibleInterface(part<QToolButton>(main, "aboutButton"));
    QVERIFY(about && about->actionInterface());
    QCOMPARE(about->actionInterface()->keyBindingsForAction(QAccessibleActionInterface::pressAction()),
        QStringList { u"F1"_qs });
}

void TestShell::pairingAddress_data()
{
    QTest::addColumn<QStringList>("found"); // this computer's addresses
    QTest::addColumn<QString>("remembered"); // the user's choice of an earlier start
    QTest::addColumn<QString>("shown");
    QTest::addColumn<bool>("selector");
    QTest::addColumn<bool>("portTaken"); // by another program: the listener cannot start
    const QStringList two { u"192.168.1.20"_qs, u"10.8.0.2"_qs };
    QTest::newRow("long") << QStringList { u"192.168.100.200"_qs } << QString() << u"192.168.100.200"_qs
                          << false << false;
    QTest::newRow("none") << QStringList() << QString() << u"Cannot find IP address"_qs << false << false;
    // Public addresses only: the listener would refuse every phone, so no code is offered.
    QTest::newRow("public only")
        << QStringList { u"192.0.2.2"_qs, u"8.8.8.8"_qs } << u"192.0.2.2"_qs
        << u"This computer has no local network address. Connect it to the same Wi-Fi network as your phone."_qs
        << false << false;
    QTest::newRow("one of them local") << QStringList { u"192.0.2.2"_qs, u"100.64.1.9"_qs } << QString()
                                       << u"100.64.1.9"_qs << false << false;
    QTest::newRow("a choice") << two << QString() << u"192.168.1.20"_qs << true << false;
    QTest::newRow("the remembered choice") << two << u"10.8.0.2"_qs << u"10.8.0.2"_qs << true << false;
    // A remembered address that is gone falls back to the rule's choice.
    QTest::newRow("the remembered one gone") << QStringList { u"192.168.1.20"_qs, u"172.20.0.4"_qs }
                                             << u"10.8.0.2"_qs << u"192.168.1.20"_qs << true << false;
    // No code while no phone could reach the listener; it comes once the port is free.
    QTest::newRow("port taken")
        << QStringList { u"10.0.0.7"_qs } << QString()
        << u"Your phone cannot reach Varnex Desktop: another program on this computer is using port %1, "
           u"where the phone sends its pairing message. Close that program. Varnex Desktop tries again every "
           u"few seconds."_qs
        << false << true;
}

// The address the pairing screen offers, drawn again only when it changes; its code, exactly
// the address's ASCII text in 15 x 15 modules; and the choice among several, remembered.
void TestShell::pairingAddress()
{
    QFETCH(QStringList, found);
    QFETCH(QString, remembered);
    QFETCH(QString, shown);
    QFETCH(bool, portTaken);
    m_addresses = found;
    if (!remembered.isEmpty())
        Settings::setString("preferredPairingAddress", remembered);
    if (shown.startsWith(u"This computer"))
        QTest::ignoreMessage(QtInfoMsg,
            qPrintable(u"No local network address to pair on; the listener refuses phones on "_qs
                + found.join(u", ")));
    makeApp({}, false); // no phone yet: the screen shows the address to pair on
    QTcpServer holder;
    std::unique_ptr<MobileDeviceListener> listener;
    if (portTaken) {
        QVERIFY(holder.listen(QHostAddress::AnyIPv4));
        shown = shown.arg(holder.serverPort());
        listener = std::make_unique<MobileDeviceListener>(
            m_app->phone, holder.serverPort(), ListenerLimits { .retryPeriod = 100ms });
        QVERIFY(!listener->start());
    }
    QRCodeViewController screen(m_app->phone, nullptr);
    screen.show();
    auto* address = part<QLabel>(&screen, "ipAdressLabel");
    QCOMPARE(address->text(), shown);
    QTEST(screen.addressSelector()->isVisible(), "selector");
    screen.refreshAddress();
    QCOMPARE(screen.redrawCount(), 1);
    const QrMatrix matrix = screen.currentMatrix();
    QCOMPARE(matrix.isValid(), found.contains(shown));
    if (!matrix.isValid()) {
        QVERIFY(!part<QLabel>(&screen, "qrCodeImage")->pixmap().isNull()); // a placeholder
        m_addresses = { u"10.0.0.7"_qs }; // the network comes back, or the other program goes
        holder.close();
        screen.refreshAddress();
        QTRY_COMPARE(address->text(), u"10.0.0.7"_qs);
        screen.refreshAddress();
        QCOMPARE(screen.redrawCount(), 2);
        QVERIFY(screen.currentMatrix().isValid());
        return;
    }

    // Exactly the ASCII text, nothing else: the same matrix libqrencode makes of that text.
    const QByteArray text = shown.toLatin1();
    QRcode* reference = QRcode_encodeString8bit(text.constData(), 0, QR_ECLEVEL_M);
    QVERIFY(reference);
    QCOMPARE(matrix.width, reference->width);
    for (int i = 0; i < matrix.width * matrix.width; ++i)
        QCOMPARE(matrix.modules.at(i), bool(reference->data[i] & 1));
    QRcode_free(reference);
    // Drawn with 15 x 15 modules: the centre of every module has its colour.
    const QImage image = QRCodeViewController::renderQr(matrix);
    const int quiet = QRCodeViewController::quietZoneModules();
    QCOMPARE(image.width(), (matrix.width + 2 * quiet) * 15);
    for (int y = 0; y < matrix.width; ++y) {
        for (int x = 0; x < matrix.width; ++x) {
            const QPoint centre((x + quiet) * 15 + 7, (y + quiet) * 15 + 7);
            QCOMPARE(image.pixelColor(centre) == Qt::black, matrix.dark(x, y));
        }
    }
    // Crisp at twice the pixel density: still whole device pixels per module.
    QCOMPARE(QRCodeViewController::renderQr(matrix, 2.0).width(), image.width() * 2);

    if (screen.addressSelector()->isVisible()) {
        // Another choice is shown at once, and remembered for the next start.
        const int other = 1 - screen.addressSelector()->currentIndex();
        screen.addressSelector()->setCurrentIndex(other);
        Q_EMIT screen.addressSelector()->activated(other);
        QCOMPARE(address->text(), screen.addressSelector()->itemText(other));
        QCOMPARE(Settings::string("preferredPairingAddress"), std::optional(address->text()));
    }
}

// A first phone and then others, as the user meets them: each waits on the bar until the user
// answers, its name apart from what the desktop knows of it, several at once to choose from,
// and a click within a second of what the bar shows changing does nothing. Switch brings
// fresh screens with the user's files. (How every end of a request is decided is tst_pairing's.)
void TestShell::pairing()
{
    // A fresh install: nobody trusted, and the phones switched to do not answer pings.
    TrustedPhone::forget();
    makeApp({ 60s, { 10min, 3s, 3s, 10min } }, false);
    MobileDeviceListener listener(m_app->phone, 0);
    QVERIFY(listener.start());
    const auto send
        = [&listener](const QString& name, const QString& ip, const QString& email, const QString& url) {
              const QJsonObject message { { u"ip"_qs, ip }, { u"mobileDeviceName"_qs, name },
                  { u"email"_qs, email }, { u"baseURL"_qs, url } };
              return LoopbackClient::exchange(listener.port(),
                  LoopbackClient::request("POST", "/myInformation", QJsonDocument(message).toJson()),
                  ip.toLatin1().constData());
          };
    AppWindow window(m_app->services);
    window.showPairing();
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCOMPARE(window.windowTitle(), title());
    auto* pairingScreen = qobject_cast<QRCodeViewController*>(window.content());
    QVERIFY(pairingScreen);
    QVERIFY(!part<QLabel>(pairingScreen, "contactLabel")->isVisible()); // nothing was lost: a first pairing

    // Even the very first phone waits for the user, on the pairing screen.
    QCOMPARE(send(u"Ann's phone"_qs, u"127.0.0.1"_qs, u"ann@example.com"_qs, m_sim->baseUrl()), 200);
    auto* firstBar = part<PairingRequestBar>(pairingScreen, "PairingRequestBar");
    QTRY_VERIFY(firstBar->isVisible());
    QElapsedTimer shown;
    shown.start();
    QPointer<QPushButton> pair = part<QPushButton>(firstBar, "pairingAccept");
    QCOMPARE(pair->text(), u"Pair"_qs);
    // Clicked until it takes: not in the bar's first second, at once after it.
    const auto pending = [this] { return m_app->phone.pending().has_value(); };
    QTRY_VERIFY_WITH_TIMEOUT(
        (pair && pending() ? QTest::mouseClick(pair, Qt::LeftButton) : void(), !pending()), 3000);
    QVERIFY(shown.elapsed() >= PairingRequestBar::settleMilliseconds);
    QTRY_VERIFY_WITH_TIMEOUT(
        qobject_cast<MainViewController*>(window.content()), 900); // at once, not at a poll
    QTRY_COMPARE(window.windowTitle(), title(u"Ann's phone"_qs, true));
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    const QPointer<PairingRequestBar> bar = part<PairingRequestBar>(main, "PairingRequestBar");
    QVERIFY(!bar->isVisible());
    // A file the user listed: theirs, not the phone's.
    const QString listed = m_home.filePath(u"listed.txt"_qs);
    TestFiles::write(listed, {});
    main->encryptScreen()->addFiles({ listed });
    QCOMPARE(main->intakeFiles(), QStringList { listed });

    QWidget* focused = QApplication::focusWidget();
    // A name that reads like the paired phone's facts, and a group service on another host
    // (loopback too: tests reach no other address).
    const QString forged = u"Ann's phone (127.0.0.1, ann@example.com)"_qs;
    QCOMPARE(send(forged, u"127.0.0.99"_qs, u"eve@example.com"_qs, u"http://127.0.0.97:8080/"_qs), 200);
    QTRY_VERIFY(bar->isVisible());
    const auto text = [&](const char* name) { return part<QLabel>(bar, name)->text(); };
    QCOMPARE(part<QLabel>(bar, "pairingRequestName")->textFormat(), Qt::PlainText);
    QCOMPARE(text("pairingRequestMessage"), u"A device asks to pair with this computer."_qs);
    QCOMPARE(text("pairingRequestName"), u"Name it gives itself: “" + forged + u"”");
    QCOMPARE(text("pairingRequestFacts"),
        u"Sent from 127.0.0.99 · E-mail: eve@example.com · Group service at 127.0.0.97"_qs);
    QVERIFY(!part<QLabel>(bar, "pairingRequestMarks")->isVisible());
    QCOMPARE(QApplication::focusWidget(), focused); // a keystroke meant elsewhere cannot answer it
    QPointer<QPushButton> accept = part<QPushButton>(bar, "pairingAccept");
    QCOMPARE(accept->accessibleName(), QStringLiteral("Switch"));
    QCOMPARE(part<QPushButton>(bar, "pairingIgnore")->accessibleName(), QStringLiteral("Ignore"));
    QVERIFY(accept->focusPolicy() & Qt::TabFocus);
    // The paired phone's name and e-mail from another address, while it answers at its own.
    QCOMPARE(
        send(u"Ann's phone"_qs, u"127.0.0.98"_qs, u"ann@example.com"_qs, u"http://127.0.0.98:8080/"_qs), 200);
    QTRY_COMPARE(text("pairingRequestMessage"),
        u"2 devices ask to pair with this computer at once. Only one can be your phone: choose it."_qs);
    auto* choice = part<QComboBox>(bar, "pairingRequestChoice");
    QCOMPARE(choice->itemText(1), u"“Ann's phone” · 127.0.0.98 · ann@example.com"_qs);
    QCOMPARE(text("pairingRequestFacts").left(21), u"Sent from 127.0.0.99 "_qs); // the one shown stays
    choice->setCurrentIndex(1);
    Q_EMIT choice->activated(1);
    QCOMPARE(text("pairingRequestMarks"),
        u"It carries the e-mail of your paired phone Ann's phone, which answers at 127.0.0.1; this request "
        u"comes "
        u"from 127.0.0.98.\nYour paired phone has the same name."_qs);
    choice->setCurrentIndex(0);
    Q_EMIT choice->activated(0);
    shown.start();

    // Switch, from the keyboard once the bar settled, opens fresh screens: the old phone's
    // people, groups and group ids mean nothing to the new one.
    accept->setFocus();
    const auto switched = [this] { return m_app->phone.trustedPhone()->address == u"127.0.0.99"_qs; };
    QTRY_VERIFY_WITH_TIMEOUT(
        (accept && !switched() ? QTest::keyClick(accept, Qt::Key_Space) : void(), switched()), 3000);
    QVERIFY(shown.elapsed() >= PairingRequestBar::settleMilliseconds);
    QTRY_VERIFY_WITH_TIMEOUT(!main, 5000);
    auto* now = qobject_cast<MainViewController*>(window.content());
    QVERIFY(now);
    QTRY_COMPARE(window.windowTitle(), title(forged, true));
    QTRY_COMPARE(now->intakeFiles(), QStringList { listed }); // fresh screens, the same files
    QCOMPARE(part<QLabel>(now->aboutScreen(), "pairedPhone")->text(),
        u"Paired with " + forged + u" (127.0.0.99, eve@example.com)");
}

// Forget this phone, asked first: nothing trusted any more, so no looking for it, and its
// screens go. (A blip or an error status losing nothing is the watchdog's rule, tst_pairing.)
void TestShell::forgettingThePhone()
{
    AppWindow window(m_app->services);
    window.showMain();
    window.show();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    FakeDialogs dialogs;
    AboutViewController* about = main->aboutScreen();
    main->selectAbout();
    QTRY_VERIFY(about->isVisible());
    QCOMPARE(part<QLabel>(about, "pairedPhone")->text(),
        QStringLiteral("Paired with Ann's phone (127.0.0.1, alex.morgan@example.com)"));
    QCOMPARE(part<QPushButton>(about, "forgetButton")->accessibleName(), QStringLiteral("Forget this phone"));
    dialogs.answers.enqueue(1); // Cancel: nothing happens
    QTest::mouseClick(part<QPushButton>(about, "forgetButton"), Qt::LeftButton);
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, u"Forget Ann's phone?"_qs);
    QVERIFY(m_app->phone.trustedPhone());
    QCOMPARE(window.content(), main.data());
    dialogs.answers.enqueue(0);
    QTest::mouseClick(part<QPushButton>(about, "forgetButton"), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
    QVERIFY(!Session::instance().isPhoneConnected());
    QTRY_COMPARE(window.windowTitle(), title());
    QVERIFY(!part<QLabel>(window.content(), "contactLabel")->isVisible());
    QTRY_VERIFY(!main);
    // The stored session stays for the next pairing.
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("alex.morgan@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), m_sim->baseUrl());
}

// A Wi-Fi blip, in production timings: the lost-contact screen within 3 to 6 s of silence, and
// when the phone answers again the same window comes back, as the user left it.
void TestShell::lostAndFoundKeepsTheWindowAsItWas()
{
    makeApp({});
    AppWindow window(m_app->services);
    window.showMain();
    window.show();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    EncryptViewController* encrypt = main->encryptScreen();
    DecryptViewController* decrypt = main->decryptScreen();
    RecipientsPanel* panel = encrypt->recipients();
    QTRY_VERIFY_WITH_TIMEOUT(panel->model()->rowCount() >= 3, 5000);
    // The user's work: files in both lists, one marked, a recipient chosen, a search typed, the
    // Decrypt tab shown.
    encrypt->addFiles({ file(u"report.pdf"_qs), file(u"notes.txt"_qs) });
    encrypt->intakeList()->flip(0);
    decrypt->addFiles({ file(u"letter.txt.vx"_qs) });
    const int ben = PairedPhone::userRow(panel->model(), u"ben.ortiz@example.com"_qs);
    QVERIFY(ben >= 0);
    panel->model()->clickRow(ben);
    const QStringList chosen = panel->store()->selectedRecipientEmails();
    QCOMPARE(chosen.size(), 1);
    panel->widgets().searchTextField->setText(chosen.first().left(3));
    main->selectDecrypt();

    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    QElapsedTimer silence;
    silence.start();
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 8000);
    const qint64 lostAfter = silence.elapsed();
    qInfo("silence to the lost-contact screen: %lld ms", lostAfter);
    QVERIFY2(lostAfter >= 3000 && lostAfter <= 6500, qPrintable(QString::number(lostAfter)));
    QVERIFY(!Session::instance().isPhoneConnected());
    QTRY_COMPARE(window.windowTitle(), title());
    // The user is told why; the phone's screens, its trust and the stored session wait for it.
    auto* contact = part<QLabel>(window.content(), "contactLabel");
    QVERIFY2(contact->isVisible() && contact->text().startsWith(u"Lost contact with Ann's phone at "),
        qPrintable(contact->text()));
    QCOMPARE(window.mainScreen(), main.data());
    QVERIFY(m_app->phone.trustedPhone());
    QCOMPARE(Settings::string(Settings::baseUrlKey), m_sim->baseUrl());

    QVERIFY(m_sim->clearFaults());
    QElapsedTimer back;
    back.start();
    QTRY_VERIFY_WITH_TIMEOUT(window.content() == main.data() && main, 8000);
    qInfo("phone answering again to the main window: %lld ms", back.elapsed());
    QTRY_COMPARE(window.windowTitle(), title(u"Ann's phone"_qs, true));
    QCOMPARE(main->currentScreen(), decrypt);
    QCOMPARE(encrypt->intakeList()->files().size(), 2);
    QVERIFY(encrypt->intakeList()->files().at(0)->isChecked);
    QVERIFY(!encrypt->intakeList()->files().at(1)->isChecked);
    QCOMPARE(decrypt->intakeList()->files().size(), 1);
    QCOMPARE(panel->store()->selectedRecipientEmails(), chosen);
    QCOMPARE(panel->widgets().searchTextField->text(), chosen.first().left(3));
}

void TestShell::phoneLeavesWhileADialogIsOpen_data()
{
    QTest::addColumn<QString>("dialog");
    for (const char* dialog : { "create group", "file chooser", "operation failure",
             "an operation whose phone is lost, as the fade began" })
        QTest::newRow(dialog) << QString::fromLatin1(dialog);
}

void TestShell::phoneLeavesWhileADialogIsOpen()
{
    QFETCH(QString, dialog);
    // The last row's operation fails with its dialog after the phone left, in a shown window,
    // so the swap fades and the fade ends inside the dialog's loop. The others are not shown:
    // without the fade a swap happens at once, so one that came too early shows.
    const bool late = dialog.endsWith(u"fade began");
    AppWindow window(m_app->services);
    if (late)
        window.show();
    window.showMain();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    QSignalSpy lost(&Session::instance(), &Session::phoneConnectedChanged);
    EncryptViewController* encrypt = main->encryptScreen();
    DecryptViewController* decrypt = main->decryptScreen();
    RecipientsPanel* panel = encrypt->recipients();
    QTRY_VERIFY_WITH_TIMEOUT(panel->store()->groups().size() >= 2, 5000);

    FakeDialogs dialogs;
    bool checkedWhileOpen = false;
    // Inside the dialog's nested event loop: the phone stops answering, the watchdog notices,
    // and the window must not pull the screen away from under the open dialog.
    dialogs.whileOpen = [&] {
        if (late) {
            // The ended operation's overlay stays on its screen behind the dialog, and stops counting.
            QVERIFY(decrypt->overlay());
            const QString detail = decrypt->overlay()->detailLabel()->text();
            QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
            QVERIFY(!decrypt->overlay()->isVisible()); // nothing of it over the pairing screen
            QElapsedTimer open;
            open.start();
            QTRY_VERIFY(open.elapsed() > 1500);
            QCOMPARE(decrypt->overlay()->detailLabel()->text(), detail);
        } else {
            QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
            QVERIFY(lost.wait(5000));
            QVERIFY(window.isPairingPending());
            QCOMPARE(window.content(), main.data());
        }
        // Deferred deletions run inside a dialog's loop, as they would in a real one.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(main); // its code is on this dialog's stack
        checkedWhileOpen = true;
    };

    decrypt->addFiles({ file(u"notes.txt.vx"_qs) });
    decrypt->intakeList()->flip(0);
    dialogs.filesToChoose = QStringList { m_home.filePath(u"notes.txt"_qs) };
    if (dialog == u"create group") {
        dialogs.answers.enqueue(u"Climbers"_qs);
        panel->createGroupButtonClicked();
    } else if (dialog == u"file chooser") {
        encrypt->chooseFiles();
    } else if (dialog == u"operation failure") {
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"status"_qs, 500 } }));
        decrypt->uploadForDecryption();
    } else {
        // The phone goes silent while it works on the operation.
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"noAnswer"_qs, true } }));
        decrypt->uploadForDecryption();
        QTRY_VERIFY_WITH_TIMEOUT(
            decrypt->overlay() && decrypt->overlay()->detailLabel()->text().startsWith(u"Waiting"), 5000);
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    }
    // Back to pairing once the dialog (and any that followed it) closed.
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 10000);
    QTRY_VERIFY(checkedWhileOpen);
    QVERIFY(!window.isPairingPending());
    // Put aside for the phone, not deleted: it comes back as it was.
    QVERIFY(main);
    QVERIFY(!main->isVisible());
    QCOMPARE(window.mainScreen(), main.data());
    QVERIFY(!dialogs.shown.isEmpty() || dialog.startsWith(u"file chooser"));
    if (late) {
        // The operation's failure dialog says why (its texts are the run's); the mark stays.
        QCOMPARE(dialogs.shown.at(0).title, u"Decryption failed"_qs);
        QVERIFY(dialogs.shown.at(0).message.startsWith(u"Contact with the phone was lost"));
        QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Critical);
        QTRY_VERIFY(!decrypt->runningOperation());
        QVERIFY(decrypt->intakeList()->files().at(0)->isChecked);
    }
}

void TestShell::openFiles_data()
{
    QTest::addColumn<QStringList>("given"); // names in the test folder
    QTest::addColumn<bool>("beforePairing");
    QTest::addColumn<QStringList>("encrypt");
    QTest::addColumn<QStringList>("decrypt");
    QTest::addColumn<QString>("shown");
    const auto names
        = [](const char* line) { return QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts); };
    QTest::newRow("encrypted first") << names("a.vx b.txt") << false << names("b.txt") << names("a.vx")
                                     << u"DecryptViewController"_qs;
    QTest::newRow("plain first") << names("b.txt a.vx c.vx") << false << names("b.txt") << names("a.vx c.vx")
                                 << u"EncryptViewController"_qs;
    QTest::newRow("while the start looks for the phone, they wait")
        << names("a.vx b.txt") << true << names("b.txt") << names("a.vx") << u"DecryptViewController"_qs;
    // Looked at on a worker thread: the files are listed, and said to be, once they are in.
    QStringList many;
    for (int i = 0; i <= IntakeList::inlineLimit; ++i)
        many.append(u"f%1.txt"_qs.arg(i, 3, 10, QChar(u'0')));
    QTest::newRow("a large batch") << many + names("a.vx") << false << many << names("a.vx")
                                   << u"EncryptViewController"_qs;
}

// Files given on the command line or by a later start: each to the screen its extension fits,
// through the list's own admission, and that screen shown; before the phone is there they wait.
void TestShell::openFiles()
{
    QFETCH(QStringList, given);
    QFETCH(bool, beforePairing);
    QFETCH(QStringList, encrypt);
    QFETCH(QStringList, decrypt);
    QTemporaryDir folder;
    QStringList paths;
    for (const QString& name : given) {
        TestFiles::write(folder.filePath(name), "x");
        paths.append(folder.filePath(name));
    }
    QTest::ignoreMessage(QtInfoMsg,
        qPrintable(u"handed-over files listed: Encrypt: %1 | Decrypt: %2"_qs.arg(
            encrypt.join(u", "), decrypt.join(u", "))));
    if (beforePairing) {
        // A start that finds the trusted phone by itself (no scan, no pairing message); the
        // phone is slow to answer at first.
        makeApp({ 60s, { 100ms, 300ms, 600ms, 200ms } }, false);
        QVERIFY(m_sim->clearRequests());
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
        m_app->phone.start();
    }
    AppWindow window(m_app->services);
    if (beforePairing) {
        window.showPairing();
        window.show();
        QCOMPARE(part<QLabel>(window.content(), "contactLabel")->text(),
            u"Looking for Ann's phone on the network. Or scan the code with another phone."_qs);
        QCOMPARE(part<QLabel>(window.content(), "versionLabel")->text(), u"Version 1.0.0"_qs);
        window.openFiles(paths);
        // Still on pairing, the files already wait in their intake lists.
        QVERIFY(showsPairing(window));
        QVERIFY(window.mainScreen());
        QCOMPARE(window.mainScreen()->intakeFiles().size(), encrypt.size() + decrypt.size());
        QVERIFY(m_sim->clearFaults());
    } else {
        window.showMain();
        window.show();
    }
    MainViewController* main = nullptr;
    QTRY_VERIFY_WITH_TIMEOUT(main = qobject_cast<MainViewController*>(window.content()), 8000);
    if (!beforePairing)
        window.openFiles(paths);
    QTRY_COMPARE(TestFiles::fileNames(main->encryptScreen()->filesToEncrypt()), encrypt);
    QTRY_COMPARE(TestFiles::fileNames(main->decryptScreen()->filesToDecrypt()), decrypt);
    QTEST(main->currentScreen()->objectName(), "shown");
    // The user handed them over to be worked on: they arrive marked.
    QTRY_COMPARE(main->encryptScreen()->intakeList()->markedCount()
            + main->decryptScreen()->intakeList()->markedCount(),
        int(encrypt.size() + decrypt.size()));
    if (beforePairing) {
        // The screens made for the files are the phone's: its people arrive now that it does.
        QTRY_COMPARE(window.windowTitle(), title(u"Ann's phone"_qs, true));
        QTRY_VERIFY_WITH_TIMEOUT(main->encryptScreen()->recipients()->model()->rowCount() > 0, 5000);
        for (const auto& r : m_sim->requests())
            QVERIFY(r[u"path"].toString() != u"/myInformation"_qs);
    }
}

// A later start hands over a folder and a missing file: the refusal dialog is open while the
// connection that brought them closes and is deleted, and answering it leaves the window running.
void TestShell::handOverRefusedWhileItsSocketCloses()
{
    // Freed memory is scribbled over, so that Qt's socket code running on in a connection
    // deleted under it crashes here as it does in real use (the sanitizer does not see into Qt).
    mallopt(M_PERTURB, 0xa5);
    QTemporaryDir runtime; // private, as the user's runtime folder is
    SingleInstance first(runtime.path());
    QVERIFY(first.claim());
    QVERIFY(first.listen());
    FakeDialogs dialogs;
    AppWindow window(m_app->services);
    QVERIFY(showMain(window));
    window.takeHandOvers(first);
    // A later start that connects, is taken in, and only then sends its message, so the first
    // reads it in the socket's read handler.
    QLocalSocket second;
    second.connectToServer(runtime.filePath(u"varnex-desktop.socket"_qs));
    QVERIFY(second.waitForConnected(5000));
    QPointer<QLocalSocket> taken;
    QTRY_VERIFY(taken = first.findChild<QLocalSocket*>());
    QVERIFY(QDir(m_home.path()).mkpath(u"small"_qs));
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << u"open"_qs << QStringList { m_home.filePath(u"small"_qs), m_home.filePath(u"missing.txt"_qs) };
    QDataStream(&second) << quint32(message.size()); // the length first
    second.write(message);
    // The later start has its answer and goes; the connection closes while the dialog is open,
    // and is deleted in its loop, as in a real dialog's (given a second for it).
    dialogs.whileOpen = [&] {
        QTRY_COMPARE(second.state(), QLocalSocket::UnconnectedState);
        (void)QTest::qWaitFor([&] { return !taken; }, 1000); // may have gone before the dialog opened
    };
    QTRY_COMPARE_WITH_TIMEOUT(dialogs.shown.size(), 1, 10000);
    QVERIFY(dialogs.shown.at(0).message.endsWith(u"small: a folder\nmissing.txt: does not exist"_qs));
    QVERIFY(window.mainScreen()->intakeFiles().isEmpty());
    QVERIFY(window.isVisible());
}

// Quitting while the phone works on an operation asks first; with nothing running it does not.
void TestShell::quittingWhileAnOperationRunsAsks()
{
    FakeDialogs dialogs;
    AppWindow window(m_app->services);
    new QuitGuard(&window);
    MainViewController* main = showMain(window);
    QVERIFY(main);
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    QTRY_VERIFY(!window.isVisible());
    QVERIFY(dialogs.shown.isEmpty());

    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    // One no screen shows, as a command's: it counts as a screen's does.
    const std::unique_ptr<OperationRun> run(OperationRun::decrypt(
        m_app->session(), *WorkingFolders::decryptedFilesFolder(), { { file(u"c.vx"_qs), true } }));
    run->start();

    // The user keeps the operation: the window stays.
    dialogs.answers.enqueue(0);
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    QTRY_COMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, u"An operation is still running"_qs);
    QCOMPARE(dialogs.shown.at(0).options, (QStringList { u"Keep running"_qs, u"Quit"_qs }));
    QVERIFY(window.isVisible() && run->isRunning());
    // Closing the window asks the same; Quit closes it.
    dialogs.answers.enqueue(1);
    QVERIFY(window.close());
    QCOMPARE(dialogs.shown.size(), 2);
    QVERIFY(!window.isVisible());
}

QTEST_MAIN(TestShell)
#include "tst_shell.moc"
