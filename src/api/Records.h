#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

// A member of a group, or a user offered for adding to one. Told apart by id.
struct GroupMemberModel
{
    qint64 id = 0;
    QString fullName;
    QString email;
    std::optional<QString> phoneNumber;

    friend bool operator==(const GroupMemberModel& a, const GroupMemberModel& b) { return a.id == b.id; }
};

inline size_t qHash(const GroupMemberModel& member, size_t seed = 0)
{
    return ::qHash(member.id, seed);
}

// A group owned by the signed-in user. Lists share the records; the recipients table sets
// isChecked on them.
class GroupModel
{
public:
    qint64 id = 0;
    QString name;
    QList<GroupMemberModel> groupMembers;
    std::optional<QDateTime> createdAt;
    std::optional<QString> ownerEmail;
    bool isChecked = false;

    friend bool operator==(const GroupModel& a, const GroupModel& b) { return a.id == b.id; }
};
using GroupPtr = std::shared_ptr<GroupModel>;

inline size_t qHash(const GroupModel& group, size_t seed = 0)
{
    return ::qHash(group.id, seed);
}

// A user associated with the signed-in user, as the phone reports them.
class User
{
public:
    std::optional<bool> isChecked = false;
    std::optional<QString> firstName;
    std::optional<QString> lastName;
    std::optional<QString> email;
    std::optional<QString> phone;

    // First and last name, e-mail and phone on three lines: the row's tool tip.
    QString summaryText() const
    {
        return firstName.value_or(QString()) + u' ' + lastName.value_or(QString()) + u'\n'
            + email.value_or(QString()) + u'\n' + phone.value_or(QString());
    }
};
using UserPtr = std::shared_ptr<User>;

// What the phone's users reply says.
struct UsersReply
{
    // False when the request failed or the body is no JSON: nothing can be read from it.
    bool readable = false;
    // The users it lists, in order; none when the body is JSON but no object (nothing changes).
    std::optional<QList<UserPtr>> users;
};

// The bodies of the group API's requests.
struct CreateGroupRequest
{
    QString username;
    QString name;
    QJsonObject toJson() const
    {
        return { { QStringLiteral("username"), username }, { QStringLiteral("name"), name } };
    }
};

struct UpdateGroupRequest
{
    QString name;
    QJsonObject toJson() const { return { { QStringLiteral("name"), name } }; }
};

QJsonObject usersBody(const QList<qint64>& ids);

struct AddUsersToGroupRequest
{
    QList<qint64> users;
    QJsonObject toJson() const { return usersBody(users); }
};

struct RemoveUsersFromGroupRequest
{
    QList<qint64> users;
    QJsonObject toJson() const { return usersBody(users); }
};
