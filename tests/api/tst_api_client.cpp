#include "api/NetworkClient.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"

#include <QJsonArray>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace std::chrono_literals;

namespace {

// Runs one call and waits for its single completion.
template<typename T, typename Call>
std::optional<APIResult<T>> await(Call call, int timeoutMs = 10000)
{
    std::optional<APIResult<T>> result;
    int completions = 0;
    call([&](const APIResult<T>& r) {
        result = r;
        ++completions;
    });
    if (!QTest::qWaitFor([&] { return completions > 0; }, timeoutMs))
        return std::nullopt;
    // A second completion would follow at once, from the same event loop pass or the next.
    if (QTest::qWaitFor([&] { return completions > 1; }, 100))
        return std::nullopt;
    return result;
}

const QString user = QStringLiteral("alex.morgan@example.com");

} // namespace

class TestApiClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void groupLifecycleAndWireFormat();
    void legacyGroupFormatDecodes();
    void errorStatusesOverTheWire_data();
    void errorStatusesOverTheWire();
    void transportFailures_data();
    void transportFailures();
    void baseUrlIsUsedAsStored();
    void answersForAGoneScreenAreDropped();

private:
    std::unique_ptr<PhoneSimProcess> m_sim;
    QObject m_screen;
};

void TestApiClient::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestApiClient::init()
{
    m_sim->clearFaults();
    m_sim->clearRequests();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    NetworkClient::shared().setTimeouts(NetworkClient::defaultRequestTimeout, NetworkClient::defaultResourceTimeout);
}

void TestApiClient::groupLifecycleAndWireFormat()
{
    NetworkClient& client = NetworkClient::shared();
    auto created = await<GroupPtr>([&](auto done) { client.createGroup(user, u"Book club"_qs, &m_screen, done); });
    QVERIFY(created && created->isSuccess());
    const GroupPtr group = created->value();
    QCOMPARE(group->name, QStringLiteral("Book club"));
    QCOMPARE(group->ownerEmail, user);
    QVERIFY(group->createdAt.has_value());
    QVERIFY(group->groupMembers.isEmpty());

    auto candidates = await<QList<GroupMemberModel>>(
        [&](auto done) { client.fetchUsersNotAssociated(group->id, user, &m_screen, done); });
    QVERIFY(candidates && candidates->isSuccess());
    QVERIFY(candidates->value().size() >= 10);
    const qint64 first = candidates->value().at(0).id;
    const qint64 second = candidates->value().at(1).id;

    QVERIFY(await<NoContent>([&](auto done) { client.addUsersToGroup(group->id, { first, second }, &m_screen, done); })->isSuccess());
    QVERIFY(await<NoContent>([&](auto done) { client.removeUsersFromGroup(group->id, { first }, &m_screen, done); })->isSuccess());
    auto renamed = await<GroupPtr>([&](auto done) { client.updateGroup(group->id, u"Readers"_qs, &m_screen, done); });
    QVERIFY(renamed && renamed->isSuccess());
    QCOMPARE(renamed->value()->name, QStringLiteral("Readers"));
    QCOMPARE(renamed->value()->groupMembers.size(), 1);
    QCOMPARE(renamed->value()->groupMembers.at(0).id, second);

    auto groups = await<QList<GroupPtr>>([&](auto done) { client.fetchGroups(user, &m_screen, done); });
    QVERIFY(groups && groups->isSuccess());
    QVERIFY(std::any_of(groups->value().begin(), groups->value().end(),
                        [&](const GroupPtr& g) { return g->id == group->id && g->name == u"Readers"; }));
    QVERIFY(await<NoContent>([&](auto done) { client.deleteGroup(group->id, &m_screen, done); })->isSuccess());

    // What went over the wire, call by call.
    const QJsonArray log = m_sim->requests();
    QCOMPARE(log.size(), 7);
    const QString id = QString::number(group->id);
    struct Expected
    {
        const char* method;
        QString path;
        QString body; // empty: no body
        bool accept;
    };
    const QList<Expected> expected {
        { "POST", u"/v2/groups"_qs, u"{\"name\":\"Book club\",\"username\":\"alex.morgan@example.com\"}"_qs, true },
        { "GET", u"/v2/groups/" + id + u"/users/" + user + u"/users-not-associated", {}, false },
        { "POST", u"/v2/groups/" + id + u"/users/add", QStringLiteral("{\"users\":[%1,%2]}").arg(first).arg(second), false },
        { "POST", u"/v2/groups/" + id + u"/users/remove", QStringLiteral("{\"users\":[%1]}").arg(first), false },
        { "PATCH", u"/v2/groups/" + id, u"{\"name\":\"Readers\"}"_qs, false },
        { "GET", u"/v2/groups/" + user, {}, false },
        { "DELETE", u"/v2/groups/" + id, {}, false },
    };
    for (int i = 0; i < expected.size(); ++i) {
        const QJsonObject r = log.at(i).toObject();
        const QJsonObject headers = r.value(u"headers").toObject();
        QCOMPARE(r.value(u"method").toString(), QString::fromLatin1(expected.at(i).method));
        QCOMPARE(r.value(u"path").toString(), expected.at(i).path);
        QCOMPARE(r.value(u"query").toString(), QString());
        QCOMPARE(r.value(u"body").toString(), expected.at(i).body);
        QCOMPARE(headers.value(u"content-type").toString(),
                 expected.at(i).body.isEmpty() ? QString() : QStringLiteral("application/json"));
        if (expected.at(i).accept)
            QCOMPARE(headers.value(u"accept").toString(), QStringLiteral("application/json"));
    }
}

void TestApiClient::legacyGroupFormatDecodes()
{
    QCOMPARE(m_sim->post("/sim/settings", QJsonObject { { u"legacyGroups"_qs, true } }), 200);
    auto groups = await<QList<GroupPtr>>([&](auto done) { NetworkClient::shared().fetchGroups(user, &m_screen, done); });
    QCOMPARE(m_sim->post("/sim/settings", QJsonObject { { u"legacyGroups"_qs, false } }), 200);
    QVERIFY(groups && groups->isSuccess());
    QVERIFY(!groups->value().isEmpty());
    const GroupPtr family = groups->value().at(0);
    QCOMPARE(family->groupMembers.size(), 2); // from "members"
    QVERIFY(family->createdAt.has_value());   // from epoch milliseconds
    QVERIFY(family->createdAt->daysTo(QDateTime::currentDateTimeUtc()) >= 29);
}

void TestApiClient::errorStatusesOverTheWire_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("body"); // "-": no body
    QTest::addColumn<QString>("description");
    // Judged by the status whatever error kind Qt gives it (400 and 418 arrive as protocol
    // errors, 407 as a proxy error): a body that is no group is a decoding failure first.
    QTest::newRow("400 message on a record") << "create" << 400 << "{\"message\":\"Name too long\"}" << "decoding";
    QTest::newRow("400 with a group on a record") << "create" << 400 << "{\"id\":7,\"name\":\"X\",\"ownerEmail\":\"a@b\"}" << "ok";
    QTest::newRow("400 bare on a list") << "fetch" << 400 << "-" << "Bad request: Bad request";
    QTest::newRow("400 on delete succeeds") << "delete" << 400 << "{\"message\":\"x\"}" << "ok";
    QTest::newRow("407 bare on a record") << "update" << 407 << "-" << "HTTP error 407";
    QTest::newRow("407 on a list") << "candidates" << 407 << "-" << "HTTP error 407";
    QTest::newRow("407 on add succeeds") << "add" << 407 << "-" << "ok";
    QTest::newRow("418 bare on a list") << "fetch" << 418 << "-" << "HTTP error 418";
    QTest::newRow("418 on a record") << "create" << 418 << "-" << "HTTP error 418";
    QTest::newRow("418 on delete succeeds") << "delete" << 418 << "-" << "ok";
    QTest::newRow("400 bare") << "create" << 400 << "-" << "Bad request: Bad request";
    QTest::newRow("401") << "fetch" << 401 << "-" << "Not authenticated. Please scan QR code with iOS app first.";
    // A body that is not the expected record fails decoding before the status is looked at.
    QTest::newRow("401 with a message") << "fetch" << 401 << "{\"message\":\"expired\"}" << "decoding";
    QTest::newRow("403") << "update" << 403 << "-" << "Not authenticated. Please scan QR code with iOS app first.";
    QTest::newRow("404") << "update" << 404 << "-" << "Not found: Resource not found";
    QTest::newRow("409") << "create" << 409 << "-" << "Conflict: A group with this name already exists";
    QTest::newRow("502") << "fetch" << 502 << "-" << "HTTP error 502";
    QTest::newRow("500 null on a list") << "fetch" << 500 << "null" << "decoding";
    QTest::newRow("error object on a record") << "create" << 200 << "{\"error\":\"nope\"}" << "decoding";
    QTest::newRow("200 null on a list") << "candidates" << 200 << "null" << "ok";
    QTest::newRow("404 on delete succeeds") << "delete" << 404 << "-" << "ok";
    QTest::newRow("500 on add succeeds") << "add" << 500 << "{\"message\":\"x\"}" << "ok";
}

void TestApiClient::errorStatusesOverTheWire()
{
    QFETCH(QString, operation);
    QFETCH(int, status);
    QFETCH(QString, body);
    QJsonObject fault { { u"path"_qs, u"/v2/groups*"_qs }, { u"status"_qs, status } };
    if (body != u"-")
        fault.insert(u"body"_qs, body);
    QVERIFY(m_sim->setFault(fault));

    NetworkClient& client = NetworkClient::shared();
    QString outcome;
    auto describe = [&](const auto& result) {
        if (result.isSuccess())
            outcome = QStringLiteral("ok");
        else if (result.error().kind() == APIError::Kind::decodingError)
            outcome = QStringLiteral("decoding");
        else
            outcome = result.error().description();
    };
    if (operation == u"create")
        describe(*await<GroupPtr>([&](auto done) { client.createGroup(user, u"X"_qs, &m_screen, done); }));
    else if (operation == u"update")
        describe(*await<GroupPtr>([&](auto done) { client.updateGroup(1, u"X"_qs, &m_screen, done); }));
    else if (operation == u"fetch")
        describe(*await<QList<GroupPtr>>([&](auto done) { client.fetchGroups(user, &m_screen, done); }));
    else if (operation == u"candidates")
        describe(*await<QList<GroupMemberModel>>([&](auto done) { client.fetchUsersNotAssociated(1, user, &m_screen, done); }));
    else if (operation == u"delete")
        describe(*await<NoContent>([&](auto done) { client.deleteGroup(1, &m_screen, done); }));
    else
        describe(*await<NoContent>([&](auto done) { client.addUsersToGroup(1, { 1 }, &m_screen, done); }));
    QTEST(outcome, "description");
}

void TestApiClient::transportFailures_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<bool>("noContentCall");
    QTest::newRow("cut off mid-body, list") << "cut" << false;
    QTest::newRow("cut off mid-body, delete") << "cut" << true;
    QTest::newRow("slow answer, list") << "slow" << false;
    QTest::newRow("slow answer, delete") << "slow" << true;
    QTest::newRow("whole exchange too long, list") << "long" << false;
    QTest::newRow("whole exchange too long, delete") << "long" << true;
    QTest::newRow("connection refused, list") << "refused" << false;
    QTest::newRow("connection refused, delete") << "refused" << true;
}

void TestApiClient::transportFailures()
{
    QFETCH(QString, fault);
    QFETCH(bool, noContentCall);
    if (fault == u"cut")
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/v2/groups*"_qs }, { u"closeAfterBytes"_qs, 5 } }));
    if (fault == u"slow") {
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/v2/groups*"_qs }, { u"delayMs"_qs, 1500 } }));
        NetworkClient::shared().setTimeouts(300ms, 10s);
    }
    if (fault == u"long") {
        // Bytes keep the transfer alive; only the timer over the whole exchange ends it.
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/v2/groups*"_qs }, { u"delayMs"_qs, 3000 } }));
        NetworkClient::shared().setTimeouts(10s, 500ms);
    }
    if (fault == u"refused") {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close(); // nothing listens there any more
        Settings::setString(Settings::baseUrlKey, QStringLiteral("http://127.0.0.1:%1/").arg(port));
    }
    std::optional<APIError> error;
    if (noContentCall) {
        auto r = await<NoContent>([&](auto done) { NetworkClient::shared().deleteGroup(1, &m_screen, done); });
        QVERIFY(r && !r->isSuccess());
        error = r->error();
    } else {
        auto r = await<QList<GroupPtr>>([&](auto done) { NetworkClient::shared().fetchGroups(user, &m_screen, done); });
        QVERIFY(r && !r->isSuccess());
        error = r->error();
    }
    QCOMPARE(error->kind(), APIError::Kind::networkError);
    QVERIFY(error->description().startsWith(u"Network error: "));
    QVERIFY(error->description().size() > 15);
    if (fault == u"long")
        QCOMPARE(error->description(), QStringLiteral("Network error: The request timed out."));
}

void TestApiClient::baseUrlIsUsedAsStored()
{
    Settings::open()->remove(QString::fromLatin1(Settings::baseUrlKey));
    int calls = 0;
    NetworkClient& client = NetworkClient::shared();
    auto expectNotAuthenticated = [&calls](const auto& result) {
        ++calls;
        QCOMPARE(result.error().description(), QStringLiteral("Not authenticated. Please scan QR code with iOS app first."));
    };
    client.createGroup(user, u"X"_qs, &m_screen, expectNotAuthenticated);
    client.fetchGroups(user, &m_screen, expectNotAuthenticated);
    client.updateGroup(1, u"X"_qs, &m_screen, expectNotAuthenticated);
    client.deleteGroup(1, &m_screen, expectNotAuthenticated);
    client.fetchUsersNotAssociated(1, user, &m_screen, expectNotAuthenticated);
    client.addUsersToGroup(1, { 1 }, &m_screen, expectNotAuthenticated);
    client.removeUsersFromGroup(1, { 1 }, &m_screen, expectNotAuthenticated);
    QCOMPARE(calls, 7); // synchronously, on this thread
    QVERIFY(!QTest::qWaitFor([&] { return !m_sim->requests().isEmpty(); }, 1000));

    // Without the final "/", the path is glued on as it is.
    Settings::setString(Settings::baseUrlKey, QStringLiteral("http://127.0.0.1:%1/api").arg(m_sim->port()));
    QVERIFY(await<QList<GroupPtr>>([&](auto done) { client.fetchGroups(user, &m_screen, done); }));
    QCOMPARE(m_sim->requests().at(0).toObject().value(u"path").toString(), u"/apiv2/groups/" + user);
}

void TestApiClient::answersForAGoneScreenAreDropped()
{
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/v2/groups*"_qs }, { u"delayMs"_qs, 200 } }));
    auto* screen = new QObject;
    int calls = 0;
    NetworkClient::shared().fetchGroups(user, screen, [&calls](const auto&) { ++calls; });
    delete screen;
    QTRY_COMPARE_WITH_TIMEOUT(m_sim->requests().size(), 1, 3000);
    // The answer comes 0.2 s later; the deadline leaves it ample time to be (wrongly) delivered.
    QVERIFY(!QTest::qWaitFor([&calls] { return calls > 0; }, 1500));
}

QTEST_GUILESS_MAIN(TestApiClient)
#include "tst_api_client.moc"
