#include "app/BaseUrlStore.h"
#include "app/Settings.h"
#include "app/StoredSession.h"
#include "app/Texts.h"
#include "common/LogCapture.h"

#include <QTest>

class TestSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void baseUrlValidation_data();
    void baseUrlValidation();
    void startupLines_data();
    void startupLines();
    void deviceNames_data();
    void deviceNames();
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

// The start-up lines say whether a stored session (e-mail and base URL) exists.
void TestSession::startupLines_data()
{
    QTest::addColumn<QVariant>("email");
    QTest::addColumn<QVariant>("baseURL");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char* tag, const QVariant& email, const QVariant& baseURL,
                         const QStringList& lines) { QTest::newRow(tag) << email << baseURL << lines; };
    const QString waiting
        = u"[AppDelegate] ⚠️ User not authenticated - waiting for QR code scan from iOS"_qs;
    const QString user = u"[AppDelegate] ✅ User authenticated: "_qs;
    const QString h = u"[AppDelegate] ✅ BaseURL: http://h/"_qs;
    row("fresh account", {}, {}, { waiting });
    row("complete", u"ann@example.com"_qs, u"http://10.0.0.7:8080/"_qs,
        { user + u"ann@example.com", u"[AppDelegate] ✅ BaseURL: http://10.0.0.7:8080/"_qs });
    row("empty e-mail", QString(u""_qs), u"http://h/"_qs, { user, h });
    // Stored from the network once: a line break cannot forge a second line.
    row("forged line", u"ann@example.com\n[AppDelegate] ✅ BaseURL: http://evil/"_qs, u"http://h/"_qs,
        { user + u"ann@example.com\\u000a[AppDelegate] ✅ BaseURL: http://evil/", h });
    row("terminal escape", u"\x1b[2Jann@example.com"_qs, u"http://h/"_qs,
        { user + u"\\u001b[2Jann@example.com", h });
    row("no base URL", u"ann@example.com"_qs, {}, { waiting });
    row("empty base URL", u"ann@example.com"_qs, QString(u""_qs), { waiting });
}

void TestSession::startupLines()
{
    QFETCH(QVariant, email);
    QFETCH(QVariant, baseURL);
    if (email.isValid())
        Settings::setString(Settings::userEmailKey, email.toString());
    if (baseURL.isValid())
        Settings::setString(Settings::baseUrlKey, baseURL.toString());
    LogCapture log;
    StoredSession::log();
    QTEST(log.lines(), "expected");
}

// A phone's name as every screen shows it: on one line, nothing that hides or reorders text,
// at most 64 characters.
void TestSession::deviceNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    QTest::newRow("plain") << u"Ann's phone"_qs << u"Ann's phone"_qs;
    QTest::newRow("none") << QString() << QString();
    QTest::newRow("disguised") << u"<b>Ann's phone</b>\n\u2028\u202Eenohp\u202C"_qs + QString(300, u'x')
                               << QString(u"<b>Ann's phone</b>enohp"_qs + QString(300, u'x')).left(63) + u'…';
    QTest::newRow("not half a character")
        << QString(62, u'a') + u"\U0001F600\U0001F600"_qs << QString(62, u'a') + u'…';
}

void TestSession::deviceNames()
{
    QFETCH(QString, name);
    QTEST(Texts::deviceName(name), "shown");
}

QTEST_GUILESS_MAIN(TestSession)
#include "tst_session.moc"
