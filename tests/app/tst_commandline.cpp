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
    void theProgramAnswersWithoutADisplay_data();
    void theProgramAnswersWithoutADisplay();
};

void TestCommandLine::answers_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode"); // -1: the application starts
    QTest::addColumn<QString>("output");

    const QString version = QStringLiteral("Varnex Desktop 1.0.0\n");
    QTest::newRow("no arguments") << QStringList() << -1 << QString();
    QTest::newRow("--version") << QStringList { QStringLiteral("--version") } << 0 << version;
    QTest::newRow("-v") << QStringList { QStringLiteral("-v") } << 0 << version;
    QTest::newRow("--help") << QStringList { QStringLiteral("--help") } << 0 << QStringLiteral("--version");
    QTest::newRow("-h") << QStringList { QStringLiteral("-h") } << 0 << QStringLiteral("--help");
    QTest::newRow("--help-all") << QStringList { QStringLiteral("--help-all") } << 0
                                << QStringLiteral("--help");
    QTest::newRow("an unknown option beside --help") << QStringList { QStringLiteral("--help"),
        QStringLiteral("--verbose") } << 1 << QStringLiteral("verbose");
    QTest::newRow("misspelt option") << QStringList { QStringLiteral("--verison") } << 1
                                     << QStringLiteral("verison");
    QTest::newRow("a file") << QStringList { QStringLiteral("report.pdf") } << 1
                            << QStringLiteral("report.pdf");
    QTest::newRow("Qt's -platform") << QStringList { QStringLiteral("-platform"), QStringLiteral("xcb") }
                                    << -1 << QString();
    QTest::newRow("Qt's -style and -reverse")
        << QStringList { QStringLiteral("-style"), QStringLiteral("Fusion"), QStringLiteral("-reverse") }
        << -1 << QString();
}

void TestCommandLine::answers()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, output);

    const auto answer = answerCommandLine(QStringList { QStringLiteral("varnex-desktop") } + arguments);
    if (exitCode < 0) {
        QVERIFY(!answer);
        return;
    }
    QVERIFY(answer);
    QCOMPARE(answer->exitCode, exitCode);
    if (output.endsWith(u'\n'))
        QCOMPARE(answer->output, output);
    else
        QVERIFY2(answer->output.contains(output), qPrintable(answer->output));
}

void TestCommandLine::theProgramAnswersWithoutADisplay_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("standardOutput");
    QTest::newRow("--version") << QStringLiteral("--version") << 0
                               << QStringLiteral("Varnex Desktop 1.0.0\n");
    QTest::newRow("--help") << QStringLiteral("--help") << 0 << QStringLiteral("Usage: ");
    QTest::newRow("unknown") << QStringLiteral("--pair") << 1 << QString();
}

void TestCommandLine::theProgramAnswersWithoutADisplay()
{
    QFETCH(QString, argument);
    QFETCH(int, exitCode);
    QFETCH(QString, standardOutput);

    // No display, no platform override and an empty home: had the program started the
    // application, it would abort for want of a display or leave folders and settings behind.
    QTemporaryDir home;
    QProcessEnvironment env;
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    QProcess program;
    program.setProcessEnvironment(env);
    program.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), { argument });
    QVERIFY(program.waitForFinished(30000));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), exitCode);
    const QString out = QString::fromUtf8(program.readAllStandardOutput());
    if (standardOutput.endsWith(u'\n'))
        QCOMPARE(out, standardOutput);
    else if (!standardOutput.isEmpty())
        QVERIFY2(out.startsWith(standardOutput), qPrintable(out));
    else
        QVERIFY2(out.isEmpty() && !program.readAllStandardError().isEmpty(), qPrintable(out));
    QCOMPARE(
        QDir(home.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
