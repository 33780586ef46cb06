#include "api/AnswerJudging.h"
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "api/RecordDecoding.h"
#include "api/ReplyCap.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/LogCapture.h"
#include "common/PhoneSimProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTest>

using namespace std::chrono_literals;

namespace {

// What a call's result comes to, for comparing with a table: "ok", "decoding" for a body
// that did not decode, otherwise the text the user reads.
template <typename T> QString outcomeOf(const APIResult<T>& result)
{
    if (result.isSuccess())
        return QStringLiteral("ok");
    const APIError& error = result.error();
    if (error.kind() == APIError::Kind::decodingError && error.description().startsWith(u"Decoding error: "))
        return QStringLiteral("decoding");
    return error.description();
}

// Runs one call and waits for its single completion: what it came to, or "no single answer".
template <typename T, typename Call> QString called(Call call)
{
    std::optional<APIResult<T>> result;
    int completions = 0;
    call([&](const APIResult<T>& r) {
        result = r;
        ++completions;
    });
    // A second completion would follow at once, from the same event loop pass or the next.
    if (!QTest::qWaitFor([&] { return completions > 0; }, 10000)
        || QTest::qWaitFor([&] { return completions > 1; }, 100))
        return u"no single answer"_qs;
    return outcomeOf(*result);
}

const QString user = QStringLiteral("alex.morgan@example.com");

// A readable answer of exactly `size` bytes: one user, or one group, whose name fills it. (The
// simulator compresses it: what counts is what it comes to.)
QString answerOf(const char* call, qint64 size)
{
    const bool users = qstrcmp(call, "users") == 0;
    const QString head = users ? uR"({"getUsers":[{"firstName":")"_qs : uR"([{"id":1,"name":")"_qs;
    const QString tail = users ? uR"(","email":"a@x"}]})"_qs : uR"("}])"_qs;
    return head + QString(size - head.size() - tail.size(), u'x') + tail;
}
const QString notAuthenticated = QStringLiteral("Not authenticated. Please scan QR code with iOS app first.");
const QString tooLarge = QStringLiteral("Network error: The answer is too large.");

} // namespace

// The group API: bodies and answers judged without sockets, then every call against the phone
// simulator over real sockets.
class TestApi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void groupDecoding_data();
    void groupDecoding();
    void answerJudging_data();
    void answerJudging();
    void usersDecoding_data();
    void usersDecoding();
    void wireFormat_data();
    void wireFormat();
    void failedExchanges_data();
    void failedExchanges();
    void baseUrlIsUsedAsStored();
    void answersForAGoneScreenAreDropped();

private:
    // Runs the call of that name once: "ok", or what its failure comes to.
    QString call(const QString& name);

    std::unique_ptr<PhoneSimProcess> m_sim;
    NetworkClient m_client;
    qint64 m_replyCap = ReplyCap::maxReplyBytes;
    QObject m_screen;
};

void TestApi::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestApi::init()
{
    m_sim->clearFaults();
    m_sim->clearRequests();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    m_client.setTimeouts(NetworkClient::defaultRequestTimeout, NetworkClient::defaultResourceTimeout);
}

void TestApi::groupDecoding_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("group"); // "id name [member id:e-mail...] createdAt msecs", or "refused"
    const auto row = [](const char* tag, const QByteArray& body, const char* group) {
        QTest::newRow(tag) << body << QString::fromUtf8(group);
    };
    const auto withA
        = [](const QByteArray& members) -> QByteArray { return "{\"id\":5,\"name\":\"A\"" + members + "}"; };
    const QByteArray ann = R"({"id":1,"fullName":"Ann Lee","email":"ann@x.org"})";
    const QByteArray bo = R"({"id":2,"fullName":"Bo Chan","email":"bo@x.org","phoneNumber":null})";
    // "groupMembers" when it is a list, else "members"; one bad member leaves the group none.
    row("groupMembers", withA(",\"groupMembers\":[" + ann + "]"), "5 A [1:ann@x.org] -");
    row("members only", withA(",\"members\":[" + bo + "]"), "5 A [2:bo@x.org] -");
    row("both", withA(",\"groupMembers\":[" + ann + "],\"members\":[" + bo + "]"), "5 A [1:ann@x.org] -");
    row("empty groupMembers", withA(",\"groupMembers\":[],\"members\":[" + bo + "]"), "5 A [] -");
    row("null groupMembers", withA(",\"groupMembers\":null,\"members\":[" + bo + "]"), "5 A [2:bo@x.org] -");
    row("bad member", withA(",\"groupMembers\":[" + ann + R"(,{"id":3,"fullName":"No Mail"}])"), "5 A [] -");
    row("no members", withA(""), "5 A [] -");
    // An unreadable date never fails the group.
    row("date with fraction", withA(R"(,"createdOn":"2024-03-05T14:07:31.250Z")"), "5 A [] 1709647651250");
    row("date", withA(R"(,"createdOn":"2024-03-05T14:07:31Z")"), "5 A [] 1709647651000");
    row("date with offset", withA(R"(,"createdOn":"2024-03-05T15:07:31+01:00")"), "5 A [] 1709647651000");
    row("epoch milliseconds", withA(R"(,"createdOn":1709647651250)"), "5 A [] 1709647651250");
    row("not a date", withA(R"(,"createdOn":"next tuesday")"), "5 A [] -");
    row("date without zone", withA(R"(,"createdOn":"2024-03-05T14:07:31")"), "5 A [] -");
    row("day only", withA(R"(,"createdOn":"2024-03-05")"), "5 A [] -");
    row("null date", withA(R"(,"createdOn":null)"), "5 A [] -");
    row("boolean date", withA(R"(,"createdOn":true)"), "5 A [] -");
    row("username", withA(R"(,"username":"me@x.org")"), "5 A [] -");
    row("null username", withA(R"(,"username":null)"), "5 A [] -");
    row("number username", withA(R"(,"username":5)"), "refused");
    row("no id", R"({"name":"G"})", "refused");
    row("string id", R"({"id":"7","name":"G"})", "refused");
    row("fraction id", R"({"id":7.5,"name":"G"})", "refused");
    row("no name", R"({"id":7})", "refused");
    row("error object", R"({"message":"nope"})", "refused");
    row("array", "[]", "refused");
    row("not json", "<html>", "refused");
    // Ids stay exact in 64 bits, in groups, members and request bodies.
    const auto withId = [](const QByteArray& id) -> QByteArray {
        return "{\"id\":" + id + ",\"name\":\"G\",\"groupMembers\":[{\"id\":" + id
            + ",\"fullName\":\"M\",\"email\":\"m@x\"}]}";
    };
    row("id 2^53 + 1", withId("9007199254740993"), "9007199254740993 G [9007199254740993:m@x] -");
    row("largest id", withId("9223372036854775807"), "9223372036854775807 G [9223372036854775807:m@x] -");
    row("negative id", withId("-9007199254740995"), "-9007199254740995 G [-9007199254740995:m@x] -");
    row("id beyond 64 bits", withId("18446744073709551616"), "refused");
}

void TestApi::groupDecoding()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, group);
    const auto decoded = RecordDecoding::groupBody(body);
    // One bad element fails a whole list.
    if (!body.startsWith('['))
        QCOMPARE(std::holds_alternative<QList<GroupPtr>>(
                     RecordDecoding::groupListBody("[{\"id\":1,\"name\":\"A\"}," + body + "]")),
            group != u"refused");
    if (!std::holds_alternative<GroupPtr>(decoded)) {
        QCOMPARE(u"refused"_qs, group);
        return;
    }
    const GroupModel& g = *std::get<GroupPtr>(decoded);
    QStringList members;
    for (const GroupMemberModel& member : g.groupMembers)
        members.append(QString::number(member.id) + u':' + member.email);
    const QString created = g.createdAt ? QString::number(g.createdAt->toMSecsSinceEpoch()) : u"-"_qs;
    QCOMPARE(QStringLiteral("%1 %2 [%3] %4").arg(g.id).arg(g.name, members.join(u' '), created), group);
    QCOMPARE(QJsonDocument(AddUsersToGroupRequest { { g.id } }.toJson()).toJson(QJsonDocument::Compact),
        "{\"users\":[" + QByteArray::number(g.id) + "]}");
}

void TestApi::answerJudging_data()
{
    QTest::addColumn<QString>("call"); // mapFailure, or the judging of a record, a list or no content
    QTest::addColumn<int>("status"); // 0: no answer
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("outcome"); // "ok N" (the id or the count), "decoding" or what the user reads
    const auto row = [](const char* tag, const char* call, int status, const QByteArray& body,
                         const char* failure, const char* outcome) {
        QTest::newRow(tag) << QString::fromUtf8(call) << status << body << QString::fromUtf8(failure)
                           << QString::fromUtf8(outcome);
    };
    const char* notAuthenticated = "Not authenticated. Please scan QR code with iOS app first.";
    row("400 message", "map", 400, R"({"message":"Name missing"})", "", "Bad request: Name missing");
    row("400 error member", "map", 400, R"({"error":"Oops"})", "", "Bad request: Oops");
    row("400 message wins", "map", 400, R"({"error":"E","message":"M"})", "", "Bad request: M");
    row("400 non-string message", "map", 400, R"({"message":5})", "", R"(Bad request: {"message":5})");
    row("400 plain text", "map", 400, "plain words", "", "Bad request: plain words");
    row("400 no body", "map", 400, "", "", "Bad request: Bad request");
    row("400 not UTF-8", "map", 400, "\xff\xfe", "", "Bad request: Bad request");
    row("401", "map", 401, R"({"message":"x"})", "", notAuthenticated);
    row("403", "map", 403, "", "", notAuthenticated);
    row("404", "map", 404, "", "", "Not found: Resource not found");
    row("404 message", "map", 404, R"({"message":"Group 9"})", "", "Not found: Group 9");
    row("409", "map", 409, "", "", "Conflict: A group with this name already exists");
    row("409 message", "map", 409, R"({"message":"Taken"})", "", "Conflict: Taken");
    row("418 drops message", "map", 418, R"({"message":"tea"})", "", "HTTP error 418");
    row("599", "map", 599, "", "", "HTTP error 599");
    row("302 with failure", "map", 302, "", "cut", "Network error: cut");
    row("600 without failure", "map", 600, "", "", "Invalid response from server");
    row("no answer", "map", 0, "", "Connection refused", "Network error: Connection refused");
    row("nothing at all", "map", 0, "", "", "Invalid response from server");
    const QByteArray group = R"({"id":1,"name":"A"})";
    row("record 201", "record", 201, group, "", "ok 1");
    row("record decodes whatever the status", "record", 500, group, "", "ok 1");
    row("record error object", "record", 409, R"({"message":"Taken"})", "", "decoding");
    row("record 409 empty", "record", 409, "", "", "Conflict: A group with this name already exists");
    row("record 200 empty", "record", 200, "", "",
        "Network error: Response could not be serialized, input data was nil or zero length.");
    row("record cut off", "record", 200, group, "The network connection was lost.",
        "Network error: The network connection was lost.");
    row("list null 200", "list", 200, "null", "", "ok 0");
    row("list [] 200", "list", 200, "[]", "", "ok 0");
    row("list empty 200", "list", 200, "", "", "ok 0");
    row("list blank 200", "list", 200, " \n\t\r\n", "", "ok 0");
    row("list of two", "list", 200, "[" + group + "," + group + "]", "", "ok 2");
    row("list 500 empty", "list", 500, "", "", "HTTP error 500");
    row("list 500 null", "list", 500, "null", "", "decoding");
    row("list object 200", "list", 200, "{}", "", "decoding");
    row("list 401 message", "list", 401, R"({"message":"expired"})", "", "decoding");
    row("no content 404", "none", 404, R"({"message":"x"})", "", "ok 0");
    row("no content 500", "none", 500, "", "", "ok 0");
    row("no content cut off", "none", 200, "", "cut", "Network error: cut");
}

void TestApi::answerJudging()
{
    QFETCH(QString, call);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, failure);
    const Exchange exchange { status ? std::optional(status) : std::nullopt,
        status ? std::optional(body) : std::nullopt,
        failure.isEmpty() ? std::nullopt : std::optional(failure) };
    QString outcome;
    const auto judged = [&outcome](const auto& result, auto count) {
        outcome = outcomeOf(result);
        if (result.isSuccess())
            outcome += u' ' + QString::number(count(result.value()));
    };
    if (call == u"map")
        outcome = AnswerJudging::mapFailure(exchange.status, exchange.body, exchange.failure).description();
    else if (call == u"record")
        judged(AnswerJudging::judgeRecord(exchange), [](const GroupPtr& g) { return g->id; });
    else if (call == u"list")
        judged(AnswerJudging::judgeGroupList(exchange), [](const QList<GroupPtr>& l) { return l.size(); });
    else
        judged(AnswerJudging::judgeNoContent(exchange), [](const NoContent&) { return 0; });
    QTEST(outcome, "outcome");
}

void TestApi::usersDecoding_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("users"); // "first|last|e-mail|phone" each; "unreadable"; "no list"
    QTest::newRow("two") << QByteArray(R"({"getUsers":[{"firstName":"Ann","lastName":"Lee","email":"a@x",)"
                                       R"("phone":"1"},{"firstName":"Bo","email":"b@x"}]})")
                         << u"Ann|Lee|a@x|1 Bo||b@x|"_qs; // a missing field is empty
    QTest::newRow("not objects, not strings") << QByteArray(R"({"getUsers":[5,{"phone":7}]})") << u"|||"_qs;
    QTest::newRow("no getUsers") << QByteArray(R"({"users":[{"email":"a@x"}]})") << QString();
    QTest::newRow("JSON but no object: nothing changes") << QByteArray("[1]") << u"no list"_qs;
    QTest::newRow("not JSON") << QByteArray("not json") << u"unreadable"_qs;
}

void TestApi::usersDecoding()
{
    QFETCH(QByteArray, body);
    const UsersReply reply = RecordDecoding::usersBody(body);
    QStringList users;
    for (const UserPtr& u : reply.users.value_or(QList<UserPtr>()))
        users.append(QStringList { *u->firstName, *u->lastName, *u->email, *u->phone }.join(u'|'));
    QTEST(!reply.readable ? u"unreadable"_qs : !reply.users ? u"no list"_qs : users.join(u' '), "users");
}

QString TestApi::call(const QString& name)
{
    if (name == u"users") { // the phone's own service: "ok" or "unreadable"
        Session session(m_sim->port());
        session.setPhone(u"127.0.0.1"_qs, {});
        PhoneServiceClient phone(session);
        phone.setReplyCap(m_replyCap);
        std::optional<UsersReply> reply;
        phone.fetchUsers(10s, &m_screen, [&](const UsersReply& r) { reply = r; });
        if (!QTest::qWaitFor([&] { return reply.has_value(); }, 10000))
            return u"no answer"_qs;
        return reply->readable ? u"ok"_qs : u"unreadable"_qs;
    }
    if (name == u"ping") { // the watchdog's: any status is an answer
        Session session(m_sim->port());
        session.setPhone(u"127.0.0.1"_qs, {});
        std::optional<std::optional<int>> status;
        PhoneServiceClient phone(session);
        phone.ping(10s, &m_screen, [&](std::optional<int> s) { status = s; });
        if (!QTest::qWaitFor([&] { return status.has_value(); }, 10000) || !*status)
            return u"no answer"_qs;
        return QString::number(**status);
    }
    NetworkClient& client = m_client;
    if (name == u"create")
        return called<GroupPtr>(
            [&](auto done) { client.createGroup(user, u"Book club"_qs, &m_screen, done); });
    if (name == u"update")
        return called<GroupPtr>([&](auto done) { client.updateGroup(999999, u"X"_qs, &m_screen, done); });
    if (name == u"fetch")
        return called<QList<GroupPtr>>([&](auto done) { client.fetchGroups(user, &m_screen, done); });
    if (name == u"candidates")
        return called<QList<GroupMemberModel>>(
            [&](auto done) { client.fetchUsersNotAssociated(1, user, &m_screen, done); });
    if (name == u"add")
        return called<NoContent>([&](auto done) { client.addUsersToGroup(1, { 7, 12 }, &m_screen, done); });
    if (name == u"remove")
        return called<NoContent>([&](auto done) { client.removeUsersFromGroup(1, { 7 }, &m_screen, done); });
    return called<NoContent>([&](auto done) { client.deleteGroup(999999, &m_screen, done); });
}

void TestApi::wireFormat_data()
{
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("request"); // method, path, JSON body (Content-Type with it)
    QTest::newRow("create")
        << u"ok"_qs
        << u"POST /v2/groups {\"name\":\"Book club\",\"username\":\"alex.morgan@example.com\"}"_qs;
    // The phone's own refusal, as the user reads it.
    QTest::newRow("update") << u"Not found: Resource not found"_qs
                            << u"PATCH /v2/groups/999999 {\"name\":\"X\"}"_qs;
    QTest::newRow("fetch") << u"ok"_qs << QString(u"GET /v2/groups/"_qs + user + u' ');
    QTest::newRow("candidates") << u"ok"_qs
                                << QString(u"GET /v2/groups/1/users/"_qs + user + u"/users-not-associated ");
    QTest::newRow("add") << u"ok"_qs << u"POST /v2/groups/1/users/add {\"users\":[7,12]}"_qs;
    QTest::newRow("remove") << u"ok"_qs << u"POST /v2/groups/1/users/remove {\"users\":[7]}"_qs;
    QTest::newRow("delete") << u"ok"_qs << u"DELETE /v2/groups/999999 "_qs;
}

void TestApi::wireFormat()
{
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    QTEST(call(name), "outcome");
    const QJsonObject r = m_sim->requests().at(0).toObject();
    const QJsonObject headers = r.value(u"headers").toObject();
    const QString body = r.value(u"body").toString();
    QCOMPARE(headers.value(u"content-type").toString(), body.isEmpty() ? QString() : u"application/json"_qs);
    if (name.startsWith(u"create"))
        QCOMPARE(headers.value(u"accept").toString(), u"application/json"_qs);
    QCOMPARE(r.value(u"query").toString(), QString());
    QTEST(
        QString(r.value(u"method").toString() + u' ' + r.value(u"path").toString() + u' ' + body), "request");
}

void TestApi::failedExchanges_data()
{
    QTest::addColumn<QString>("name"); // of the call
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("outcome"); // "ok", "decoding" or what the user reads ("*": any reason)
    const auto row
        = [](const QByteArray& tag, const char* call, const QJsonObject& fault, const QString& outcome) {
              QTest::newRow(tag.constData()) << QString::fromUtf8(call) << fault << outcome;
          };
    const auto status = [](int status, const char* body = nullptr) {
        QJsonObject fault { { u"status"_qs, status } };
        if (body)
            fault.insert(u"body"_qs, QString::fromUtf8(body));
        return fault;
    };
    // Judged by the status whatever error kind Qt gives it (400 and 418 arrive as protocol
    // errors, 401 and 403 as access errors, 407 as a proxy error), and a body that is no group is a decoding
    // failure first; answerJudging has the rule for every status.
    row("400 message on a record", "create", status(400, R"({"message":"Name too long"})"), u"decoding"_qs);
    row("400 bare on a list", "fetch", status(400), u"Bad request: Bad request"_qs);
    row("400 on delete succeeds", "delete", status(400, R"({"message":"x"})"), u"ok"_qs);
    row("407 bare on a record", "update", status(407), u"HTTP error 407"_qs);
    row("407 on add succeeds", "add", status(407), u"ok"_qs);
    row("418 bare on a list", "candidates", status(418), u"HTTP error 418"_qs);
    row("a ping answered with an error status", "ping", status(503), u"503"_qs);
    row("401", "fetch", status(401), notAuthenticated);
    row("403", "update", status(403), notAuthenticated);
    // Transfers that break: the request time-out ends a silent phone, the resource time-out an
    // exchange that trickles on.
    const QJsonObject cut { { u"closeAfterBytes"_qs, 5 } };
    const QJsonObject slow { { u"delayMs"_qs, 1500 }, { u"requestTimeoutMs"_qs, 300 } };
    const QJsonObject tooLong { { u"delayMs"_qs, 3000 }, { u"resourceTimeoutMs"_qs, 500 } };
    const QJsonObject refused { { u"refused"_qs, true } }; // nothing listens at the base URL
    // Answers are read into memory up to a cap (a smaller one here), and no further: a line says
    // so. A length stated past the program's 16 MiB ends the request at once.
    for (const char* call : { "fetch", "users" }) {
        const QByteArray on = QByteArray(", ") + call;
        const auto answer = [call](qint64 size) {
            return QJsonObject { { u"status"_qs, 200 }, { u"body"_qs, answerOf(call, size) },
                { u"replyCap"_qs, 4096 } };
        };
        row("an answer at the cap" + on, call, answer(4096), u"ok"_qs);
        row("an answer past the cap" + on, call, answer(4097),
            qstrcmp(call, "users") ? tooLarge : u"unreadable"_qs);
    }
    row("a length past 16 MiB", "fetch", { { u"stallAfterBytes"_qs, ReplyCap::maxReplyBytes } }, tooLarge);
    row("cut off mid-body", "fetch", cut, u"Network error: *"_qs);
    row("slow answer", "fetch", slow, u"Network error: *"_qs);
    row("whole exchange too long", "fetch", tooLong, u"Network error: The request timed out."_qs);
    row("connection refused", "fetch", refused, u"Network error: *"_qs);
}

void TestApi::failedExchanges()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, fault);
    QFETCH(QString, outcome);
    m_client.setTimeouts(std::chrono::milliseconds(fault.value(u"requestTimeoutMs").toInt(10000)),
        std::chrono::milliseconds(fault.value(u"resourceTimeoutMs").toInt(10000)));
    m_replyCap = fault.value(u"replyCap").toInteger(ReplyCap::maxReplyBytes);
    m_client.setReplyCap(m_replyCap);
    if (fault.contains(u"refused")) {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        closed.close(); // nothing listens there any more
        Settings::setString(
            Settings::baseUrlKey, QStringLiteral("http://127.0.0.1:%1/").arg(closed.serverPort()));
    } else {
        fault.insert(u"path"_qs,
            name == u"users"      ? u"/getUsers"_qs
                : name == u"ping" ? u"/ping"_qs
                                  : u"/v2/groups*"_qs);
        QVERIFY(m_sim->setFault(fault));
    }

    const LogCapture log;
    const QString actual = call(name);
    QCOMPARE(log.lines().size(), outcome == tooLarge || outcome == u"unreadable" ? 1 : 0);
    if (outcome.endsWith(u'*'))
        QVERIFY2(actual.startsWith(outcome.chopped(1)) && actual.size() > outcome.size(), qPrintable(actual));
    else
        QCOMPARE(actual, outcome);
}

void TestApi::baseUrlIsUsedAsStored()
{
    // Without a base URL, every call answers at once, on this thread, and nothing is sent.
    Settings::open()->remove(QString::fromLatin1(Settings::baseUrlKey));
    QStringList outcomes;
    NetworkClient& client = m_client;
    const auto collect = [&outcomes](const auto& result) { outcomes.append(outcomeOf(result)); };
    client.createGroup(user, u"X"_qs, &m_screen, collect);
    client.fetchGroups(user, &m_screen, collect);
    client.updateGroup(1, u"X"_qs, &m_screen, collect);
    client.deleteGroup(1, &m_screen, collect);
    client.fetchUsersNotAssociated(1, user, &m_screen, collect);
    client.addUsersToGroup(1, { 1 }, &m_screen, collect);
    client.removeUsersFromGroup(1, { 1 }, &m_screen, collect);
    QCOMPARE(outcomes, QStringList(7, notAuthenticated));
    QVERIFY(!QTest::qWaitFor([&] { return !m_sim->requests().isEmpty(); }, 1000));

    // Without the final "/", the path is glued on as it is.
    Settings::setString(Settings::baseUrlKey, QStringLiteral("http://127.0.0.1:%1/api").arg(m_sim->port()));
    QVERIFY(call(u"fetch"_qs) != u"no single answer"_qs);
    QCOMPARE(m_sim->requests().at(0).toObject().value(u"path").toString(), u"/apiv2/groups/" + user);
}

void TestApi::answersForAGoneScreenAreDropped()
{
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/v2/groups*"_qs }, { u"delayMs"_qs, 200 } }));
    auto* screen = new QObject;
    int calls = 0;
    m_client.fetchGroups(user, screen, [&calls](const auto&) { ++calls; });
    delete screen;
    QTRY_COMPARE_WITH_TIMEOUT(m_sim->requests().size(), 1, 3000);
    // The answer comes 0.2 s later; the deadline leaves it ample time to be (wrongly) delivered.
    QVERIFY(!QTest::qWaitFor([&calls] { return calls > 0; }, 1500));
}

QTEST_GUILESS_MAIN(TestApi)
#include "tst_api.moc"
