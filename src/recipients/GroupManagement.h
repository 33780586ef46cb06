#pragma once

#include "api/Records.h"

#include <QObject>

#include <optional>

class NetworkClient;
class PhoneServiceClient;
class RecipientsController;

// Creating, renaming, filling, emptying and deleting the signed-in user's groups on the phone,
// with no screen: each change is judged, sent through the group API, and followed by the
// reloads of the groups and the notice to the phone that they changed. What the user is told
// comes back as text; a screen asks the user for names and members and forwards them, a
// command line could do the same. A change to a group the list no longer holds does nothing.
class GroupManagement : public QObject
{
    Q_OBJECT

public:
    // Members offered to the user for adding to a group, or for removing from it.
    struct MemberChoice
    {
        qint64 groupId = 0;
        QString groupName; // as it was when they were asked for
        bool add = true;
        QList<GroupMemberModel> candidates; // in the order the phone gave them
    };

    // What the user is told about a change that cannot be made, in a dialog of its own.
    struct Notice
    {
        QString title;
        QString text;
    };

    GroupManagement(RecipientsController& recipients, NetworkClient& api, PhoneServiceClient& phoneService,
        QObject* parent = nullptr);

    void createGroup(const QString& typedName);
    // The same name again sends nothing.
    void renameGroup(qint64 groupId, const QString& typedName);
    // Asks the phone whom the group could take: offered(), or failed() when it cannot say or
    // has no one to offer.
    void offerMembersToAdd(qint64 groupId);
    // The group's members: offered(), or failed() when it has none.
    void offerMembersToRemove(qint64 groupId);
    // No ids: nothing is sent.
    void addMembers(qint64 groupId, const QList<qint64>& userIds);
    void removeMembers(qint64 groupId, const QList<qint64>& userIds);
    // A group is deleted only once it has no members; why not, when it still has some.
    std::optional<Notice> deletionRefusal(qint64 groupId) const;
    void deleteGroup(qint64 groupId);

Q_SIGNALS:
    // A group was created or renamed: the phone saved it under `name`.
    void groupSaved(qint64 groupId, const QString& name);
    void offered(const GroupManagement::MemberChoice& choice);
    // What the "Error" alert says.
    void failed(const QString& message);
    // "GroupMembersChanged": a group's name or members changed.
    void groupMembersChanged();

private:
    GroupPtr group(qint64 groupId) const;
    void changeMembers(qint64 groupId, const QList<qint64>& userIds, bool add);
    // The groups are fetched again and the phone is told that they changed.
    void afterGroupChange();

    RecipientsController& m_recipients;
    NetworkClient& m_api;
    PhoneServiceClient& m_phoneService;
};
Q_DECLARE_METATYPE(GroupManagement::MemberChoice)
