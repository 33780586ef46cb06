#pragma once

#include "api/Records.h"

#include <QByteArray>
#include <QJsonValue>

#include <variant>

// Decoding of the group API's JSON into records. A failure carries a description of what
// did not match.
struct DecodingFailure
{
    QString description;
};

template <typename T> using Decoded = std::variant<T, DecodingFailure>;

namespace RecordDecoding {

Decoded<GroupMemberModel> member(const QJsonValue& value);
Decoded<GroupPtr> group(const QJsonValue& value);
// "createdOn": an internet date-time with or without fractional seconds, or epoch
// milliseconds; anything else gives no date.
std::optional<QDateTime> createdOn(const QJsonValue& value);

// Whole bodies: one record, or a list in which one bad element fails the list.
Decoded<GroupPtr> groupBody(const QByteArray& body);
Decoded<QList<GroupPtr>> groupListBody(const QByteArray& body);
Decoded<QList<GroupMemberModel>> memberListBody(const QByteArray& body);

// The phone's users reply, {"getUsers": [{"firstName", "lastName", "email", "phone"}, ...]}:
// elements that are not objects are skipped, and missing fields read as empty text.
UsersReply usersBody(const QByteArray& body);

} // namespace RecordDecoding
