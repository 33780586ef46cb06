#include "app/CommandLine.h"
#include "app/Translations.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void answers_data();
    void answers();
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
    QTest::newRow("a file") << args("report.pdf") << 1 << QStringLiteral("report.pdf");
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

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
