#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/PhoneSimProcess.h"
#include "files/IntakeList.h"
#include "recipients/AssociationsStore.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppDelegate.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"

#include <QFile>
#include <QLockFile>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;

// What happens to the program when the phone leaves while a dialog is open, and when it is
// started twice.
class TestShellLifetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void phoneLeavesWhileADialogIsOpen_data();
    void phoneLeavesWhileADialogIsOpen();
    void dialogOpenedDuringTheFadeKeepsItsScreen();
    void oneInstanceAtATime();

private:
    QTemporaryDir m_home;
    std::unique_ptr<PhoneSimProcess> m_sim;
};

void TestShellLifetime::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

// Paired with the simulator, which answers pings until a test makes it stop.
void TestShellLifetime::init()
{
    m_sim->clearFaults();
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, u"alex.morgan@example.com"_qs);
    Session::instance().resetForTesting();
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneIPAddress(QStringLiteral("127.0.0.1"));
    Session::instance().setPhoneConnected(true);
    MainViewController::setWatchdogTimingForTesting(200ms, 300ms);
}

void TestShellLifetime::phoneLeavesWhileADialogIsOpen_data()
{
    QTest::addColumn<QString>("dialog");
    for (const char* dialog :
        { "create group", "file chooser", "delete group", "remove member", "operation failure" })
        QTest::newRow(dialog) << QString::fromLatin1(dialog);
}

void TestShellLifetime::phoneLeavesWhileADialogIsOpen()
{
    QFETCH(QString, dialog);
    PhoneSimProcess& sim = *m_sim;

    // Not shown: without the fade a swap happens at once, so one that came too early shows.
    AppWindow window;
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
        QVERIFY(sim.setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
        QVERIFY(lost.wait(5000));
        // Deferred deletions run inside a dialog's loop, as they would in a real one.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(main);
        QVERIFY(window.isPairingPending());
        QCOMPARE(window.content(), main.data());
        checkedWhileOpen = true;
    };

    const QString file = m_home.filePath(u"notes.txt.vx"_qs);
    QFile(file).open(QIODevice::WriteOnly);
    if (dialog == u"create group") {
        dialogs.answers.enqueue(u"Climbers"_qs);
        panel->createGroupButtonClicked();
    } else if (dialog == u"file chooser") {
        dialogs.filesToChoose = QStringList { m_home.filePath(u"notes.txt"_qs) };
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
    } else {
        QVERIFY(sim.setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"status"_qs, 500 } }));
        DecryptViewController* decrypt = main->vc2;
        decrypt->addFiles({ file });
        decrypt->intakeList()->flip(0);
        decrypt->uploadForDecryption();
    }
    // Back to pairing once the dialog (and any that followed it) closed.
    QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<QRCodeViewController*>(window.content()) != nullptr, 10000);
    QVERIFY(checkedWhileOpen);
    QVERIFY(!window.isPairingPending());
    QTRY_VERIFY(!main);
    QVERIFY(!dialogs.shown.isEmpty() || dialog == u"file chooser");
}

void TestShellLifetime::dialogOpenedDuringTheFadeKeepsItsScreen()
{
    PhoneSimProcess& sim = *m_sim;

    // Shown, so the swap fades; a dialog opens after the swap began (an operation that fails
    // as the phone leaves does that), and the fade ends inside the dialog's loop.
    AppWindow window;
    window.show();
    window.showMain();
    QPointer<MainViewController> main = qobject_cast<MainViewController*>(window.content());
    QVERIFY(main);
    FakeDialogs dialogs;
    bool checkedWhileOpen = false;
    dialogs.whileOpen = [&] {
        QTRY_VERIFY_WITH_TIMEOUT(qobject_cast<QRCodeViewController*>(window.content()) != nullptr, 5000);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(main); // its code is on this dialog's stack
        QVERIFY(!main->isVisible());
        checkedWhileOpen = true;
    };
    connect(
        main.data(), &MainViewController::connectionLost, this, [&] { main->vc1->chooseFiles(); },
        Qt::QueuedConnection);
    QVERIFY(sim.setFault({ { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } }));
    QTRY_VERIFY_WITH_TIMEOUT(checkedWhileOpen, 10000);
    QTRY_VERIFY(!main);
    sim.clearFaults();
}

void TestShellLifetime::oneInstanceAtATime()
{
    FakeDialogs dialogs;
    {
        AppDelegate first;
        QVERIFY(first.claimSingleInstance());
        AppDelegate second;
        QVERIFY(!second.claimSingleInstance());
        QCOMPARE(dialogs.shown.size(), 1);
        QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Varnex Desktop is already running"));
    }
    // The first one ended: the next start runs.
    AppDelegate next;
    QVERIFY(next.claimSingleInstance());
    QCOMPARE(dialogs.shown.size(), 1);
}

QTEST_MAIN(TestShellLifetime)
#include "tst_shell_lifetime.moc"
