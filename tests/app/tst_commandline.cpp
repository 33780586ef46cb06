#include "app/CommandLine.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "desktop/SingleInstance.h"
#include "operations/EncryptTask.h"

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
    void initTestCase()
    {
        installTranslations(*QCoreApplication::instance());
        QCoreApplication::setApplicationVersion(QStringLiteral(VARNEX_VERSION)); // the client type sent
    }
    void answers_data();
    void answers();
    void files_data();
    void files();
    void commands_data();
    void commands();
    void aSecondStartHandsItsFilesOver();
    void commandsAnsweredByTheRunningProgram();
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
    row("--help names the files", "--help", 0, QStringLiteral("[files...]"));
    row("--help-all", "--help-all", 0, QStringLiteral("Usage: "));
    row("an unknown option beside --help", "--help --verbose", 1, QStringLiteral("verbose"));
    row("misspelt option", "--verison", 1, QStringLiteral("verison"), true);
    row("a file starts", "report.pdf", -1);
    row("a file and an unknown option", "a.vx --verbose", 1, QStringLiteral("verbose"));
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

void TestCommandLine::commands_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("exitCode"); // -1: a command for the running program
    QTest::addColumn<QString>("output"); // what it prints, or the command as sent
    const auto row = [](const char* line, int exitCode, const QString& output) {
        QTest::newRow(line) << QString::fromUtf8(line) << exitCode << output;
    };
    row("encrypt --to a@x.org,b@x.org --group Team --wait --json r.pdf", -1,
        u"encrypt --to a@x.org --to b@x.org --group Team --wait --json -- /w/r.pdf"_qs);
    row("decrypt --wait ../a.vx", -1, u"decrypt --wait -- /a.vx"_qs);
    row("status --json --no-start", -1, u"status --json --no-start"_qs);
    row("encrypt --help", 0, u"--group <NAME>"_qs);
    row("groups --help", 0, u"5 some files failed"_qs);
    row("encrypt --to a@x.org", 2, u"No files given. Try 'varnex-desktop encrypt --help'"_qs);
    row("encrypt r.pdf", 2, u"No recipients given"_qs);
    row("decrypt --to a@x.org a.vx", 2, u"Unknown option 'to'"_qs);
    row("people extra", 2, u"Unexpected argument: extra."_qs);
}

// A command's arguments, parsed where it is typed: the command as the running program gets it,
// or its help, or one line saying what is wrong (bad usage: 2).
void TestCommandLine::commands()
{
    QFETCH(QString, line);
    QFETCH(int, exitCode);
    QFETCH(QString, output);
    const QStringList arguments = QStringList { u"varnex-desktop"_qs } + line.split(u' ');
    QVERIFY(isScriptCommand(arguments));
    const auto parsed = parseScriptCommand(arguments, u"/w"_qs);
    if (exitCode < 0) {
        QCOMPARE(std::get<ScriptCommand>(parsed).arguments().join(u' '), output);
        return;
    }
    const auto answer = std::get<CommandLineAnswer>(parsed);
    QCOMPARE(answer.exitCode, exitCode);
    QVERIFY2(answer.output.contains(output), qPrintable(answer.output));
    QCOMPARE(answer.output.count(u'\n') == 1, exitCode != 0); // an error is one line
}

namespace {

// The program's surroundings in `home`, with its private runtime folder made there.
QProcessEnvironment programEnvironment(const QString& home)
{
    QDir(home).mkdir(QStringLiteral("runtime"));
    QFile::setPermissions(
        home + QStringLiteral("/runtime"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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
    const QProcessEnvironment env = programEnvironment(home.path());
    const QString socket = home.filePath(QStringLiteral("runtime/varnex-desktop.socket"));
    // The settings file as an earlier run left it.
    const QString settings = home.filePath(QStringLiteral(".config/Varnex/Varnex Desktop.conf"));
    {
        QSettings stored(settings, QSettings::IniFormat);
        stored.setValue(QString::fromLatin1(Settings::userEmailKey), u"ann@example.com"_qs);
        stored.setValue(QString::fromLatin1(Settings::baseUrlKey), u"http://10.0.0.7:8080/"_qs);
    }
    QProcess first;
    first.setProcessEnvironment(env);
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
    second.setProcessEnvironment(env);
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
}

namespace {

struct Answer
{
    int code = -1;
    QStringList out;
    QString err;
};

} // namespace

// The commands a script runs, answered by the real program: started hidden for a command when
// none runs and gone again after it; started at login (hidden) and never showing its window while
// a script encrypts 100 files for a group, each exit status once, and the same on the session bus.
void TestCommandLine::commandsAnsweredByTheRunningProgram()
{
    PhoneSimProcess sim;
    QVERIFY(sim.isRunning());
    QTemporaryDir home;
    QProcessEnvironment env = programEnvironment(home.path());
    env.insert(u"VARNEX_PHONE_SERVICE_PORT"_qs, QString::number(sim.port()));
    const auto command = [&env](const QStringList& arguments, QProcess* running = nullptr) {
        QProcess own;
        QProcess& process = running ? *running : own;
        process.setProcessEnvironment(env);
        if (!running)
            process.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), arguments);
        Answer answer;
        if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit)
            answer.code = process.exitCode();
        answer.out = QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        answer.err = QString::fromUtf8(process.readAllStandardError());
        return answer;
    };

    // None runs and no phone is paired: the one started for the command says so, and goes.
    Answer answer = command({ u"people"_qs });
    QCOMPARE(answer.code, 3);
    QVERIFY2(answer.err.startsWith(u"No phone is paired"), qPrintable(answer.err));
    const SingleInstance instance(home.filePath(u"runtime"_qs));
    QTRY_VERIFY_WITH_TIMEOUT(!instance.isRunning(), 10000);
    QCOMPARE(command({ u"status"_qs, u"--no-start"_qs }).code, 3);
    QVERIFY(!instance.isRunning());

    // Started at login, with a trusted phone.
    {
        QSettings stored(home.filePath(u".config/Varnex/Varnex Desktop.conf"_qs), QSettings::IniFormat);
        stored.setValue(QString::fromLatin1(Settings::userEmailKey), u"alex.morgan@example.com"_qs);
        stored.setValue(QString::fromLatin1(Settings::baseUrlKey), sim.baseUrl());
        stored.setValue(u"trustedPhone/email"_qs, u"alex.morgan@example.com"_qs);
        stored.setValue(u"trustedPhone/address"_qs, u"127.0.0.1"_qs);
        stored.setValue(u"trustedPhone/baseURL"_qs, sim.baseUrl());
    }
    QProcess program;
    program.setProcessEnvironment(env);
    program.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), { u"--hidden"_qs });
    QTRY_VERIFY_WITH_TIMEOUT(
        command({ u"status"_qs, u"--no-start"_qs }).out.contains(u"phone: connected"_qs), 20000);

    // A script encrypts 100 files for a group: the request a screen sends, and the results'
    // path, each file's own bytes when decrypted.
    QTemporaryDir work;
    QStringList files;
    for (int i = 0; i < 100; ++i) {
        files.append(work.filePath(u"file %1.txt"_qs.arg(i)));
        QFile file(files.last());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray::number(i).repeated(i + 1));
    }
    answer = command({ u"groups"_qs });
    QCOMPARE(answer.code, 0);
    const QString apollo = answer.out.filter(u"Project Apollo\t"_qs).value(0);
    QStringList members = apollo.section(u'\t', 1).split(u", "_qs);
    members.sort();
    sim.clearRequests();
    answer
        = command(QStringList { u"encrypt"_qs, u"--group"_qs, u"Project Apollo"_qs, u"--wait"_qs } + files);
    QCOMPARE(answer.code, 0);
    QStringList names;
    QStringList results;
    for (const QString& file : std::as_const(files)) {
        names.append(file.section(u'/', -1));
        results.append(home.filePath(u"Documents/Varnex/EncryptedFiles/"_qs) + names.last() + u".vx");
    }
    QCOMPARE(answer.out, results);
    const QJsonArray requests = sim.requests();
    QCOMPARE(requests.size(), 1);
    QStringList expected;
    for (const auto& part : EncryptTask::parts(files, names, members.join(u';') + u';')) {
        expected.append(part.filePath.isEmpty() ? part.name + u'=' + QString::fromUtf8(part.value)
                                                : QStringList { part.name, part.filename, part.contentType,
                                                    QString::number(QFileInfo(part.filePath).size()) }
                                                      .join(u" | "));
    }
    QCOMPARE(PhoneSimProcess::partsOf(requests.at(0)), expected);
    answer = command(QStringList { u"decrypt"_qs, u"--wait"_qs, u"--json"_qs } + results);
    QCOMPARE(answer.code, 0);
    const QJsonArray outcomes
        = QJsonDocument::fromJson(answer.out.value(0).toUtf8()).object()[u"files"].toArray();
    QCOMPARE(outcomes.size(), 100);
    for (int i = 0; i < 100; ++i) {
        QFile original(files.at(i));
        QFile decrypted(outcomes.at(i)[u"result"].toString());
        QVERIFY(original.open(QIODevice::ReadOnly) && decrypted.open(QIODevice::ReadOnly));
        QCOMPARE(decrypted.readAll(), original.readAll());
    }

    // Every status a script acts on, once; an unknown recipient sends nothing.
    QFile fake(work.filePath(u"fake.txt.vx"_qs));
    QVERIFY(fake.open(QIODevice::WriteOnly) && fake.write("not encrypted") > 0);
    fake.close();
    const QString person = u"amelia.clarke@example.com"_qs;
    struct Case
    {
        QStringList arguments;
        QJsonObject fault;
        int code;
        QString err;
    };
    const QList<Case> cases {
        { { u"encrypt"_qs, u"--to"_qs, u"nobody@example.org"_qs, u"--wait"_qs, files.at(0) }, {}, 2,
            u"Not known to the phone"_qs },
        { { u"encrypt"_qs, u"--to"_qs, person, u"--wait"_qs, files.at(0) },
            { { u"path"_qs, u"/encryptFile/"_qs }, { u"status"_qs, 500 } }, 1, u"Encryption failed: "_qs },
        { { u"decrypt"_qs, u"--wait"_qs, fake.fileName() }, {}, 4, u"fake.txt.vx: "_qs },
        { { u"decrypt"_qs, u"--wait"_qs, fake.fileName(), results.at(0) }, {}, 5, u"fake.txt.vx: "_qs },
    };
    for (const Case& c : cases) {
        sim.clearFaults();
        sim.clearRequests();
        if (!c.fault.isEmpty())
            QVERIFY(sim.setFault(c.fault));
        answer = command(c.arguments);
        QVERIFY2(answer.code == c.code && answer.err.contains(c.err),
            qPrintable(c.arguments.join(u' ') + u": " + QString::number(answer.code) + u' ' + answer.err));
        // The watchdog's pings go on; no file may reach the phone.
        bool sent = false;
        for (const QJsonValue& request : sim.requests())
            sent = sent || request[u"path"].toString().endsWith(u"cryptFile/");
        QCOMPARE(sent, c.code != 2);
    }
    // Ctrl+C while the phone works cancels the operation.
    QVERIFY(sim.setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    QProcess waiting;
    waiting.setProcessEnvironment(env);
    waiting.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"),
        { u"encrypt"_qs, u"--to"_qs, person, u"--wait"_qs, files.at(1) });
    QTRY_VERIFY_WITH_TIMEOUT(
        command({ u"status"_qs }).out.filter(u"operation: encrypt, 1 file: "_qs).size() == 1, 20000);
    ::kill(pid_t(waiting.processId()), SIGINT);
    QCOMPARE(command({}, &waiting).code, 6);
    sim.clearFaults();

    // The same on the session bus, asked with gdbus; the end of an operation is a signal.
    const auto busCall = [](const QString& method, const QStringList& arguments = {}) {
        QProcess gdbus;
        gdbus.start(u"gdbus"_qs,
            QStringList { u"call"_qs, u"--session"_qs, u"--dest"_qs, u"org.varnex.Desktop"_qs,
                u"--object-path"_qs, u"/"_qs, u"--method"_qs, u"org.varnex.Desktop."_qs + method }
                + arguments);
        gdbus.waitForFinished(20000);
        return QString::fromUtf8(gdbus.readAllStandardOutput() + gdbus.readAllStandardError()).trimmed();
    };
    QProcess monitor;
    monitor.start(u"gdbus"_qs, { u"monitor"_qs, u"--session"_qs, u"--dest"_qs, u"org.varnex.Desktop"_qs });
    QByteArray signalled;
    QTRY_VERIFY_WITH_TIMEOUT(
        (signalled += monitor.readAllStandardOutput(), signalled.contains("is owned by")), 10000);
    QVERIFY(busCall(u"Status"_qs).contains(u"'phone': <'connected'>"_qs));
    QCOMPARE(busCall(u"RecentGroups"_qs), u"(['Project Apollo'],)"_qs);
    QCOMPARE(busCall(u"RecentPeople"_qs), u"(['amelia.clarke@example.com'],)"_qs);
    QVERIFY(busCall(u"People"_qs).startsWith(u"([('amelia.clarke@example.com', 'Amelia Clarke'), "_qs));
    QVERIFY(busCall(u"Groups"_qs).contains(u"('Project Apollo', ['"_qs + members.value(0)));
    const QString file = u"['"_qs + files.at(2) + u"']";
    QVERIFY(busCall(u"Encrypt"_qs, { u"['nobody@example.org']"_qs, u"@as []"_qs, file })
                .contains(u"org.freedesktop.DBus.Error.InvalidArgs"_qs));
    const QString id
        = busCall(u"Encrypt"_qs, { u"['"_qs + person + u"']", u"@as []"_qs, file }).section(u'\'', 1, 1);
    QVERIFY(!id.isEmpty());
    const QByteArray finished = "Finished ('" + id.toUtf8() + "', 'done', 0, [('" + files.at(2).toUtf8()
        + "', '" + home.filePath(u"Documents/Varnex/EncryptedFiles/file 2 (1).txt.vx"_qs).toUtf8()
        + "', '')])"; // beside the script's result
    QTRY_VERIFY_WITH_TIMEOUT(
        (signalled += monitor.readAllStandardOutput(), signalled.contains(finished)), 20000);
    monitor.kill();
    monitor.waitForFinished();

    // The window never showed.
    QVERIFY(command({ u"status"_qs }).out.contains(u"window: hidden"_qs));
    program.terminate();
    QVERIFY(program.waitForFinished(10000));
    QVERIFY(!program.readAllStandardError().contains("The window shows"));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
