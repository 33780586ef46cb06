#include "app/Session.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/Parts.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/QRCodeViewController.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;

// Files given on the command line or by a later start: each to the screen its extension fits,
// through the list's own admission, and that screen shown; before pairing they wait.
class TestOpenFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void routing_data();
    void routing();

private:
    std::unique_ptr<TestServices> m_app;
    QTemporaryDir m_home;
};

void TestOpenFiles::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(QStringLiteral("Documents")));
    // No phone answers here: the watchdog must not end the main window during a test.
    m_app = std::make_unique<TestServices>(Session::defaultPhoneServicePort,
        PhoneConnection::Options { 60s, { 1h, 3s, 3s, 1h } }, TestServices::noAnswer);
    m_app->pair(u"127.0.0.20"_qs, u"Phone"_qs, u"alex.morgan@example.com"_qs, u"http://127.0.0.20:8080/"_qs);
}

void TestOpenFiles::routing_data()
{
    QTest::addColumn<QStringList>("given"); // names in the test folder; a trailing "/" makes a folder
    QTest::addColumn<bool>("beforePairing");
    QTest::addColumn<QStringList>("encrypt");
    QTest::addColumn<QStringList>("decrypt");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<int>("dialogs");

    const auto names
        = [](const char* line) { return QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts); };
    QTest::newRow("encrypted first") << names("a.vx b.txt") << false << names("b.txt") << names("a.vx")
                                     << QStringLiteral("DecryptViewController") << 0;
    QTest::newRow("plain first") << names("b.txt a.vx c.vx") << false << names("b.txt") << names("a.vx c.vx")
                                 << QStringLiteral("EncryptViewController") << 0;
    QTest::newRow("upper-case .VX is not encrypted") << names("d.VX") << false << names("d.VX") << names("")
                                                     << QStringLiteral("EncryptViewController") << 0;
    QTest::newRow("before pairing, they wait")
        << names("a.vx b.txt") << true << names("b.txt") << names("a.vx")
        << QStringLiteral("DecryptViewController") << 0;
    QTest::newRow("a folder is refused as a drop is")
        << names("photos/ b.txt") << false << names("b.txt") << names("")
        << QStringLiteral("EncryptViewController") << 1;
    QTest::newRow("the same name twice") << names("b.txt b.txt") << true << names("b.txt") << names("")
                                         << QStringLiteral("EncryptViewController") << 1;
}

void TestOpenFiles::routing()
{
    QFETCH(QStringList, given);
    QFETCH(bool, beforePairing);
    QFETCH(QStringList, encrypt);
    QFETCH(QStringList, decrypt);
    QFETCH(QString, shown);
    QFETCH(int, dialogs);

    FakeDialogs fake;
    QTemporaryDir folder;
    QStringList paths;
    for (const QString& name : given) {
        if (name.endsWith(u'/'))
            QVERIFY(QDir(folder.path()).mkdir(name.chopped(1)));
        else
            TestFiles::write(folder.filePath(name), "x");
        paths.append(folder.filePath(name.endsWith(u'/') ? name.chopped(1) : name));
    }

    AppWindow window(m_app->services);
    if (beforePairing) {
        window.showPairing();
        window.show();
        window.openFiles(paths);
        // Still on pairing, the files already wait in their intake lists.
        QVERIFY(qobject_cast<QRCodeViewController*>(window.content()));
        QVERIFY(window.mainScreen());
        QCOMPARE(window.mainScreen()->intakeFiles().size(), encrypt.size() + decrypt.size());
    }
    window.showMain();
    window.show();
    MainViewController* main = nullptr;
    QTRY_VERIFY(main = qobject_cast<MainViewController*>(window.content()));
    if (!beforePairing)
        window.openFiles(paths);
    QTRY_COMPARE(TestFiles::fileNames(main->encryptScreen()->filesToEncrypt()), encrypt);
    QTRY_COMPARE(TestFiles::fileNames(main->decryptScreen()->filesToDecrypt()), decrypt);
    QCOMPARE(main->currentScreen()->objectName(), shown);
    QCOMPARE(fake.shown.size(), dialogs);
    // Files from outside arrive unmarked, as dropped ones do.
    QCOMPARE(main->encryptScreen()->intakeList()->markedCount()
            + main->decryptScreen()->intakeList()->markedCount(),
        0);
}

QTEST_MAIN(TestOpenFiles)
#include "tst_open_files.moc"
