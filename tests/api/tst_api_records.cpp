#include "api/APIError.h"
#include "api/AnswerJudging.h"
#include "api/RecordDecoding.h"
#include "app/Translations.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <limits>

namespace {

template<typename T>
bool ok(const Decoded<T>& d)
{
    return std::holds_alternative<T>(d);
}

Exchange answered(int status, const QByteArray& body)
{
    return { status, body, std::nullopt };
}

} // namespace

class TestApiRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Texts are shown through the English catalogue, as in the program.
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void groupMembersFallback_data();
    void groupMembersFallback();
    void createdOnForms_data();
    void createdOnForms();
    void groupRequiredAndOptionalFields_data();
    void groupRequiredAndOptionalFields();
    void idsStayExactIn64Bits_data();
    void idsStayExactIn64Bits();
    void identityIsTheId();
    void summaryAndBodies();
    void errorDescriptions_data();
    void errorDescriptions();
    void mapFailureTable_data();
    void mapFailureTable();
    void judgingByKind_data();
    void judgingByKind();
};

void TestApiRecords::groupMembersFallback_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<QStringList>("members");
    const QString m1 = u"{\"id\":1,\"fullName\":\"Ann Lee\",\"email\":\"ann@x.org\"}"_qs;
    const QString m2 = u"{\"id\":2,\"fullName\":\"Bo Chan\",\"email\":\"bo@x.org\",\"phoneNumber\":null}"_qs;
    const QString bad = u"{\"id\":3,\"fullName\":\"No Mail\"}"_qs;
    QTest::newRow("groupMembers") << u"{\"id\":5,\"name\":\"A\",\"groupMembers\":[" + m1 + u"]}" << QStringList { u"ann@x.org"_qs };
    QTest::newRow("members only") << u"{\"id\":5,\"name\":\"A\",\"members\":[" + m2 + u"]}" << QStringList { u"bo@x.org"_qs };
    QTest::newRow("both: groupMembers wins") << u"{\"id\":5,\"name\":\"A\",\"groupMembers\":[" + m1 + u"],\"members\":[" + m2 + u"]}"
                                              << QStringList { u"ann@x.org"_qs };
    QTest::newRow("empty groupMembers wins") << u"{\"id\":5,\"name\":\"A\",\"groupMembers\":[],\"members\":[" + m2 + u"]}"
                                              << QStringList {};
    QTest::newRow("null groupMembers") << u"{\"id\":5,\"name\":\"A\",\"groupMembers\":null,\"members\":[" + m2 + u"]}"
                                        << QStringList { u"bo@x.org"_qs };
    QTest::newRow("bad element, no members") << u"{\"id\":5,\"name\":\"A\",\"groupMembers\":[" + m1 + u"," + bad + u"]}"
                                              << QStringList {};
    QTest::newRow("neither") << u"{\"id\":5,\"name\":\"A\"}"_qs << QStringList {};
}

void TestApiRecords::groupMembersFallback()
{
    QFETCH(QString, group);
    QFETCH(QStringList, members);
    const auto decoded = RecordDecoding::groupBody(group.toUtf8());
    QVERIFY(ok(decoded));
    QStringList emails;
    for (const auto& m : std::get<GroupPtr>(decoded)->groupMembers)
        emails.append(m.email);
    QCOMPARE(emails, members);
}

void TestApiRecords::createdOnForms_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<qint64>("msecs"); // -1: no date
    const qint64 at = 1709647651000; // 2024-03-05T14:07:31Z
    QTest::newRow("fraction") << "\"2024-03-05T14:07:31.250Z\"" << at + 250;
    QTest::newRow("no fraction") << "\"2024-03-05T14:07:31Z\"" << at;
    QTest::newRow("offset") << "\"2024-03-05T15:07:31+01:00\"" << at;
    QTest::newRow("milliseconds") << "1709647651250" << at + 250;
    QTest::newRow("not a date") << "\"next tuesday\"" << qint64(-1);
    QTest::newRow("no zone") << "\"2024-03-05T14:07:31\"" << qint64(-1);
    QTest::newRow("date only") << "\"2024-03-05\"" << qint64(-1);
    QTest::newRow("null") << "null" << qint64(-1);
    QTest::newRow("bool") << "true" << qint64(-1);
}

void TestApiRecords::createdOnForms()
{
    QFETCH(QString, value);
    QFETCH(qint64, msecs);
    const auto decoded = RecordDecoding::groupBody((u"{\"id\":1,\"name\":\"G\",\"createdOn\":" + value + u"}").toUtf8());
    QVERIFY(ok(decoded)); // an unreadable date never fails the group
    const auto& createdAt = std::get<GroupPtr>(decoded)->createdAt;
    QCOMPARE(createdAt.has_value(), msecs >= 0);
    if (createdAt)
        QCOMPARE(createdAt->toMSecsSinceEpoch(), msecs);
}

void TestApiRecords::groupRequiredAndOptionalFields_data()
{
    QTest::addColumn<QString>("group");
    QTest::addColumn<bool>("decodes");
    QTest::newRow("minimal") << "{\"id\":7,\"name\":\"G\"}" << true;
    QTest::newRow("username") << "{\"id\":7,\"name\":\"G\",\"username\":\"me@x.org\"}" << true;
    QTest::newRow("null username") << "{\"id\":7,\"name\":\"G\",\"username\":null}" << true;
    QTest::newRow("number username") << "{\"id\":7,\"name\":\"G\",\"username\":5}" << false;
    QTest::newRow("no id") << "{\"name\":\"G\"}" << false;
    QTest::newRow("string id") << "{\"id\":\"7\",\"name\":\"G\"}" << false;
    QTest::newRow("fraction id") << "{\"id\":7.5,\"name\":\"G\"}" << false;
    QTest::newRow("no name") << "{\"id\":7}" << false;
    QTest::newRow("error object") << "{\"message\":\"nope\"}" << false;
    QTest::newRow("array") << "[]" << false;
    QTest::newRow("not json") << "<html>" << false;
}

void TestApiRecords::groupRequiredAndOptionalFields()
{
    QFETCH(QString, group);
    QTEST(ok(RecordDecoding::groupBody(group.toUtf8())), "decodes");
    // One bad element fails a whole list.
    const QByteArray list = "[{\"id\":1,\"name\":\"A\"}," + group.toUtf8() + "]";
    if (!group.startsWith(u'['))
        QTEST(ok(RecordDecoding::groupListBody(list)), "decodes");
}

void TestApiRecords::idsStayExactIn64Bits_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<qint64>("expected"); // 0: refused
    QTest::newRow("2^53 + 1") << QByteArray("9007199254740993") << Q_INT64_C(9007199254740993);
    QTest::newRow("largest") << QByteArray("9223372036854775807") << std::numeric_limits<qint64>::max();
    QTest::newRow("negative beyond 2^53") << QByteArray("-9007199254740995") << Q_INT64_C(-9007199254740995);
    QTest::newRow("beyond 64 bits") << QByteArray("18446744073709551616") << Q_INT64_C(0);
    QTest::newRow("fraction") << QByteArray("12.25") << Q_INT64_C(0);
}

void TestApiRecords::idsStayExactIn64Bits()
{
    QFETCH(QByteArray, id);
    QFETCH(qint64, expected);
    const auto decoded = RecordDecoding::groupBody("{\"id\":" + id + ",\"name\":\"G\",\"groupMembers\":[{\"id\":" + id
                                                   + ",\"fullName\":\"M\",\"email\":\"m@x\"}]}");
    QCOMPARE(ok(decoded), expected != 0);
    if (expected == 0)
        return;
    const GroupPtr group = std::get<GroupPtr>(decoded);
    QCOMPARE(group->id, expected);
    QCOMPARE(group->groupMembers.at(0).id, expected);
    // And back out unchanged in a request body.
    QCOMPARE(QJsonDocument(AddUsersToGroupRequest { { expected } }.toJson()).toJson(QJsonDocument::Compact),
             "{\"users\":[" + id + "]}");
}

void TestApiRecords::identityIsTheId()
{
    QVERIFY((GroupMemberModel { 1, u"Ann"_qs, u"a@x"_qs, {} }) == (GroupMemberModel { 1, u"Other"_qs, u"b@x"_qs, {} }));
    QVERIFY(!((GroupMemberModel { 1, u"Ann"_qs, u"a@x"_qs, {} }) == (GroupMemberModel { 2, u"Ann"_qs, u"a@x"_qs, {} })));
    QCOMPARE(qHash(GroupMemberModel { 9, u"x"_qs, u"y"_qs, {} }), qHash(GroupMemberModel { 9, u"z"_qs, u"w"_qs, {} }));
    GroupModel a;
    a.id = 3;
    a.name = u"A"_qs;
    GroupModel b;
    b.id = 3;
    b.name = u"B"_qs;
    QVERIFY(a == b);
}

void TestApiRecords::summaryAndBodies()
{
    User onlyEmail;
    onlyEmail.email = u"a@x.org"_qs;
    QCOMPARE(onlyEmail.summaryText(), QStringLiteral(" \na@x.org\n"));
    QCOMPARE(QJsonDocument(AddUsersToGroupRequest { { 7, 12 } }.toJson()).toJson(QJsonDocument::Compact),
             QByteArray("{\"users\":[7,12]}"));
    QCOMPARE(QJsonDocument(CreateGroupRequest { u"me@x.org"_qs, u"Team"_qs }.toJson()).object().keys(),
             (QStringList { u"name"_qs, u"username"_qs }));
}

void TestApiRecords::errorDescriptions_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("description");
    QTest::newRow("decoding") << 0 << "Decoding error: bad";
    QTest::newRow("network") << 1 << "Network error: bad";
    QTest::newRow("error") << 2 << "bad";
    QTest::newRow("bad request") << 3 << "Bad request: bad";
    QTest::newRow("not found") << 4 << "Not found: bad";
    QTest::newRow("conflict") << 5 << "Conflict: bad";
    QTest::newRow("http") << 6 << "HTTP error 502";
    QTest::newRow("invalid url") << 7 << "Invalid URL";
    QTest::newRow("invalid response") << 8 << "Invalid response from server";
    QTest::newRow("not authenticated") << 9 << "Not authenticated. Please scan QR code with iOS app first.";
}

void TestApiRecords::errorDescriptions()
{
    QFETCH(int, index);
    const QString bad = QStringLiteral("bad");
    const QList<APIError> errors { APIError::decodingError(bad), APIError::networkError(bad), APIError::error(bad),
                                   APIError::badRequest(bad), APIError::notFound(bad), APIError::conflict(bad),
                                   APIError::httpError(502), APIError::invalidURL(), APIError::invalidResponse(),
                                   APIError::notAuthenticated() };
    QTEST(errors.at(index).description(), "description");
}

void TestApiRecords::mapFailureTable_data()
{
    QTest::addColumn<int>("status"); // 0: no answer
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("description");
    QTest::newRow("400 message") << 400 << QByteArray("{\"message\":\"Name missing\"}") << "" << "Bad request: Name missing";
    QTest::newRow("400 error member") << 400 << QByteArray("{\"error\":\"Oops\"}") << "" << "Bad request: Oops";
    QTest::newRow("400 message wins") << 400 << QByteArray("{\"error\":\"E\",\"message\":\"M\"}") << "" << "Bad request: M";
    QTest::newRow("400 non-string message") << 400 << QByteArray("{\"message\":5}") << "" << "Bad request: {\"message\":5}";
    QTest::newRow("400 plain text") << 400 << QByteArray("plain words") << "" << "Bad request: plain words";
    QTest::newRow("400 no body") << 400 << QByteArray() << "" << "Bad request: Bad request";
    QTest::newRow("400 not utf-8") << 400 << QByteArray("\xff\xfe") << "" << "Bad request: Bad request";
    QTest::newRow("401") << 401 << QByteArray("{\"message\":\"x\"}") << "" << "Not authenticated. Please scan QR code with iOS app first.";
    QTest::newRow("403") << 403 << QByteArray() << "" << "Not authenticated. Please scan QR code with iOS app first.";
    QTest::newRow("404") << 404 << QByteArray() << "" << "Not found: Resource not found";
    QTest::newRow("404 message") << 404 << QByteArray("{\"message\":\"Group 9\"}") << "" << "Not found: Group 9";
    QTest::newRow("409") << 409 << QByteArray() << "" << "Conflict: A group with this name already exists";
    QTest::newRow("409 message") << 409 << QByteArray("{\"message\":\"Taken\"}") << "" << "Conflict: Taken";
    QTest::newRow("418 drops message") << 418 << QByteArray("{\"message\":\"tea\"}") << "" << "HTTP error 418";
    QTest::newRow("599") << 599 << QByteArray() << "" << "HTTP error 599";
    QTest::newRow("302 with failure") << 302 << QByteArray() << "cut" << "Network error: cut";
    QTest::newRow("600 without failure") << 600 << QByteArray() << "" << "Invalid response from server";
    QTest::newRow("no answer") << 0 << QByteArray() << "Connection refused" << "Network error: Connection refused";
    QTest::newRow("nothing at all") << 0 << QByteArray() << "" << "Invalid response from server";
}

void TestApiRecords::mapFailureTable()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, failure);
    const APIError error = AnswerJudging::mapFailure(status ? std::optional<int>(status) : std::nullopt,
                                                     status ? std::optional<QByteArray>(body) : std::nullopt,
                                                     failure.isEmpty() ? std::nullopt : std::optional<QString>(failure));
    QTEST(error.description(), "description");
}

void TestApiRecords::judgingByKind_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("outcome"); // "ok N" or the error description
    const QByteArray group("{\"id\":1,\"name\":\"A\"}");
    QTest::newRow("record 201") << "record" << 201 << group << "ok 1";
    QTest::newRow("record decodes whatever the status") << "record" << 500 << group << "ok 1";
    QTest::newRow("record error object") << "record" << 409 << QByteArray("{\"message\":\"Taken\"}") << "decoding";
    QTest::newRow("record 409 empty") << "record" << 409 << QByteArray() << "Conflict: A group with this name already exists";
    QTest::newRow("record 200 empty") << "record" << 200 << QByteArray() << "network";
    QTest::newRow("list null 200") << "list" << 200 << QByteArray("null") << "ok 0";
    QTest::newRow("list [] 200") << "list" << 200 << QByteArray("[]") << "ok 0";
    QTest::newRow("list empty 200") << "list" << 200 << QByteArray() << "ok 0";
    QTest::newRow("list blank 200") << "list" << 200 << QByteArray(" \n\t\r\n") << "ok 0";
    QTest::newRow("list two") << "list" << 200 << QByteArray("[" + group + "," + group + "]") << "ok 2";
    QTest::newRow("list 500 empty") << "list" << 500 << QByteArray() << "HTTP error 500";
    QTest::newRow("list 500 null") << "list" << 500 << QByteArray("null") << "decoding";
    QTest::newRow("list object 200") << "list" << 200 << QByteArray("{}") << "decoding";
    QTest::newRow("no content 404") << "none" << 404 << QByteArray("{\"message\":\"x\"}") << "ok 0";
    QTest::newRow("no content 500") << "none" << 500 << QByteArray() << "ok 0";
}

void TestApiRecords::judgingByKind()
{
    QFETCH(QString, kind);
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, outcome);
    const Exchange exchange = answered(status, body);
    QString actual;
    auto describe = [&](const auto& result, auto count) {
        if (result.isSuccess())
            actual = QStringLiteral("ok %1").arg(count(result.value()));
        else if (result.error().kind() == APIError::Kind::decodingError)
            actual = QStringLiteral("decoding");
        else if (result.error().kind() == APIError::Kind::networkError)
            actual = QStringLiteral("network");
        else
            actual = result.error().description();
    };
    if (kind == u"record")
        describe(AnswerJudging::judgeRecord(exchange), [](const GroupPtr& g) { return g->id; });
    else if (kind == u"list")
        describe(AnswerJudging::judgeGroupList(exchange), [](const QList<GroupPtr>& l) { return l.size(); });
    else
        describe(AnswerJudging::judgeNoContent(exchange), [](const NoContent&) { return 0; });
    QCOMPARE(actual, outcome);
}

QTEST_GUILESS_MAIN(TestApiRecords)
#include "tst_api_records.moc"
