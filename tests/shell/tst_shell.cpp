#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/Parts.h"
#include "common/PhoneSimProcess.h"
#include "common/SignalCounter.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "files/IntakeList.h"
#include "pairing/LoopbackClient.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"
#include "pairing/TrustedPhone.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/PairingRequestBar.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace std::chrono_literals;

// The window's flow with the simulator as the trusted phone: navigation, the title, the bar a
// phone's pairing message brings up, losing the phone (also while a dialog or an operation is
// open) and finding it again with the window as it was, a start that finds the phone by itself,
// forgetting it, and a second start.
class TestShell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void navigationLooks_data();
    void navigationLooks();
    void pairing();
    void leavingThePhone_data();
    void leavingThePhone();
    void lostAndFoundKeepsTheWindowAsItWas();
    void aStartFindsTheTrustedPhone();
    void anOperationWhosePhoneIsLost();
    void phoneLeavesWhileADialogIsOpen_data();
    void phoneLeavesWhileADialogIsOpen();
    void overlaysCoverTheirWindow();

private:
    // What the window is built on, anew; paired with the simulator when `paired`.
    void makeApp(PhoneConnection::Options options, bool paired = true);

    QTemporaryDir m_home;
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
    QRCodeViewController::setAddressSourceForTesting([] { return QStringList { u"10.0.0.7"_qs }; });
}

// Paired with the simulator, the trusted phone, which answers pings until a test makes it stop.
void TestShell::init()
{
    if (!m_sim || !m_sim->isRunning())
        m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    m_sim->clearFaults();
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
    QCOMPARE(part<CustomButton>(&main, "encryptTab")->title(), QStringLiteral("ENCRYPT"));
    QCOMPARE(part<CustomButton>(&main, "decryptTab")->title(), QStringLiteral("DECRYPT"));
    QCOMPARE(part<QLabel>(main.aboutScreen(), "version")->text(), QStringLiteral("Version"));
    QCOMPARE(part<QLabel>(main.aboutScreen(), "versionNum")->text(), QStringLiteral("1.0.0"));
}

// A first phone and then another, as the user meets them: each waits on the bar until the
// user answers, a newer request is only counted, and Switch brings fresh screens with the
// user's files. (How every end of a request is decided is tst_pairing's.)
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
    QCOMPARE(part<QPushButton>(firstBar, "pairingAccept")->text(), u"Pair"_qs);
    QVERIFY(showsPairing(window));
    QElapsedTimer clock;
    clock.start();
    QTest::mouseClick(part<QPushButton>(firstBar, "pairingAccept"), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<MainViewController*>(window.content()) != nullptr, 2000);
    QVERIFY(clock.elapsed() < 900); // at once, not at the next poll
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
    // Its group service on another host (loopback too: tests reach no other address).
    QCOMPARE(
        send(u"Eve's phone"_qs, u"127.0.0.99"_qs, u"eve@example.com"_qs, u"http://127.0.0.97:8080/"_qs), 200);
    QTRY_VERIFY(bar->isVisible());
    auto* message = part<QLabel>(bar, "pairingRequestMessage");
    QCOMPARE(message->textFormat(), Qt::PlainText);
    // Who asks, from where it really posted, for whom, and where its group service is.
    QCOMPARE(message->text(),
        u"Eve's phone (127.0.0.99, eve@example.com) wants to pair with this computer\n"
        u"Its group service is at 127.0.0.97"_qs);
    QCOMPARE(QApplication::focusWidget(), focused); // a keystroke meant elsewhere cannot answer it
    auto* accept = part<QPushButton>(bar, "pairingAccept");
    QCOMPARE(accept->accessibleName(), QStringLiteral("Switch"));
    QCOMPARE(part<QPushButton>(bar, "pairingIgnore")->accessibleName(), QStringLiteral("Ignore"));
    QVERIFY(accept->focusPolicy() & Qt::TabFocus);
    // A newer request never replaces the one shown: it is counted.
    const QString shownText = message->text();
    QCOMPARE(
        send(u"Zoe's phone"_qs, u"127.0.0.98"_qs, u"zoe@example.com"_qs, u"http://127.0.0.98:8080/"_qs), 200);
    QTRY_VERIFY(part<QLabel>(bar, "moreRequests")->isVisible());
    QCOMPARE(part<QLabel>(bar, "moreRequests")->text(), u"1 more request"_qs);
    QCOMPARE(message->text(), shownText);
    QCOMPARE(window.windowTitle(), title(u"Ann's phone"_qs, true)); // nothing changes until the user says so

    // Switch, from the keyboard, opens fresh screens: the old phone's people, groups and group
    // ids mean nothing to the new one.
    accept->setFocus();
    QTest::keyClick(accept, Qt::Key_Space);
    QTRY_VERIFY_WITH_TIMEOUT(!main, 5000);
    auto* now = qobject_cast<MainViewController*>(window.content());
    QVERIFY(now);
    QTRY_COMPARE(window.windowTitle(), title(u"Eve's phone"_qs, true));
    QTRY_COMPARE(now->intakeFiles(), QStringList { listed }); // fresh screens, the same files
    QCOMPARE(part<QLabel>(now->aboutScreen(), "pairedPhone")->text(),
        u"Paired with Eve's phone (127.0.0.99, eve@example.com)"_qs);
    // The next request, Zoe's, is shown now.
    QTRY_COMPARE(part<QLabel>(part<PairingRequestBar>(now, "PairingRequestBar"), "pairingRequestMessage")
                     ->text()
                     .left(12),
        u"Zoe's phone "_qs);
}

void TestShell::leavingThePhone_data()
{
    QTest::addColumn<QString>("event");
    for (const char* event :
        { "an error status is an answer", "one dropped ping", "phone is gone", "Forget this phone" })
        QTest::newRow(event) << QString::fromLatin1(event);
}

void TestShell::leavingThePhone()
{
    QFETCH(QString, event);
    AppWindow window(m_app->services);
    window.showMain();
    window.show();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    SignalCounter connection(&Session::instance(), &Session::phoneConnectedChanged);
    const auto pings = [this] {
        const QJsonArray requests = m_sim->requests();
        return std::count_if(requests.begin(), requests.end(),
            [](const QJsonValue& r) { return r[u"path"] == u"/ping"_qs && r[u"method"] == u"GET"_qs; });
    };
    FakeDialogs dialogs;
    if (event == u"Forget this phone") {
        AboutViewController* about = main->aboutScreen();
        main->selectAbout();
        QTRY_VERIFY(about->isVisible());
        QCOMPARE(part<QLabel>(about, "pairedPhone")->text(),
            QStringLiteral("Paired with Ann's phone (127.0.0.1, alex.morgan@example.com)"));
        QCOMPARE(
            part<QPushButton>(about, "forgetButton")->accessibleName(), QStringLiteral("Forget this phone"));
        dialogs.answers.enqueue(1); // Cancel: nothing happens
        QTest::mouseClick(part<QPushButton>(about, "forgetButton"), Qt::LeftButton);
        QCOMPARE(dialogs.shown.size(), 1);
        QCOMPARE(dialogs.shown.at(0).title, u"Forget Ann's phone?"_qs);
        QVERIFY(m_app->phone.trustedPhone());
        QCOMPARE(window.content(), main.data());
        dialogs.answers.enqueue(0);
        QTest::mouseClick(part<QPushButton>(about, "forgetButton"), Qt::LeftButton);
    } else if (event == u"phone is gone") {
        m_sim->stop();
    } else {
        // Any answer is an answer; one ping that gets none (a Wi-Fi blip) changes nothing.
        const bool drop = event == u"one dropped ping";
        QVERIFY(m_sim->setFault(drop
                ? QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true }, { u"times"_qs, 1 } }
                : QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 503 } }));
        QVERIFY(m_sim->clearRequests());
        QTRY_VERIFY_WITH_TIMEOUT(pings() >= 12, 10000); // over the 600 ms the loss would take
        QCOMPARE(connection.count(), 0);
        QVERIFY(Session::instance().isPhoneConnected());
        QCOMPARE(window.content(), main.data());
        return;
    }
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
    QVERIFY(!Session::instance().isPhoneConnected());
    QTRY_COMPARE(window.windowTitle(), title());
    auto* pairing = qobject_cast<QRCodeViewController*>(window.content());
    if (event == u"Forget this phone") {
        // Nothing trusted any more: no looking for it, and its screens are gone.
        QVERIFY(!m_app->phone.trustedPhone());
        QVERIFY(!TrustedPhone::load());
        QVERIFY(!part<QLabel>(pairing, "contactLabel")->isVisible());
        QTRY_VERIFY(!main);
    } else {
        // The user is told why, and the phone's screens wait for it.
        QVERIFY(part<QLabel>(pairing, "contactLabel")->isVisible());
        QVERIFY2(
            part<QLabel>(pairing, "contactLabel")->text().startsWith(u"Lost contact with Ann's phone at "),
            qPrintable(part<QLabel>(pairing, "contactLabel")->text()));
        QVERIFY(main);
        QCOMPARE(window.mainScreen(), main.data());
        QVERIFY(m_app->phone.trustedPhone());
    }
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
    const QString report = m_home.filePath(u"report.pdf"_qs);
    const QString letter = m_home.filePath(u"letter.txt.vx"_qs);
    for (const QString& path : { report, letter, m_home.filePath(u"notes.txt"_qs) }) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    encrypt->addFiles({ report, m_home.filePath(u"notes.txt"_qs) });
    encrypt->intakeList()->flip(0);
    decrypt->addFiles({ letter });
    const int zoe = [&] {
        for (int row = 0; row < panel->model()->rowCount(); ++row) {
            const auto type = panel->model()->rowType(row);
            if (type && type->user)
                return row;
        }
        return -1;
    }();
    QVERIFY(zoe >= 0);
    panel->model()->clickRow(zoe);
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
    QVERIFY(part<QLabel>(window.content(), "contactLabel")->text().startsWith(u"Lost contact"));

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

// At start, a trusted phone that answers is connected without a QR scan or a pairing message.
void TestShell::aStartFindsTheTrustedPhone()
{
    makeApp({ 60s, { 100ms, 300ms, 600ms, 200ms } }, false);
    QVERIFY(m_sim->clearRequests());
    // The phone is slow to answer at first; meanwhile a file comes from the file manager.
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    m_app->phone.start();
    QCOMPARE(Session::instance().phoneIPAddress(), u"127.0.0.1"_qs);
    AppWindow window(m_app->services);
    window.showPairing();
    window.show();
    QVERIFY(showsPairing(window));
    auto* pairing = qobject_cast<QRCodeViewController*>(window.content());
    QCOMPARE(part<QLabel>(pairing, "contactLabel")->text(),
        u"Looking for Ann's phone on the network. Or scan the code with another phone."_qs);
    const QString handed = m_home.filePath(u"handed.txt"_qs);
    {
        QFile file(handed);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    window.openFiles({ handed });
    QVERIFY(m_sim->clearFaults());
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<MainViewController*>(window.content()) != nullptr, 8000);
    QTRY_COMPARE(window.windowTitle(), title(u"Ann's phone"_qs, true));
    // The screens made for the file are the phone's: the file waited in its list, and the
    // people arrive now that the phone does.
    auto* main = qobject_cast<MainViewController*>(window.content());
    QCOMPARE(main->intakeFiles(), QStringList { handed });
    QTRY_VERIFY_WITH_TIMEOUT(main->encryptScreen()->recipients()->model()->rowCount() > 0, 5000);
    for (const auto& r : m_sim->requests())
        QVERIFY(r[u"path"].toString() != u"/myInformation"_qs);
}

// The phone goes silent while it works on an operation: the operation ends with its failure
// dialog, saying why, the overlay stops counting, and nothing is left behind.
void TestShell::anOperationWhosePhoneIsLost()
{
    AppWindow window(m_app->services);
    window.showMain();
    window.show();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    DecryptViewController* decrypt = main->decryptScreen();
    const QString file = m_home.filePath(u"lost.txt.vx"_qs);
    {
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("VXF1 not really");
    }
    decrypt->addFiles({ file });
    decrypt->intakeList()->flip(0);
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    FakeDialogs dialogs;
    QString detailWhenShown;
    bool stillWhileOpen = false;
    dialogs.whileOpen = [&] {
        ProgressOverlay* overlay = decrypt->overlay();
        QVERIFY(overlay);
        detailWhenShown = overlay->detailLabel()->text();
        QElapsedTimer open;
        open.start();
        QTRY_VERIFY(open.elapsed() > 1500); // the seconds go by behind the dialog
        stillWhileOpen = overlay->detailLabel()->text() == detailWhenShown;
    };
    decrypt->uploadForDecryption();
    QTRY_VERIFY_WITH_TIMEOUT(
        decrypt->overlay() && decrypt->overlay()->detailLabel()->text().startsWith(u"Waiting"), 5000);
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    QTRY_VERIFY_WITH_TIMEOUT(!dialogs.shown.isEmpty(), 10000);
    QCOMPARE(dialogs.shown.at(0).title, u"Decryption failed"_qs);
    QVERIFY2(dialogs.shown.at(0).message.startsWith(u"Contact with the phone was lost"),
        qPrintable(dialogs.shown.at(0).message));
    QTRY_VERIFY(!decrypt->runningOperation());
    QVERIFY(stillWhileOpen);
    // The mark stays; the result folder holds nothing new.
    QVERIFY(decrypt->intakeList()->files().at(0)->isChecked);
    QCOMPARE(QDir(*WorkingFolders::decryptedFilesFolder()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
        QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(showsPairing(window), 5000);
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
    AppWindow window(m_app->services);
    if (late)
        window.show();
    window.showMain();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    QSignalSpy lost(&Session::instance(), &Session::phoneConnectedChanged);
    EncryptViewController* encrypt = main->encryptScreen();
    RecipientsPanel* panel = encrypt->recipients();
    QTRY_VERIFY_WITH_TIMEOUT(panel->store()->groups().size() >= 2, 5000);

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
        for (const auto& g : panel->store()->groups())
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
        DecryptViewController* decrypt = main->decryptScreen();
        decrypt->addFiles({ file });
        decrypt->intakeList()->flip(0);
        decrypt->uploadForDecryption();
    } else {
        // An operation that fails as the phone leaves does this.
        connect(
            &Session::instance(), &Session::phoneConnectedChanged, encrypt,
            [encrypt](bool connected) {
                if (!connected)
                    encrypt->chooseFiles();
            },
            Qt::QueuedConnection);
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

QTEST_MAIN(TestShell)
#include "tst_shell.moc"
