#include "pairing/tst_listener.h"

#include "app/Session.h"
#include "app/Settings.h"
#include "common/LogCapture.h"
#include "pairing/ListenerRequestHandler.h"
#include "pairing/MobileDeviceListener.h"

#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

#include <httplib.h>

#include <thread>
#include <vector>


void TestListener::init()
{
    Settings::open()->clear();
    Session::instance().resetForTesting();
    m_listener = std::make_unique<MobileDeviceListener>(0);
    QVERIFY(m_listener->start());
    QVERIFY(m_listener->port() > 0);
}

httplib::Result TestListener::post(const char* path, const std::string& body, httplib::Headers headers)
{
    httplib::Client client("127.0.0.1", m_listener->port());
    client.set_connection_timeout(5);
    return client.Post(path, headers, body, "application/json");
}

void TestListener::pairingExtraction_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QString>("ip");
    QTest::addColumn<QString>("name");
    QTest::newRow("all members")
        << QByteArray(R"({"ip":"10.0.0.7","mobileDeviceName":"Ann’s phone","email":"a@b.c","baseURL":"http://10.0.0.7:8080/"})")
        << true << "10.0.0.7" << "Ann’s phone";
    QTest::newRow("pretty printed") << QByteArray("{\n  \"ip\" : \"1.2.3.4\"\n}\n") << true << "1.2.3.4" << "";
    QTest::newRow("no members") << QByteArray("{}") << true << "" << "";
    QTest::newRow("non-string members") << QByteArray(R"({"ip":5,"mobileDeviceName":null})") << true << "" << "";
    QTest::newRow("text before object") << QByteArray(R"(x={"ip":"1.1.1.1"})") << true << "1.1.1.1" << "";
    QTest::newRow("array of objects") << QByteArray(R"([{"ip":"1.1.1.1"}])") << false << "" << "";
    QTest::newRow("array") << QByteArray(R"(["a"])") << false << "" << "";
    QTest::newRow("nested object") << QByteArray(R"({"ip":"1.1.1.1","x":{"y":1}})") << false << "" << "";
    // Only a "{" cuts the text, so an array of plain values slips through, as it always has.
    QTest::newRow("array of scalars") << QByteArray(R"({"ip":"1.1.1.1","x":[1]})") << true << "1.1.1.1" << "";
    QTest::newRow("array of objects inside") << QByteArray(R"({"ip":"1.1.1.1","x":[{}]})") << false << "" << "";
    QTest::newRow("brace in string") << QByteArray(R"({"ip":"1.{1"})") << false << "" << "";
    QTest::newRow("no brace") << QByteArray("ip=1.1.1.1") << false << "" << "";
    QTest::newRow("empty") << QByteArray() << false << "" << "";
    QTest::newRow("only brace") << QByteArray("{") << false << "" << "";
    QTest::newRow("not json") << QByteArray("{ip:1}") << false << "" << "";
    QTest::newRow("trailing text") << QByteArray(R"({"ip":"1"} tail)") << false << "" << "";
}

void TestListener::pairingExtraction()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, accepted);
    const auto message = parsePairingMessage("POST", "/myInformation", body);
    QCOMPARE(message.has_value(), accepted);
    if (message) {
        QTEST(message->ip, "ip");
        QTEST(message->mobileDeviceName, "name");
    }
}

void TestListener::routing_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<int>("status");
    QTest::newRow("pairing") << QByteArray("POST") << QByteArray("/myInformation") << 200;
    QTest::newRow("associates") << QByteArray("POST") << QByteArray("/updateAssociates") << 200;
    QTest::newRow("groups") << QByteArray("POST") << QByteArray("/updateGroups") << 200;
    QTest::newRow("GET pairing") << QByteArray("GET") << QByteArray("/myInformation") << 404;
    QTest::newRow("PUT groups") << QByteArray("PUT") << QByteArray("/updateGroups") << 404;
    QTest::newRow("unknown path") << QByteArray("POST") << QByteArray("/myInformation/") << 404;
}

void TestListener::routing()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    ListenerRequest request { method, path, QByteArrayLiteral("{}") };
    QTEST(handleListenerRequest(request).status, "status");
}

void TestListener::pairingOverHttp()
{
    QSignalSpy connected(&Session::instance(), &Session::phoneConnectedChanged);
    LogCapture log;
    auto res = post("/myInformation",
                    R"({"ip":"10.0.0.7","mobileDeviceName":"My phone","email":"ann@example.com","baseURL":"http://10.0.0.7:8080/"})");
    QVERIFY(res);
    QCOMPARE(res->status, 200);
    QVERIFY(res->body.empty());
    Session& session = Session::instance();
    QCOMPARE(session.phoneIPAddress(), QStringLiteral("10.0.0.7"));
    QCOMPARE(session.mobileDeviceName(), QStringLiteral("My phone"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://10.0.0.7:8080/"));
    QVERIFY(session.isPhoneConnected());
    QTRY_COMPARE(connected.size(), 1);
    QCOMPARE(log.lines(), QStringList { QStringLiteral("[BaseUrlStore] ✅ Base URL set: http://10.0.0.7:8080/") });
}

void TestListener::emptyEmailKeepsStoredOneAndMissingIpEmptiesAddress()
{
    QCOMPARE(post("/myInformation", R"({"ip":"10.0.0.7","email":"ann@example.com"})")->status, 200);
    QCOMPARE(post("/myInformation", R"({"mobileDeviceName":"Other","email":""})")->status, 200);
    QCOMPARE(Session::instance().phoneIPAddress(), QString());
    QCOMPARE(Session::instance().mobileDeviceName(), QStringLiteral("Other"));
    QCOMPARE(Settings::string(Settings::userEmailKey), QStringLiteral("ann@example.com"));
}

void TestListener::invalidBaseUrlKeepsOldOneButStillPairs()
{
    Settings::setString(Settings::baseUrlKey, QStringLiteral("http://old:8080/"));
    LogCapture log;
    QCOMPARE(post("/myInformation", R"({"ip":"1.2.3.4","baseURL":"http://new host/"})")->status, 200);
    QCOMPARE(Settings::string(Settings::baseUrlKey), QStringLiteral("http://old:8080/"));
    QVERIFY(Session::instance().isPhoneConnected());
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("1.2.3.4"));
    QCOMPARE(log.lines(), QStringList { QStringLiteral("[BaseUrlStore] ❌ ERROR: Invalid URL format: http://new host/") });
}

void TestListener::refusedBodiesChangeNothing_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("array") << QByteArray(R"([{"ip":"9.9.9.9"}])");
    QTest::newRow("nested") << QByteArray(R"({"ip":"9.9.9.9","n":{"a":1}})");
    QTest::newRow("no brace") << QByteArray("hello");
}

void TestListener::refusedBodiesChangeNothing()
{
    QFETCH(QByteArray, body);
    Session::instance().setPhoneIPAddress(QStringLiteral("1.1.1.1"));
    auto res = post("/myInformation", body.toStdString());
    QCOMPARE(res->status, 400);
    QVERIFY(res->body.empty());
    QVERIFY(!Session::instance().isPhoneConnected());
    QCOMPARE(Session::instance().phoneIPAddress(), QStringLiteral("1.1.1.1"));
}

void TestListener::changeSignalsMoveOnlyTheirStamp()
{
    Session& session = Session::instance();
    const QDateTime groups = session.groupsUpdatedAt();
    const QDateTime associates = session.associatesUpdatedAt();
    QSignalSpy groupsSpy(&session, &Session::groupsUpdated);
    QTest::qWait(5); // let the clock move past the initial stamps
    QCOMPARE(post("/updateGroups", "anything at all [{")->status, 200);
    QTRY_COMPARE(groupsSpy.size(), 1);
    QVERIFY(session.groupsUpdatedAt() > groups);
    QCOMPARE(session.associatesUpdatedAt(), associates);

    const QDateTime groupsAfter = session.groupsUpdatedAt();
    QCOMPARE(post("/updateAssociates", "")->status, 200);
    QVERIFY(session.associatesUpdatedAt() > associates);
    QCOMPARE(session.groupsUpdatedAt(), groupsAfter);
    QVERIFY(!session.isPhoneConnected());

    httplib::Client client("127.0.0.1", m_listener->port());
    QCOMPARE(client.Get("/updateGroups")->status, 404);
    QCOMPARE(session.groupsUpdatedAt(), groupsAfter);
}

void TestListener::abuseIsRefused()
{
    auto fromPage = post("/myInformation", R"({"ip":"6.6.6.6"})", { { "Origin", "http://evil.example" } });
    QCOMPARE(fromPage->status, 403);
    const std::string huge = "{\"ip\":\"6.6.6.6\",\"pad\":\"" + std::string(70 * 1024, 'x') + "\"}";
    QCOMPARE(post("/myInformation", huge)->status, 413);

    // A body of unknown length is refused too, however small, from its head alone.
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), m_listener->port());
    QVERIFY(socket.waitForConnected(3000));
    socket.write("POST /myInformation HTTP/1.1\r\nHost: desktop\r\nTransfer-Encoding: chunked\r\n\r\n");
    QByteArray answer;
    QTRY_VERIFY((answer += socket.readAll()).contains("\r\n"));
    QVERIFY2(answer.startsWith("HTTP/1.1 413"), answer.constData());
    QVERIFY(!Session::instance().isPhoneConnected());
    QCOMPARE(Session::instance().phoneIPAddress(), QString());
}

void TestListener::malformedRequestsDoNotHurtIt()
{
    const QList<QByteArray> garbage {
        QByteArray("\x00\x01\x02\xff garbage\r\n\r\n", 17),
        QByteArrayLiteral("POST /myInformation HTTP/1.1\r\nContent-Length: -5\r\n\r\n{}"),
        QByteArrayLiteral("POST /myInformation HTTP/1.1\r\nContent-Length: 10\r\n\r\n{\"i"), // cut short
        QByteArrayLiteral("GET / HTTP/9.9\r\n" "X: " "\r\n\r\n"),
        QByteArray(20000, 'A') + "\r\n\r\n",
    };
    for (const QByteArray& bytes : garbage) {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), m_listener->port());
        QVERIFY(socket.waitForConnected(3000));
        socket.write(bytes);
        socket.flush();
        socket.waitForBytesWritten(1000);
        socket.disconnectFromHost();
    }
    QVERIFY(!Session::instance().isPhoneConnected());
    QCOMPARE(post("/myInformation", R"({"ip":"1.2.3.4"})")->status, 200);
}

void TestListener::concurrentRequests()
{
    std::vector<std::thread> clients;
    std::atomic<int> ok { 0 };
    for (int i = 0; i < 8; ++i) {
        clients.emplace_back([this, i, &ok] {
            httplib::Client client("127.0.0.1", m_listener->port());
            for (int n = 0; n < 25; ++n) {
                const std::string body = "{\"ip\":\"10.0." + std::to_string(i) + "." + std::to_string(n) + "\"}";
                auto res = client.Post(n % 2 ? "/myInformation" : "/updateGroups", body, "application/json");
                if (res && res->status == 200)
                    ++ok;
            }
        });
    }
    for (auto& c : clients)
        c.join();
    QCOMPARE(ok.load(), 200);
    QVERIFY(Session::instance().phoneIPAddress().startsWith(u"10.0."));
}

void TestListener::busyPortIsReportedAndTolerated()
{
    LogCapture log;
    MobileDeviceListener second(m_listener->port());
    QVERIFY(!second.start());
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().at(0).contains(QString::number(m_listener->port())));
    QCOMPARE(post("/updateGroups", "")->status, 200);
}

QTEST_GUILESS_MAIN(TestListener)
