#include "app/CommandLine.h"
#include "app/Translations.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>
#include <sys/stat.h>

class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void answers_data();
    void answers();
    void files_data();
    void files();
    void aSecondStartHandsItsFilesOver();
    void theLockStaysOutOfSharedFolders_data();
    void theLockStaysOutOfSharedFolders();
};

void TestCommandLine::answers_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode"); // -1: the application starts
    QTest::addColumn<QString>("output"); // ending in a line break: all of it; otherwise a part

    const QString version = QStringLiteral("Varnex Desktop 1.0.0\n");
    const auto args
        = [](const char* line) { return QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts); };
    QTest::newRow("no arguments") << args("") << -1 << QString();
    QTest::newRow("--version") << args("--version") << 0 << version;
    QTest::newRow("-v") << args("-v") << 0 << version;
    QTest::newRow("--help") << args("--help") << 0 << QStringLiteral("--version");
    QTest::newRow("-h") << args("-h") << 0 << QStringLiteral("--help");
    QTest::newRow("--help-all") << args("--help-all") << 0 << QStringLiteral("Usage: ");
    QTest::newRow("an unknown option beside --help")
        << args("--help --verbose") << 1 << QStringLiteral("verbose");
    QTest::newRow("misspelt option") << args("--verison") << 1 << QStringLiteral("verison");
    QTest::newRow("a file starts") << args("report.pdf") << -1 << QString();
    QTest::newRow("--help names the files") << args("--help") << 0 << QStringLiteral("[files...]");
    QTest::newRow("a file and an unknown option") << args("a.vx --verbose") << 1 << QStringLiteral("verbose");
    QTest::newRow("Qt's -platform") << args("-platform xcb") << -1 << QString();
    QTest::newRow("Qt's -style and -reverse") << args("-style Fusion -reverse") << -1 << QString();
}

void TestCommandLine::answers()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, output);

    const auto answer = answerCommandLine(QStringList { QStringLiteral("varnex-desktop") } + arguments);
    QCOMPARE(answer.has_value(), exitCode >= 0);
    if (!answer)
        return;
    QCOMPARE(answer->exitCode, exitCode);
    const auto matches = [&output](const QString& text) {
        return output.endsWith(u'\n') ? text == output : text.contains(output);
    };
    QVERIFY2(matches(answer->output), qPrintable(answer->output));

    // The program answers the same with no display, no platform override and an empty home:
    // had it started the application, it would abort for want of a display or leave folders
    // and settings behind. Help goes to standard output, complaints to standard error.
    QTemporaryDir home;
    QProcessEnvironment env;
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    QProcess program;
    program.setProcessEnvironment(env);
    program.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), arguments);
    QVERIFY(program.waitForFinished(30000));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), exitCode);
    const QString out = QString::fromUtf8(program.readAllStandardOutput());
    const QString err = QString::fromUtf8(program.readAllStandardError());
    QVERIFY2(matches(exitCode == 0 ? out : err), qPrintable(out + err));
    QCOMPARE(exitCode == 0 ? err : out, QString());
    QCOMPARE(
        QDir(home.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
}

void TestCommandLine::files_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("expected");
    const QString cwd = QStringLiteral("/home/ann/work");
    QTest::newRow("relative and absolute, in order")
        << QStringList { QStringLiteral("b.txt"), QStringLiteral("/tmp/a.vx"), QStringLiteral("../c d.pdf") }
        << QStringList { cwd + u"/b.txt", QStringLiteral("/tmp/a.vx"), QStringLiteral("/home/ann/c d.pdf") };
    QTest::newRow("Qt's options are not files")
        << QStringList { QStringLiteral("-platform"), QStringLiteral("xcb"), QStringLiteral("a.vx") }
        << QStringList { cwd + u"/a.vx" };
    QTest::newRow("a name that looks like an option, after --")
        << QStringList { QStringLiteral("--"), QStringLiteral("-v") } << QStringList { cwd + u"/-v" };
    QTest::newRow("file URL from a file manager, other URLs left out")
        << QStringList { QStringLiteral("file:///srv/x%20y.vx"), QStringLiteral("https://example.com/a.vx") }
        << QStringList { QStringLiteral("/srv/x y.vx") };
    QTest::newRow("no files") << QStringList {} << QStringList {};
}

void TestCommandLine::files()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, expected);
    QCOMPARE(commandLineFiles(QStringList { QStringLiteral("varnex-desktop") } + arguments,
                 QStringLiteral("/home/ann/work")),
        expected);
}

namespace {

QProcessEnvironment programEnvironment(const QString& home)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("XDG_CACHE_HOME"), home + QStringLiteral("/.cache"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), home + QStringLiteral("/runtime"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("VARNEX_LISTENER_PORT"), QStringLiteral("0")); // never the real 8888
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("varnex.desktop.info=true"));
    return env;
}

} // namespace

void TestCommandLine::aSecondStartHandsItsFilesOver()
{
    QTemporaryDir home;
    QVERIFY(QDir(home.path()).mkdir(QStringLiteral("runtime")));
    QFile::setPermissions(
        home.filePath(QStringLiteral("runtime")), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString socket = home.filePath(QStringLiteral("runtime/varnex-desktop.socket"));
    QProcess first;
    first.setProcessEnvironment(programEnvironment(home.path()));
    first.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
    QVERIFY(first.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(socket), 20000);

    // Relative names are read in the second start's folder, not the first's.
    QTemporaryDir work;
    for (const char* name : { "a.vx", "b.txt" }) {
        QFile file(work.filePath(QString::fromLatin1(name)));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("x");
    }
    QProcess second;
    second.setProcessEnvironment(programEnvironment(home.path()));
    second.setWorkingDirectory(work.path());
    second.start(
        qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), { QStringLiteral("a.vx"), QStringLiteral("b.txt") });
    QVERIFY(second.waitForFinished(10000));
    // 0 only comes with the first's answer, within the 2 s the second waits for it.
    QCOMPARE(second.exitCode(), 0);
    QByteArray log;
    const QByteArray expected
        = "handed over 2 files: " + QFile::encodeName(work.filePath(QStringLiteral("a.vx"))) + ' '
        + QFile::encodeName(work.filePath(QStringLiteral("b.txt")));
    QTRY_VERIFY_WITH_TIMEOUT((log += first.readAllStandardError(), log.contains(expected)), 10000);
    // Not yet paired, the first lists them on their screens at once: each waits in its list.
    QTRY_VERIFY_WITH_TIMEOUT((log += first.readAllStandardError(),
                                 log.contains("handed-over files listed: Encrypt: b.txt | Decrypt: a.vx")),
        10000);

    // Without files the first only comes forward.
    second.setWorkingDirectory(work.path());
    second.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(
        (log += first.readAllStandardError(), log.contains("handed over 0 files")), 10000);

    // A first start that no longer answers: the second gives up after 2 s and says so.
    ::kill(pid_t(first.processId()), SIGSTOP);
    QElapsedTimer clock;
    clock.start();
    second.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), { QStringLiteral("c.txt") });
    const bool ended = second.waitForFinished(15000);
    ::kill(pid_t(first.processId()), SIGCONT);
    QVERIFY(ended);
    QCOMPARE(second.exitCode(), 1);
    QVERIFY2(clock.elapsed() >= 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(QString::fromUtf8(second.readAllStandardError()).contains(u"does not answer"));

    first.terminate();
    QVERIFY(first.waitForFinished(10000));
    // Once the first is gone, the next start is the first again.
    QProcess next;
    next.setProcessEnvironment(programEnvironment(home.path()));
    next.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
    QVERIFY(next.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(socket), 20000);
    QCOMPARE(next.state(), QProcess::Running);
    next.terminate();
    QVERIFY(next.waitForFinished(10000));
}

void TestCommandLine::theLockStaysOutOfSharedFolders_data()
{
    QTest::addColumn<QString>("runtime"); // made with this mode (octal); empty: not set
    QTest::addColumn<QString>("expected"); // folder of the lock, under HOME
    QTest::newRow("private runtime folder") << QStringLiteral("700") << QStringLiteral("runtime");
    QTest::newRow("runtime folder others can write")
        << QStringLiteral("777") << QStringLiteral(".cache/varnex-desktop");
    QTest::newRow("no runtime folder") << QString() << QStringLiteral(".cache/varnex-desktop");
}

void TestCommandLine::theLockStaysOutOfSharedFolders()
{
    QFETCH(QString, runtime);
    QFETCH(QString, expected);
    QTemporaryDir home;
    QProcessEnvironment env = programEnvironment(home.path());
    if (runtime.isEmpty()) {
        env.remove(QStringLiteral("XDG_RUNTIME_DIR"));
    } else {
        QVERIFY(QDir(home.path()).mkdir(QStringLiteral("runtime")));
        QVERIFY(::chmod(QFile::encodeName(home.filePath(QStringLiteral("runtime"))).constData(),
                    mode_t(runtime.toUInt(nullptr, 8)))
            == 0);
    }
    QProcess program;
    program.setProcessEnvironment(env);
    program.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
    QVERIFY(program.waitForStarted());
    const QString folder = home.filePath(expected);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(folder + QStringLiteral("/varnex-desktop.socket")), 20000);
    QVERIFY(QFileInfo::exists(folder + QStringLiteral("/varnex-desktop.lock")));
    QCOMPARE(QFileInfo(folder).permissions()
            & (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
        QFile::Permissions());
    program.terminate();
    QVERIFY(program.waitForFinished(10000));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
