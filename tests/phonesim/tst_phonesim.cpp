#include "app/Session.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "pairing/MobileDeviceListener.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>

namespace {

using TestFiles::randomBytes;

using Entries = QList<std::pair<QString, QByteArray>>;

// Reads every entry of a zip held in memory; nothing when it is not a readable archive.
std::optional<Entries> unzip(const std::string& bytes)
{
    archive* a = archive_read_new();
    archive_read_support_format_zip(a);
    Entries entries;
    bool ok = archive_read_open_memory(a, bytes.data(), bytes.size()) == ARCHIVE_OK;
    archive_entry* entry = nullptr;
    while (ok) {
        const int next = archive_read_next_header(a, &entry);
        if (next == ARCHIVE_EOF)
            break;
        if (next != ARCHIVE_OK) {
            ok = false;
            break;
        }
        QByteArray data;
        char buffer[65536];
        la_ssize_t n = 0;
        while ((n = archive_read_data(a, buffer, sizeof buffer)) > 0)
            data.append(buffer, n);
        ok = n == 0;
        const QString name = QString::fromUtf8(archive_entry_pathname(entry));
        entries.append({ archive_entry_filetype(entry) == AE_IFLNK ? u"link:" + name : name, data });
    }
    archive_read_free(a);
    if (!ok)
        return std::nullopt;
    return entries;
}

httplib::Result upload(quint16 port, const char* path, const httplib::MultipartFormDataItems& items)
{
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(30);
    return client.Post(path, items);
}

httplib::MultipartFormDataItems encryptItems(const QString& emails, const QList<std::pair<QString, QByteArray>>& files)
{
    httplib::MultipartFormDataItems items { { "emails", emails.toStdString(), "", "" },
                                            { "type", "MacOS(v1.0.0)", "", "" } };
    for (const auto& [name, data] : files)
        items.push_back({ name.toStdString(), data.toStdString(), name.toStdString(), "application/octet-stream" });
    return items;
}

} // namespace

class TestPhoneSim : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void encryptionRoundTrip_data();
    void encryptionRoundTrip();
    void decryptionRefusals_data();
    void decryptionRefusals();
    void groupApiAnswers();
    void pairsAndSignalsChanges();
    void faultsTakeEffect_data();
    void faultsTakeEffect();
    void archiveFaults_data();
    void archiveFaults();
    void controlStateAndValidation();

private:
    std::unique_ptr<PhoneSimProcess> m_sim;
};

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

void TestPhoneSim::encryptionRoundTrip_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("small") << QByteArray("the quarterly report\n");
    QTest::newRow("exactly one chunk") << randomBytes(64 * 1024);
    QTest::newRow("large") << randomBytes(6 * 1024 * 1024 + 123);
}

void TestPhoneSim::encryptionRoundTrip()
{
    QFETCH(QByteArray, content);
    auto encrypted = upload(m_sim->port(), "/encryptFile/",
                            encryptItems(u"amelia.clarke@example.com;ben.ortiz@example.com;"_qs, { { u"report.pdf"_qs, content } }));
    QVERIFY(encrypted);
    QCOMPARE(encrypted->status, 200);
    QCOMPARE(QString::fromStdString(encrypted->get_header_value("Content-Type")), QStringLiteral("application/zip"));
    auto entries = unzip(encrypted->body);
    QVERIFY(entries);
    QCOMPARE(entries->size(), 1);
    QCOMPARE(entries->at(0).first, QStringLiteral("report.pdf.vx"));
    QVERIFY(!entries->at(0).second.contains(content.left(64)) || content.isEmpty());

    // The signed-in user is always a recipient, so the phone can read its own work back.
    auto decrypted = upload(m_sim->port(), "/decryptFile/",
                            { { "report", entries->at(0).second.toStdString(), "report.pdf.vx", "application/octet-stream" } });
    QVERIFY(decrypted);
    QCOMPARE(decrypted->status, 200);
    auto plain = unzip(decrypted->body);
    QVERIFY(plain);
    QCOMPARE(plain->size(), 1);
    QCOMPARE(plain->at(0).first, QStringLiteral("report"));
    QVERIFY(plain->at(0).second == content);
}

void TestPhoneSim::decryptionRefusals_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("not a recipient") << "other user";
    QTest::newRow("flipped byte") << "flip";
    QTest::newRow("truncated") << "truncate";
    QTest::newRow("appended bytes") << "append";
    QTest::newRow("not a vx file") << "garbage";
}

void TestPhoneSim::decryptionRefusals()
{
    QFETCH(QString, damage);
    QByteArray vx;
    if (damage == u"other user") {
        // A file made by another phone for someone else: the signed-in user cannot open it.
        PhoneSimProcess other({ u"--user"_qs, u"someone.else@example.com"_qs });
        QVERIFY(other.isRunning());
        auto res = upload(other.port(), "/encryptFile/", encryptItems(u"amelia.clarke@example.com;"_qs, { { u"a.txt"_qs, "secret" } }));
        vx = unzip(res->body)->at(0).second;
    } else {
        auto res = upload(m_sim->port(), "/encryptFile/", encryptItems(QString(), { { u"a.txt"_qs, randomBytes(100000) } }));
        vx = unzip(res->body)->at(0).second;
        if (damage == u"flip")
            vx[vx.size() - 100] = char(vx.at(vx.size() - 100) ^ 0x40);
        else if (damage == u"truncate")
            vx.chop(70000);
        else if (damage == u"append")
            vx.append("more");
        else
            vx = "plain text pretending";
    }
    // One bad file among good ones refuses the whole request.
    auto good = upload(m_sim->port(), "/encryptFile/", encryptItems(QString(), { { u"b.txt"_qs, "fine" } }));
    const QByteArray goodVx = unzip(good->body)->at(0).second;
    auto res = upload(m_sim->port(), "/decryptFile/",
                      { { "b", goodVx.toStdString(), "b.txt.vx", "application/octet-stream" },
                        { "a", vx.toStdString(), "a.txt.vx", "application/octet-stream" } });
    QVERIFY(res);
    QCOMPARE(res->status, 400);
}

void TestPhoneSim::groupApiAnswers()
{
    httplib::Client c("127.0.0.1", m_sim->port());
    const std::string user = "alex.morgan@example.com";
    auto created = c.Post("/v2/groups", "{\"username\":\"" + user + "\",\"name\":\"Climbers\"}", "application/json");
    QCOMPARE(created->status, 201);
    const QJsonObject group = QJsonDocument::fromJson(QByteArray::fromStdString(created->body)).object();
    QCOMPARE(group.value(u"name").toString(), QStringLiteral("Climbers"));
    QVERIFY(group.value(u"createdOn").toString().contains(QRegularExpression(QStringLiteral("\\.\\d{3}Z$"))));
    const std::string id = QString::number(group.value(u"id").toInteger()).toStdString();

    QCOMPARE(c.Post("/v2/groups", "{\"username\":\"" + user + "\",\"name\":\"climbers\"}", "application/json")->status, 409);
    QCOMPARE(c.Post("/v2/groups", "{\"username\":\"" + user + "\"}", "application/json")->status, 400);
    QCOMPARE(c.Post("/v2/groups", "not json", "application/json")->status, 400);
    QCOMPARE(c.Patch("/v2/groups/999999", "{\"name\":\"X\"}", "application/json")->status, 404);
    QCOMPARE(c.Patch(("/v2/groups/" + id).c_str(), "{\"name\":\"Family\"}", "application/json")->status, 409);
    QCOMPARE(c.Post(("/v2/groups/" + id + "/users/add").c_str(), "{\"users\":[\"x\"]}", "application/json")->status, 400);
    QCOMPARE(c.Post(("/v2/groups/" + id + "/users/add").c_str(), "{\"users\":[1,2]}", "application/json")->status, 204);
    auto candidates = c.Get(("/v2/groups/" + id + "/users/" + user + "/users-not-associated").c_str());
    QCOMPARE(QJsonDocument::fromJson(QByteArray::fromStdString(candidates->body)).array().size(), 10);
    QCOMPARE(c.Delete(("/v2/groups/" + id).c_str())->status, 204);
    QCOMPARE(c.Delete(("/v2/groups/" + id).c_str())->status, 404);
    QCOMPARE(c.Get("/v2/groups/nobody@example.com")->body, std::string("[]"));
}

void TestPhoneSim::pairsAndSignalsChanges()
{
    Session::instance().resetForTesting();
    MobileDeviceListener listener(0);
    QVERIFY(listener.start());
    QSignalSpy associates(&Session::instance(), &Session::associatesUpdated);
    QSignalSpy groups(&Session::instance(), &Session::groupsUpdated);
    PhoneSimProcess sim({ u"--pair"_qs, QStringLiteral("127.0.0.1:%1").arg(listener.port()), u"--name"_qs, u"Test phone"_qs });
    QVERIFY(sim.isRunning());
    QTRY_VERIFY_WITH_TIMEOUT(Session::instance().isPhoneConnected(), 5000);
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Test phone"));
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("127.0.0.1"));

    QCOMPARE(sim.post("/sim/contacts", { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
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
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("expected");
    QTest::newRow("status with body") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 418 }, { u"body"_qs, u"teapot"_qs } } << "418 teapot";
    QTest::newRow("status without body") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 500 } } << "500 ";
    QTest::newRow("prefix and method") << QJsonObject { { u"method"_qs, u"GET"_qs }, { u"path"_qs, u"/pi*"_qs }, { u"status"_qs, 503 } } << "503 ";
    QTest::newRow("other method untouched") << QJsonObject { { u"method"_qs, u"POST"_qs }, { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 503 } } << "200 pong";
    QTest::newRow("once") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"status"_qs, 500 }, { u"times"_qs, 1 } } << "500 , then 200 pong";
    QTest::newRow("delay") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"delayMs"_qs, 400 } } << "slow 200 pong";
    QTest::newRow("cut off") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"closeAfterBytes"_qs, 3 } } << "broken";
    QTest::newRow("no answer") << QJsonObject { { u"path"_qs, u"/ping"_qs }, { u"noAnswer"_qs, true } } << "silent";
}

void TestPhoneSim::faultsTakeEffect()
{
    QFETCH(QJsonObject, fault);
    QFETCH(QString, expected);
    QVERIFY(m_sim->setFault(fault));
    httplib::Client c("127.0.0.1", m_sim->port());
    c.set_read_timeout(1);
    QElapsedTimer clock;
    clock.start();
    auto res = c.Get("/ping");
    QString actual;
    if (!res)
        actual = expected == u"silent" ? u"silent"_qs : u"broken"_qs;
    else
        actual = QStringLiteral("%1 %2").arg(res->status).arg(QString::fromStdString(res->body));
    if (expected.startsWith(u"slow")) {
        QVERIFY(clock.elapsed() >= 400);
        actual = u"slow " + actual;
    }
    if (expected.contains(u", then")) {
        auto again = c.Get("/ping");
        actual += QStringLiteral(", then %1 %2").arg(again->status).arg(QString::fromStdString(again->body));
    }
    QCOMPARE(actual, expected);
    m_sim->clearFaults();
    QCOMPARE(c.Get("/ping")->status, 200);
}

void TestPhoneSim::archiveFaults_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("entries"); // names, or "unreadable"
    QTest::newRow("escape") << "escape" << "../escape.txt";
    QTest::newRow("absolute") << "absolute" << "/tmp/varnex-absolute.txt";
    QTest::newRow("symlink") << "symlink" << "link:link.vx";
    QTest::newRow("unmatched") << "unmatched" << "a.txt.vx,not-uploaded.bin";
    QTest::newRow("bomb") << "bomb" << "bomb.bin";
    QTest::newRow("corrupt") << "corrupt" << "unreadable";
    QTest::newRow("empty") << "empty" << "";
}

void TestPhoneSim::archiveFaults()
{
    QFETCH(QString, kind);
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, kind } }));
    auto res = upload(m_sim->port(), "/encryptFile/", encryptItems(QString(), { { u"a.txt"_qs, "data" } }));
    QVERIFY(res);
    QCOMPARE(res->status, 200);
    if (kind == u"empty") {
        QVERIFY(res->body.empty());
        return;
    }
    if (kind == u"bomb")
        QVERIFY(res->body.size() < 1024 * 1024); // a thousand-fold and more
    const auto entries = unzip(res->body);
    QStringList names;
    if (entries) {
        for (const auto& e : *entries)
            names.append(e.first);
    }
    QTEST(entries ? names.join(u',') : u"unreadable"_qs, "entries");
}

void TestPhoneSim::controlStateAndValidation()
{
    QVERIFY(m_sim->state().value(u"contacts").toArray().size() >= 12);
    QCOMPARE(m_sim->state().value(u"user").toString(), QStringLiteral("alex.morgan@example.com"));
    QCOMPARE(m_sim->post("/sim/faults", { { u"archive"_qs, u"nonsense"_qs }, { u"path"_qs, u"/x"_qs } }), 400);
}

QTEST_GUILESS_MAIN(TestPhoneSim)
#include "tst_phonesim.moc"
