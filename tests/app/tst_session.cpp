#include "app/BaseUrlStore.h"
#include "app/Settings.h"
#include "common/LogCapture.h"

#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>


class TestSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void baseUrlValidation_data();
    void baseUrlValidation();
    void startupOfTheRealProgram_data();
    void startupOfTheRealProgram();
};

void TestSession::init()
{
    Settings::open()->clear();
}

void TestSession::baseUrlValidation_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("http with slash") << "http://192.168.1.20:8080/" << true;
    QTest::newRow("no trailing slash") << "http://192.168.1.20:8080" << true;
    QTest::newRow("https") << "https://phone.local/" << true;
    QTest::newRow("relative reference") << "api/v1" << false;
    QTest::newRow("file scheme") << "file:///etc/passwd" << false;
    QTest::newRow("ftp scheme") << "ftp://10.0.0.7/" << false;
    QTest::newRow("no host") << "http:/path" << false;
    QTest::newRow("escaped space") << "http://host/a%20b" << true;
    QTest::newRow("ipv6 literal") << "http://[fe80::1]:8080/" << true;
    QTest::newRow("space") << "http://host/a b" << false;
    QTest::newRow("leading space") << " http://host/" << false;
    QTest::newRow("bad escape") << "http://host/%zz" << false;
    QTest::newRow("angle bracket") << "http://host/<x>" << false;
    QTest::newRow("unclosed ipv6") << "http://[fe80::1/" << false;
    QTest::newRow("non-ascii") << "http://hôst/" << false;
}

void TestSession::baseUrlValidation()
{
    QFETCH(QString, url);
    QFETCH(bool, accepted);
    Settings::setString(Settings::baseUrlKey, QStringLiteral("http://old/"));
    LogCapture log;
    BaseUrlStore::setBaseURL(url);
    QCOMPARE(Settings::string(Settings::baseUrlKey), accepted ? url : QStringLiteral("http://old/"));
    QCOMPARE(log.lines(),
        QStringList { (accepted ? QStringLiteral("[BaseUrlStore] ✅ Base URL set: ")
                                : QStringLiteral("[BaseUrlStore] ❌ ERROR: Invalid URL format: "))
            + url });
}

void TestSession::startupOfTheRealProgram_data()
{
    QTest::addColumn<QVariant>("email");
    QTest::addColumn<QVariant>("baseURL");
    QTest::addColumn<QStringList>("expected");
    const QString waiting
        = QStringLiteral("[AppDelegate] ⚠️ User not authenticated - waiting for QR code scan from iOS");
    QTest::newRow("fresh account") << QVariant() << QVariant() << QStringList { waiting };
    QTest::newRow("complete") << QVariant(u"ann@example.com"_qs) << QVariant(u"http://10.0.0.7:8080/"_qs)
                              << QStringList { QStringLiteral(
                                                   "[AppDelegate] ✅ User authenticated: ann@example.com"),
                                     QStringLiteral("[AppDelegate] ✅ BaseURL: http://10.0.0.7:8080/") };
    QTest::newRow("empty e-mail") << QVariant(QString(u""_qs)) << QVariant(u"http://h/"_qs)
                                  << QStringList { QStringLiteral("[AppDelegate] ✅ User authenticated: "),
                                         QStringLiteral("[AppDelegate] ✅ BaseURL: http://h/") };
    // Stored from the network once: a line break cannot forge a second line.
    QTest::newRow("forged line") << QVariant(u"ann@example.com\n[AppDelegate] ✅ BaseURL: http://evil/"_qs)
                                 << QVariant(u"http://h/"_qs)
                                 << QStringList { QStringLiteral("[AppDelegate] ✅ User authenticated: ann@example.com"
                                                                 "\\u000a[AppDelegate] ✅ BaseURL: http://evil/"),
                                        QStringLiteral("[AppDelegate] ✅ BaseURL: http://h/") };
    QTest::newRow("no base URL") << QVariant(u"ann@example.com"_qs) << QVariant() << QStringList { waiting };
    QTest::newRow("empty base URL") << QVariant(u"ann@example.com"_qs) << QVariant(QString(u""_qs)) << QStringList { waiting };
}

void TestSession::startupOfTheRealProgram()
{
    QFETCH(QVariant, email);
    QFETCH(QVariant, baseURL);
    QFETCH(QStringList, expected);

    QTemporaryDir home;
    const QString config = home.filePath(QStringLiteral(".config"));
    {
        // The file the program reads its settings from, written as an earlier run left it.
        QSettings stored(config + QStringLiteral("/Varnex/Varnex Desktop.conf"), QSettings::IniFormat);
        if (email.isValid())
            stored.setValue(QString::fromLatin1(Settings::userEmailKey), email.toString());
        if (baseURL.isValid())
            stored.setValue(QString::fromLatin1(Settings::baseUrlKey), baseURL.toString());
    }

    for (int run = 0; run < 2; ++run) {
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), config);
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("VARNEX_LISTENER_PORT"), QStringLiteral("0")); // never the real 8888
        program.setProcessEnvironment(env);
        program.start(qEnvironmentVariable("VARNEX_DESKTOP_BINARY"), {});
        QVERIFY(program.waitForStarted());
        QByteArray output;
        QTRY_VERIFY_WITH_TIMEOUT(
            (output += program.readAllStandardOutput(), output.contains(expected.last().toUtf8())), 20000);
        program.terminate();
        QVERIFY(program.waitForFinished(10000));

        // The start-up lines, in order, and nothing else: the listener found its free port.
        QCOMPARE(QString::fromUtf8(output).split(u'\n', Qt::SkipEmptyParts), expected);
        QVERIFY(QFileInfo(home.filePath(QStringLiteral("Documents/Varnex/EncryptedFiles"))).isDir());
        QVERIFY(QFileInfo(home.filePath(QStringLiteral("Documents/Varnex/DecryptedFiles"))).isDir());
    }
    // The stored values survive both runs untouched, in a file only the user can read.
    const QString file = config + QStringLiteral("/Varnex/Varnex Desktop.conf");
    QSettings stored(file, QSettings::IniFormat);
    QCOMPARE(stored.value(QString::fromLatin1(Settings::baseUrlKey)), baseURL);
    if (QFileInfo::exists(file))
        QCOMPARE(QFileInfo(file).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther), 0);
}

QTEST_GUILESS_MAIN(TestSession)
#include "tst_session.moc"
