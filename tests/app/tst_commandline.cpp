#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/Translations.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <signal.h>

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
};

void TestCommandLine::answers_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode"); // -1: the application starts
    QTest::addColumn<QString>("output"); // ending in a line break: all of it; otherwise a part
    QTest::addColumn<bool>("launch"); // asked of the real program too
    const auto row = [](const char* tag, const char* line, int exitCode, const QString& output = {},
                         bool launch = false) {
        QTest::newRow(tag) << QString::fromLatin1(line).split(u' ', Qt::SkipEmptyParts) << exitCode << output
                           << launch;
    };
    const QString version = QStringLiteral("Varnex Desktop 1.0.0\n");
    row("no arguments", "", -1);
    row("--version", "--version", 0, version, true);
    row("-v", "-v", 0, version);
    row("--help names the files", "--help", 0, QStringLiteral("[files...]"));
    row("-h", "-h", 0, QStringLiteral("--version"));
    row("--help-all", "--help-all", 0, QStringLiteral("Usage: "));
    row("an unknown option beside --help", "--help --verbose", 1, QStringLiteral("verbose"));
    row("misspelt option", "--verison", 1, QStringLiteral("verison"), true);
    row("a file starts", "report.pdf", -1);
    row("a file and an unknown option", "a.vx --verbose", 1, QStringLiteral("verbose"));
    row("Qt's -platform", "-platform xcb", -1);
    row("Qt's -style and -reverse", "-style Fusion -reverse", -1);
}

void TestCommandLine::answers()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    QFETCH(bool, launch);

    const auto answer = answerCommandLine(QStringList { QStringLiteral("varnex-desktop") } + arguments);
    QCOMPARE(answer.has_value(), exitCode >= 0);
    if (!answer)
        return;
    QCOMPARE(answer->exitCode, exitCode);
    const auto matches = [&output](const QString& text) {
        return output.endsWith(u'\n') ? text == output : text.contains(output);
    };
    QVERIFY2(matches(answer->output), qPrintable(answer->output));
    if (!launch)
        return;

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

// The real program, started on a stored session, then started again: the later start hands its
// files to the first and ends.
void TestCommandLine::aSecondStartHandsItsFilesOver()
{
    QTemporaryDir home;
    QVERIFY(QDir(home.path()).mkdir(QStringLiteral("runtime")));
    QFile::setPermissions(
        home.filePath(QStringLiteral("runtime")), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString socket = home.filePath(QStringLiteral("runtime/varnex-desktop.socket"));
    // The settings file as an earlier run left it.
    const QString settings = home.filePath(QStringLiteral(".config/Varnex/Varnex Desktop.conf"));
    {
        QSettings stored(settings, QSettings::IniFormat);
        stored.setValue(QString::fromLatin1(Settings::userEmailKey), u"ann@example.com"_qs);
        stored.setValue(QString::fromLatin1(Settings::baseUrlKey), u"http://10.0.0.7:8080/"_qs);
    }
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
    // On standard output only the start-up lines (the listener found its free port); the result
    // folders made, the stored values untouched in a file only the user can read.
    const QStringList lines { QStringLiteral("[AppDelegate] ✅ User authenticated: ann@example.com"),
        QStringLiteral("[AppDelegate] ✅ BaseURL: http://10.0.0.7:8080/") };
    QCOMPARE(QString::fromUtf8(first.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts), lines);
    QVERIFY(QFileInfo(home.filePath(QStringLiteral("Documents/Varnex/EncryptedFiles"))).isDir());
    QVERIFY(QFileInfo(home.filePath(QStringLiteral("Documents/Varnex/DecryptedFiles"))).isDir());
    QCOMPARE(QFileInfo(settings).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);

    // Once the first is gone, the next start is the first again, on the same stored session.
    QProcess next;
    next.setProcessEnvironment(programEnvironment(home.path()));
    next.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
    QVERIFY(next.waitForStarted());
    QByteArray output;
    QTRY_VERIFY_WITH_TIMEOUT(
        (output += next.readAllStandardOutput(), output.contains(lines.last().toUtf8())), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(socket), 20000);
    QCOMPARE(next.state(), QProcess::Running);
    next.terminate();
    QVERIFY(next.waitForFinished(10000));
    QCOMPARE(QString::fromUtf8(output).split(u'\n', Qt::SkipEmptyParts), lines);
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
