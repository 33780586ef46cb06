#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "desktop/Autostart.h"
#include "desktop/SingleInstance.h"
#include "pairing/PhoneConnection.h"
#include "screens/AboutViewController.h"
#include "shell/QuitGuard.h"
#include "tray/TrayIcon.h"

#include <QCheckBox>

#include <QDataStream>
#include <QFile>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <future>

#include <sys/stat.h>

// The program among the user's other programs: one instance, whose first start takes what later
// ones hand over (fed here by a client that sends what it likes: whole messages, messages in
// pieces, and messages no later start would send); start at login; the tray.
class TestDesktop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void onlyTheFirstHoldsTheLock();
    void messages_data();
    void messages();
    void aListOverTheMessageCapArrivesWhole();
    void theFolderIsTheUsersOwn_data();
    void theFolderIsTheUsersOwn();
    void startAtLogin();
    void closingKeepsTheProgramInTheTray();
};

namespace {

QByteArray payload(const QString& word, const QStringList& values)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << word << values;
    return bytes;
}

QByteArray framed(const QByteArray& body, quint32 length)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << length;
    return bytes + body;
}

QByteArray framed(const QByteArray& body)
{
    return framed(body, quint32(body.size()));
}

} // namespace

void TestDesktop::onlyTheFirstHoldsTheLock()
{
    QTemporaryDir folder;
    const QString place = folder.filePath(QStringLiteral("instance"));
    {
        SingleInstance first(place);
        QVERIFY(first.claim());
        // Made for the user alone.
        QCOMPARE(QFile::permissions(place)
                & ~(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadUser
                    | QFile::WriteUser | QFile::ExeUser),
            QFile::Permissions());
        SingleInstance second(place);
        QVERIFY(!second.claim());
        // Nobody listens yet: the later start gives up in time rather than hanging.
        QCOMPARE(second.handOver({ QStringLiteral("/a") }, std::chrono::milliseconds(300)),
            SingleInstance::HandOver::NoAnswer);
    }
    SingleInstance next(place);
    QVERIFY(next.claim());
}

void TestDesktop::messages_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<int>("pieceSize"); // 0: all at once
    QTest::addColumn<bool>("taken");
    QTest::addColumn<QStringList>("paths");

    const QStringList two { QStringLiteral("/home/ann/a.vx"), QStringLiteral("/home/ann/b c.txt") };
    const QByteArray open = payload(QStringLiteral("open"), two);
    QTest::newRow("whole") << framed(open) << 0 << true << two;
    QTest::newRow("a byte at a time") << framed(open) << 1 << true << two;
    QTest::newRow("nothing to open: only come forward")
        << framed(payload(QStringLiteral("open"), {})) << 0 << true << QStringList();
    QTest::newRow("relative paths are left out")
        << framed(payload(QStringLiteral("open"), { QStringLiteral("a.vx"), QStringLiteral("/b.txt") })) << 0
        << true << QStringList { QStringLiteral("/b.txt") };
    QTest::newRow("unknown word") << framed(payload(QStringLiteral("lock"), two)) << 0 << false
                                  << QStringList();
    QTest::newRow("longer than allowed")
        << framed(open, SingleInstance::maxMessageBytes + 1) << 0 << false << QStringList();
    QTest::newRow("not a stream") << framed(QByteArray("\xff\xff\xff\xf0garbage", 11)) << 0 << false
                                  << QStringList();
}

void TestDesktop::messages()
{
    QFETCH(QByteArray, sent);
    QFETCH(int, pieceSize);
    QFETCH(bool, taken);
    QFETCH(QStringList, paths);

    QTemporaryDir folder;
    SingleInstance first(folder.path());
    QVERIFY(first.claim());
    QVERIFY(first.listen());
    QSignalSpy handedOver(&first, &SingleInstance::filesHandedOver);

    QLocalSocket client;
    client.connectToServer(first.socketPath());
    QVERIFY(client.waitForConnected(2000));
    QSignalSpy closed(&client, &QLocalSocket::disconnected);
    const int step = pieceSize > 0 ? pieceSize : int(sent.size());
    for (qsizetype at = 0; at < sent.size(); at += step) {
        client.write(sent.mid(at, step));
        client.flush();
        QCoreApplication::processEvents();
    }
    // Either way the first ends the connection: after its answer, or at once.
    QVERIFY(closed.wait(5000));
    QCOMPARE(handedOver.size(), taken ? 1 : 0);
    if (taken) {
        QCOMPARE(handedOver.at(0).at(0).toStringList(), paths);
        QVERIFY(client.readAll().contains(payload(QStringLiteral("done"), {})));
    }
}

void TestDesktop::aListOverTheMessageCapArrivesWhole()
{
    QTemporaryDir folder;
    SingleInstance first(folder.path());
    QVERIFY(first.claim());
    QVERIFY(first.listen());
    QSignalSpy handedOver(&first, &SingleInstance::filesHandedOver);
    QStringList paths;
    for (int i = 0; i < 40000; ++i)
        paths.append(u"/home/ann/Pictures/Holidays 2025/photo taken by the sea %1.jpg"_qs.arg(i));
    const SingleInstance second(folder.path());
    // The later start blocks while it waits for the answer: on a thread of its own here.
    auto answer
        = std::async(std::launch::async, [&] { return second.handOver(paths, std::chrono::seconds(20)); });
    QVERIFY(handedOver.wait(20000));
    QCOMPARE(answer.get(), SingleInstance::HandOver::Delivered);
    QCOMPARE(handedOver.at(0).at(0).toStringList(), paths);
}

void TestDesktop::theFolderIsTheUsersOwn_data()
{
    QTest::addColumn<QString>("runtime"); // the runtime folder's mode (octal); empty: not set
    QTest::addColumn<QString>("expected"); // under the home
    QTest::newRow("private runtime folder") << u"700"_qs << u"runtime"_qs;
    QTest::newRow("runtime folder others can write") << u"777"_qs << u"cache/varnex-desktop"_qs;
    QTest::newRow("no runtime folder") << QString() << u"cache/varnex-desktop"_qs;
}

void TestDesktop::theFolderIsTheUsersOwn()
{
    QFETCH(QString, runtime);
    QTemporaryDir home;
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home.filePath(u"cache"_qs)));
    qunsetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty()) {
        const QByteArray folder = QFile::encodeName(home.filePath(u"runtime"_qs));
        QVERIFY(::mkdir(folder.constData(), mode_t(runtime.toUInt(nullptr, 8))) == 0);
        QVERIFY(::chmod(folder.constData(), mode_t(runtime.toUInt(nullptr, 8))) == 0); // past the umask
        qputenv("XDG_RUNTIME_DIR", folder);
    }
    const QString folder = SingleInstance::defaultFolder();
    QTEST(folder.mid(home.path().size() + 1), "expected");
    QCOMPARE(QFileInfo(folder).permissions()
            & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
        QFile::Permissions());
}

// "Start at login" on About writes the autostart entry for this executable, started hidden
// (its path quoted as desktop entries want), and takes it away again.
void TestDesktop::startAtLogin()
{
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(config.path()));
    QVERIFY(Autostart::entryText(u"/opt/My Apps/varnex-desktop"_qs)
                .contains(u"\nExec=\"/opt/My Apps/varnex-desktop\" --hidden\n"_qs));
    Session session;
    PhoneConnection phone(session, [](auto, QObject*, auto) {});
    AboutViewController about(phone, nullptr);
    auto* box = about.findChild<QCheckBox*>(u"startAtLogin"_qs);
    QVERIFY(!box->isChecked());
    box->click();
    QFile entry(config.filePath(u"autostart/org.varnex.Desktop.desktop"_qs));
    QVERIFY(entry.open(QIODevice::ReadOnly));
    const QByteArray exec
        = "\nExec=" + QFile::encodeName(QCoreApplication::applicationFilePath()) + " --hidden\n";
    QVERIFY(entry.readAll().contains(exec));
    box->click();
    QVERIFY(!entry.exists());
}

// With a tray icon, closing the window hides it and the program goes on (the tray says so the
// first time); Ctrl+Q quits, asking first.
void TestDesktop::closingKeepsTheProgramInTheTray()
{
    Session session;
    PhoneConnection phone(session, [](auto, QObject*, auto) {});
    QWidget window;
    auto* guard = new QuitGuard(&window);
    int asked = 0;
    TrayIcon tray(window, phone, [&asked] { return ++asked > 1; });
    guard->setQuit([&tray] { tray.quit(); });
    QCOMPARE(tray.stateText(), u"No phone paired"_qs);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(!window.close());
    QVERIFY(!window.isVisible());
    QVERIFY(Settings::open()->value(QString::fromLatin1(TrayIcon::closeNoticeKey)).toBool());
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    QTest::keyClick(&window, Qt::Key_Q, Qt::ControlModifier); // the user keeps it running
    QCOMPARE(asked, 1);
    QVERIFY(window.isVisible());
}

QTEST_MAIN(TestDesktop)
#include "tst_desktop.moc"
