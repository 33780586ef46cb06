#include "api/RecordDecoding.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTimeZone>

#include <cmath>

QJsonObject usersBody(const QList<qint64>& ids)
{
    QJsonArray users;
    for (qint64 id : ids)
        users.append(id);
    return { { QStringLiteral("users"), users } };
}

namespace RecordDecoding {

namespace {

DecodingFailure missing(const char* key)
{
    return { QStringLiteral(
        "The data couldn't be read because the value for \"%1\" is missing or of the wrong type.")
                 .arg(QLatin1String(key)) };
}

std::optional<qint64> integer(const QJsonValue& value)
{
    if (!value.isDouble())
        return std::nullopt;
    // Read as a 64-bit integer, never through a double: ids above 2^53 stay exact. A value
    // that is no whole number in range gives each default back, so two defaults tell.
    const qint64 i = value.toInteger(0);
    if (i != value.toInteger(1))
        return std::nullopt;
    return i;
}

// Optional text: absent or null gives none; any other non-string fails.
bool optionalString(const QJsonObject& object, const char* key, std::optional<QString>& out)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

std::optional<QList<GroupMemberModel>> memberList(const QJsonValue& value)
{
    if (!value.isArray())
        return std::nullopt;
    QList<GroupMemberModel> members;
    for (const QJsonValue& element : value.toArray()) {
        auto decoded = member(element);
        if (!std::holds_alternative<GroupMemberModel>(decoded))
            return std::nullopt;
        members.append(std::get<GroupMemberModel>(decoded));
    }
    return members;
}

template <typename T, typename F> Decoded<QList<T>> listBody(const QByteArray& body, F decodeOne)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return DecodingFailure { QStringLiteral(
            "The data couldn't be read because it isn't in the correct format.") };
    if (!doc.isArray())
        return DecodingFailure { QStringLiteral("The data couldn't be read because it isn't a list.") };
    QList<T> result;
    for (const QJsonValue& element : doc.array()) {
        auto decoded = decodeOne(element);
        if (auto* failure = std::get_if<DecodingFailure>(&decoded))
            return *failure;
        result.append(std::get<T>(decoded));
    }
    return result;
}

} // namespace

Decoded<GroupMemberModel> member(const QJsonValue& value)
{
    if (!value.isObject())
        return DecodingFailure { QStringLiteral(
            "The data couldn't be read because a member isn't an object.") };
    const QJsonObject o = value.toObject();
    GroupMemberModel m;
    const auto id = integer(o.value(u"id"));
    if (!id)
        return missing("id");
    m.id = *id;
    if (!o.value(u"fullName").isString())
        return missing("fullName");
    m.fullName = o.value(u"fullName").toString();
    if (!o.value(u"email").isString())
        return missing("email");
    m.email = o.value(u"email").toString();
    if (!optionalString(o, "phoneNumber", m.phoneNumber))
        return missing("phoneNumber");
    return m;
}

std::optional<QDateTime> createdOn(const QJsonValue& value)
{
    if (value.isString()) {
        static const QRegularExpression withFraction(
            QStringLiteral("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}\\.\\d+(Z|[+-]\\d{2}:\\d{2})$"));
        static const QRegularExpression withoutFraction(
            QStringLiteral("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(Z|[+-]\\d{2}:\\d{2})$"));
        const QString text = value.toString();
        if (!withFraction.match(text).hasMatch() && !withoutFraction.match(text).hasMatch())
            return std::nullopt;
        QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (!parsed.isValid())
            return std::nullopt;
        return parsed.toUTC();
    }
    if (value.isDouble())
        return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(value.toDouble())), QTimeZone::utc());
    return std::nullopt;
}

Decoded<GroupPtr> group(const QJsonValue& value)
{
    if (!value.isObject())
        return DecodingFailure { QStringLiteral(
            "The data couldn't be read because a group isn't an object.") };
    const QJsonObject o = value.toObject();
    auto g = std::make_shared<GroupModel>();
    const auto id = integer(o.value(u"id"));
    if (!id)
        return missing("id");
    g->id = *id;
    if (!o.value(u"name").isString())
        return missing("name");
    g->name = o.value(u"name").toString();
    // The phone has sent members under two names over time; a bad list never fails a group.
    if (auto members = memberList(o.value(u"groupMembers")))
        g->groupMembers = *members;
    else if (auto legacy = memberList(o.value(u"members")))
        g->groupMembers = *legacy;
    g->createdAt = createdOn(o.value(u"createdOn"));
    if (!optionalString(o, "username", g->ownerEmail))
        return missing("username");
    return g;
}

Decoded<GroupPtr> groupBody(const QByteArray& body)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return DecodingFailure { QStringLiteral(
            "The data couldn't be read because it isn't in the correct format.") };
    if (!doc.isObject())
        return DecodingFailure { QStringLiteral("The data couldn't be read because it isn't a group.") };
    return group(doc.object());
}

Decoded<QList<GroupPtr>> groupListBody(const QByteArray& body)
{
    return listBody<GroupPtr>(body, [](const QJsonValue& v) { return group(v); });
}

Decoded<QList<GroupMemberModel>> memberListBody(const QByteArray& body)
{
    return listBody<GroupMemberModel>(body, [](const QJsonValue& v) { return member(v); });
}

UsersReply usersBody(const QByteArray& body)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return {};
    if (!doc.isObject())
        return { true, std::nullopt };
    QList<UserPtr> users;
    for (const QJsonValue& value : doc.object().value(u"getUsers").toArray()) {
        if (!value.isObject())
            continue;
        const QJsonObject o = value.toObject();
        auto user = std::make_shared<User>();
        user->firstName = o.value(u"firstName").toString();
        user->lastName = o.value(u"lastName").toString();
        user->email = o.value(u"email").toString();
        user->phone = o.value(u"phone").toString();
        users.append(std::move(user));
    }
    return { true, std::move(users) };
}

} // namespace RecordDecoding
