#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/Parts.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileTableView.h"
#include "screens/PairedPhone.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "shell/QuitGuard.h"
#include "storage/WorkingFolders.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QAccessible>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace std::chrono_literals;

// The window's keys, as a user presses them, and quitting while the phone works.
class TestShortcuts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void keysDoWhatTheyDo();
    void quittingWhileAnOperationRunsAsks();

private:
    std::unique_ptr<TestServices> m_app;
    MainViewController* showMain(AppWindow& window);
    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PairedPhone> m_phone;
};

void TestShortcuts::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(QStringLiteral("Documents")));
    m_files = m_home.filePath(QStringLiteral("files"));
    QDir().mkpath(m_files);
    for (const char* name : { "a.txt", "b.txt", "c.vx" })
        TestFiles::write(m_files + u'/' + QString::fromLatin1(name), "x");
    m_phone = std::make_unique<PairedPhone>();
    QVERIFY(m_phone->isRunning());
    // No phone answers pings here: the watchdog must not end the main window during a test.
    m_app = std::make_unique<TestServices>(
        m_phone->port(), PhoneConnection::Options { 60s, { 1h, 3s, 3s, 1h } });
}

MainViewController* TestShortcuts::showMain(AppWindow& window)
{
    m_phone->pair();
    window.showMain();
    window.show();
    window.activateWindow();
    if (!QTest::qWaitForWindowActive(&window))
        return nullptr;
    return qobject_cast<MainViewController*>(window.content());
}

void TestShortcuts::keysDoWhatTheyDo()
{
    FakeDialogs dialogs;
    AppWindow window(m_app->services);
    MainViewController* main = showMain(window);
    QVERIFY(main);
    QCOMPARE(main->currentScreen(), static_cast<QWidget*>(main->encryptScreen()));

    QTest::keyClick(&window, Qt::Key_2, Qt::ControlModifier);
    QTRY_COMPARE(main->currentScreen(), static_cast<QWidget*>(main->decryptScreen()));
    // Ctrl+O chooses files for the screen shown: the Decrypt screen's chooser.
    dialogs.filesToChoose = { m_files + QStringLiteral("/c.vx") };
    QTest::keyClick(&window, Qt::Key_O, Qt::ControlModifier);
    QTRY_COMPARE(main->decryptScreen()->filesToDecrypt().size(), 1);
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::encryptedFilesFolder());
    QCOMPARE(main->encryptScreen()->filesToEncrypt().size(), 0);

    QTest::keyClick(&window, Qt::Key_1, Qt::ControlModifier);
    QTRY_COMPARE(main->currentScreen(), static_cast<QWidget*>(main->encryptScreen()));
    main->encryptScreen()->addFiles(
        { m_files + QStringLiteral("/a.txt"), m_files + QStringLiteral("/b.txt") });
    // Ctrl+A marks all, Delete removes the marked ones; on the Decrypt list nothing changes.
    main->encryptScreen()->widgets().intakeTable->setFocus();
    QTest::keyClick(&window, Qt::Key_A, Qt::ControlModifier);
    QTRY_COMPARE(main->encryptScreen()->intakeList()->markedCount(), 2);
    QTest::keyClick(&window, Qt::Key_Delete);
    QTRY_COMPARE(main->encryptScreen()->filesToEncrypt().size(), 0);
    QCOMPARE(main->decryptScreen()->filesToDecrypt().size(), 1);

    // Ctrl+F: the recipients' search, from any screen; there Ctrl+A is the field's own.
    QTest::keyClick(&window, Qt::Key_F1);
    QTRY_COMPARE(main->currentScreen(), static_cast<QWidget*>(main->aboutScreen()));
    QTest::keyClick(&window, Qt::Key_F, Qt::ControlModifier);
    QLineEdit* search = main->encryptScreen()->recipients()->widgets().searchTextField;
    QTRY_VERIFY(search->hasFocus());
    QCOMPARE(main->currentScreen(), static_cast<QWidget*>(main->encryptScreen()));
    main->encryptScreen()->addFiles({ m_files + QStringLiteral("/a.txt") });
    QTest::keyClicks(search, QStringLiteral("ben"));
    QTest::keyClick(search, Qt::Key_A, Qt::ControlModifier);
    QCOMPARE(search->selectedText(), QStringLiteral("ben"));
    QCOMPARE(main->encryptScreen()->intakeList()->markedCount(), 0);

    // Seen in tool tips, and heard as the buttons' key bindings.
    QCOMPARE(main->encryptScreen()->widgets().chooseFilesButton->toolTip(),
        QStringLiteral("Choose files to add, or drop them on the list (Ctrl+O)"));
    QCOMPARE(part<QWidget>(main, "decryptTabBacking")->toolTip(), QStringLiteral("DECRYPT (Ctrl+2)"));
    QCOMPARE(part<QToolButton>(main, "aboutButton")->toolTip(), QStringLiteral("About (F1)"));
    QAccessibleInterface* about
        = QAccessible::queryAccessibleInterface(part<QToolButton>(main, "aboutButton"));
    QVERIFY(about && about->actionInterface());
    QCOMPARE(about->actionInterface()->keyBindingsForAction(QAccessibleActionInterface::pressAction()),
        QStringList { QStringLiteral("F1") });
}

void TestShortcuts::quittingWhileAnOperationRunsAsks()
{
    FakeDialogs dialogs;
    AppWindow window(m_app->services);
    new QuitGuard(&window);
    MainViewController* main = showMain(window);
    QVERIFY(main);
    // Nothing runs: Ctrl+Q quits at once.
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    QTRY_VERIFY(!window.isVisible());
    QVERIFY(dialogs.shown.isEmpty());

    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    QVERIFY(m_phone->setFault({ { QStringLiteral("path"), QStringLiteral("/decryptFile/") },
        { QStringLiteral("noAnswer"), true } }));
    main->selectDecrypt();
    main->decryptScreen()->addFiles({ m_files + QStringLiteral("/c.vx") });
    main->decryptScreen()->intakeList()->flip(0);
    main->decryptScreen()->uploadForDecryption();
    QVERIFY(main->decryptScreen()->overlay());

    // The user keeps the operation: the window stays.
    dialogs.answers.enqueue(0);
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier);
    QTRY_COMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("An operation is still running"));
    QCOMPARE(dialogs.shown.at(0).options,
        (QStringList { QStringLiteral("Keep running"), QStringLiteral("Quit") }));
    QVERIFY(window.isVisible());
    QVERIFY(main->decryptScreen()->overlay());
    // Closing the window asks the same; Quit closes it.
    dialogs.answers.enqueue(1);
    QVERIFY(window.close());
    QCOMPARE(dialogs.shown.size(), 2);
    QVERIFY(!window.isVisible());
    m_phone->clearFaults();
}

QTEST_MAIN(TestShortcuts)
#include "tst_shortcuts.moc"
