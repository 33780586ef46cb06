#include "app/Session.h"
#include "app/Settings.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "operations/SafeArchive.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// The phone simulator as the desktop's tests rely on it: real encryption, pairing and change
// signals, and how its faults are matched to requests. (Its group API is tested through the
// desktop's own calls, in tst_api; its hostile and broken replies through the desktop's
// refusals, in tst_operations.)
class TestPhoneSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void vxFiles_data();
    void vxFiles();
    void pairsAndSignalsChanges();
    void faultsTakeEffect_data();
    void faultsTakeEffect();

private:
    std::unique_ptr<PhoneSimProcess> m_sim;
};

namespace {

using Entries = QList<std::pair<QString, QByteArray>>;

// Every entry of a zip the phone sent, read as the desktop reads one; nothing when it cannot be.
std::optional<Entries> unzip(const std::string& bytes)
{
    const QTemporaryDir dir;
    TestFiles::write(dir.filePath(u"reply.zip"_qs), QByteArray::fromStdString(bytes));
    const SafeArchive::Result read
        = SafeArchive::extract(dir.filePath(u"reply.zip"_qs), dir.path(), 1LL << 30);
    if (!read.ok)
        return std::nullopt;
    Entries entries;
    for (const SafeArchive::Entry& entry : read.entries)
        entries.append({ entry.name, TestFiles::read(entry.tempPath) });
    return entries;
}

httplib::Result upload(quint16 port, const char* path, const httplib::MultipartFormDataItems& items)
{
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(30);
    return client.Post(path, items);
}

httplib::Result encrypt(quint16 port, const std::string& name, const QByteArray& content)
{
    return upload(port, "/encryptFile/",
        { { "emails", "amelia.clarke@example.com;", "", "" }, { "type", "MacOS(v1.0.0)", "", "" },
            { name, content.toStdString(), name, "application/octet-stream" } });
}

// The .vx file the phone made of `content`, checked as the desktop takes it in.
QByteArray encrypted(quint16 port, const QByteArray& content)
{
    const auto reply = encrypt(port, "a.txt", content);
    if (!reply || reply->status != 200 || reply->get_header_value("Content-Type") != "application/zip")
        return {};
    const auto entries = unzip(reply->body);
    if (!entries || entries->size() != 1 || entries->at(0).first != u"a.txt.vx")
        return {};
    return entries->at(0).second;
}

} // namespace

void TestPhoneSim::initTestCase()
{
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestPhoneSim::init()
{
    m_sim->clearFaults();
    m_sim->clearRequests();
}

void TestPhoneSim::vxFiles_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("damage"); // empty: none, the file decrypts
    using TestFiles::randomBytes;
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("small") << QByteArray("the quarterly report\n") << QString();
    QTest::newRow("exactly one chunk") << randomBytes(64 * 1024) << QString();
    // A file made by another phone for someone else: the signed-in user cannot open it.
    QTest::newRow("not a recipient") << QByteArray("secret") << "other user";
    QTest::newRow("flipped byte") << randomBytes(100000) << "flip";
    QTest::newRow("truncated") << randomBytes(100000) << "truncate";
    QTest::newRow("appended bytes") << randomBytes(100000) << "append";
    QTest::newRow("not a vx file") << randomBytes(100) << "garbage";
}

void TestPhoneSim::vxFiles()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, damage);
    QByteArray vx;
    if (damage == u"other user") {
        PhoneSimProcess other({ u"--user"_qs, u"someone.else@example.com"_qs });
        QVERIFY(other.isRunning());
        vx = encrypted(other.port(), content);
    } else {
        vx = encrypted(m_sim->port(), content);
    }
    QVERIFY(!vx.isEmpty());
    QVERIFY(content.isEmpty() || !vx.contains(content.left(64)));
    if (damage == u"flip")
        vx[vx.size() - 100] = char(vx.at(vx.size() - 100) ^ 0x40);
    else if (damage == u"truncate")
        vx.chop(70000);
    else if (damage == u"append")
        vx.append("more");
    else if (damage == u"garbage")
        vx = "plain text pretending";

    // The signed-in user is always a recipient, so the phone reads its own work back; one bad
    // file among good ones refuses the whole request.
    const QByteArray good = encrypted(m_sim->port(), "fine");
    const auto reply = upload(m_sim->port(), "/decryptFile/",
        { { "b", good.toStdString(), "b.txt.vx", "application/octet-stream" },
            { "a", vx.toStdString(), "a.txt.vx", "application/octet-stream" } });
    QVERIFY(reply);
    QCOMPARE(reply->status, damage.isEmpty() ? 200 : 400);
    if (damage.isEmpty())
        QCOMPARE(unzip(reply->body), Entries({ { u"b"_qs, "fine" }, { u"a"_qs, content } }));
}

void TestPhoneSim::pairsAndSignalsChanges()
{
    Settings::open()->clear(); // a fresh install: no phone trusted yet
    Session::instance().resetForTesting();
    PhoneConnection gate(Session::instance(), [](auto, QObject*, auto) {});
    MobileDeviceListener listener(gate, 0);
    QVERIFY(listener.start());
    QSignalSpy associates(&Session::instance(), &Session::associatesUpdated);
    QSignalSpy groups(&Session::instance(), &Session::groupsUpdated);
    PhoneSimProcess sim({ u"--pair"_qs, QStringLiteral("127.0.0.1:%1").arg(listener.port()), u"--name"_qs,
        u"Test phone"_qs });
    QVERIFY(sim.isRunning());
    // Its message passes every rule a phone's must, and waits for the user, as a stranger's does.
    QTRY_VERIFY_WITH_TIMEOUT(gate.pending(), 5000);
    QCOMPARE(gate.pending()->message.mobileDeviceName, u"Test phone"_qs);
    QCOMPARE(gate.pending()->peer, u"127.0.0.1"_qs);
    QVERIFY(gate.acceptPending(gate.pending()->id)); // change signals count from the connected phone only

    QCOMPARE(sim.post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"+1 555 0100"_qs } }),
        201);
    QTRY_COMPARE_WITH_TIMEOUT(associates.size(), 1, 5000);
    httplib::Client c("127.0.0.1", sim.port());
    c.Post("/v2/groups", "{\"username\":\"alex.morgan@example.com\",\"name\":\"New\"}", "application/json");
    QTRY_COMPARE_WITH_TIMEOUT(groups.size(), 1, 5000);
    QCOMPARE(associates.size(), 1);
}

void TestPhoneSim::faultsTakeEffect_data()
{
    // Statuses, bodies, delays, cut and silent answers show in the desktop's own tests
    // (tst_api, tst_shell); these are the matching rules only this test relies on.
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("answers"); // to two GET /ping in a row
    QTest::newRow("prefix and method")
        << QJsonObject { { u"method"_qs, u"GET"_qs }, { u"path"_qs, u"/pi*"_qs }, { u"status"_qs, 503 } }
        << "503 , 503 ";
    QTest::newRow("other method untouched")
        << QJsonObject { { u"method"_qs, u"POST"_qs }, { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 503 } }
        << "200 pong, 200 pong";
    QTest::newRow("once") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 500 },
        { u"times"_qs, 1 } }
                          << "500 , 200 pong";
}

void TestPhoneSim::faultsTakeEffect()
{
    QFETCH(QJsonObject, fault);
    QVERIFY(m_sim->setFault(fault));
    httplib::Client c("127.0.0.1", m_sim->port());
    const auto answer = [&c] {
        auto res = c.Get("/ping");
        return res ? QStringLiteral("%1 %2").arg(res->status).arg(QString::fromStdString(res->body))
                   : QString();
    };
    const QString first = answer();
    QTEST(QString(first + u", " + answer()), "answers");
    m_sim->clearFaults();
    QCOMPARE(answer(), u"200 pong"_qs);
}

QTEST_GUILESS_MAIN(TestPhoneSim)
#include "tst_phonesim.moc"
