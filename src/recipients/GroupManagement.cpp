#include "recipients/GroupManagement.h"

#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Settings.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"

#include <QTimer>

namespace {

// The members of a group saved on the phone are fetched this long after it said so.
constexpr int membersSavedDelayMilliseconds = 300;

// The texts that tell a failed group change. They live out here because lupdate does not
// read the English text of an id inside a lambda that is passed as an argument.
QString usersNotLoaded(const APIError& error)
{
    //% "Failed to load users: %1"
    return qtTrId("groupLoadUsersFailed").arg(error.description());
}

QString groupNotUpdated(const APIError& error)
{
    //% "Failed to update group: %1"
    return qtTrId("groupUpdateFailed").arg(error.description());
}

QString groupNotDeleted(const APIError& error)
{
    //% "Failed to delete group: %1"
    return qtTrId("groupDeleteFailed").arg(error.description());
}

QString membersNotChanged(bool add, const APIError& error)
{
    //% "Failed to add users: %1"
    const QString added = qtTrId("groupAddFailed");
    //% "Failed to remove users: %1"
    const QString removed = qtTrId("groupRemoveFailed");
    return (add ? added : removed).arg(error.description());
}

QString noUsersAvailable()
{
    //% "No users available"
    return qtTrId("groupNoUsersAvailable");
}

} // namespace

GroupManagement::GroupManagement(
    RecipientsController& recipients, NetworkClient& api, PhoneServiceClient& phoneService, QObject* parent)
    : QObject(parent)
    , m_recipients(recipients)
    , m_api(api)
    , m_phoneService(phoneService)
{
    qRegisterMetaType<GroupManagement::MemberChoice>();
    connect(
        this, &GroupManagement::groupMembersChanged, &recipients, &RecipientsController::groupMembersChanged);
}

GroupPtr GroupManagement::group(qint64 groupId) const
{
    return m_recipients.store().groupById(groupId);
}

void GroupManagement::afterGroupChange()
{
    m_recipients.refreshGroups();
    m_phoneService.notifyGroupsUpdated();
}

void GroupManagement::createGroup(const QString& typedName)
{
    const auto verdict = GroupNameRule::check(typedName);
    if (!verdict.name)
        return Q_EMIT failed(verdict.message);
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        //% "Not connected. Please scan QR code with iOS app first."
        return Q_EMIT failed(qtTrId("groupNotConnected"));
    m_api.createGroup(*user, *verdict.name, this, [this](const APIResult<GroupPtr>& result) {
        if (!result.isSuccess())
            return Q_EMIT failed(result.error().description());
        Q_EMIT groupSaved(result.value()->id, result.value()->name);
        afterGroupChange();
        m_recipients.refreshGroups(); // once more, after the notice
    });
}

void GroupManagement::renameGroup(qint64 groupId, const QString& typedName)
{
    const GroupPtr renamed = group(groupId);
    if (!renamed)
        return;
    const auto verdict = GroupNameRule::check(typedName);
    if (!verdict.name)
        return Q_EMIT failed(verdict.message);
    if (*verdict.name == renamed->name)
        return;
    const QString name = *verdict.name;
    m_api.updateGroup(groupId, name, this, [this, groupId, name](const APIResult<GroupPtr>& result) {
        if (!result.isSuccess())
            return Q_EMIT failed(groupNotUpdated(result.error()));
        Q_EMIT groupSaved(groupId, name);
        Q_EMIT groupMembersChanged();
        afterGroupChange();
    });
}

void GroupManagement::offerMembersToAdd(qint64 groupId)
{
    const GroupPtr target = group(groupId);
    if (!target)
        return;
    const auto user = Settings::string(Settings::userEmailKey);
    if (!user)
        return Q_EMIT failed(usersNotLoaded(APIError::notAuthenticated()));
    m_api.fetchUsersNotAssociated(groupId, *user, this,
        [this, groupId, name = target->name](const APIResult<QList<GroupMemberModel>>& result) {
            if (!result.isSuccess())
                return Q_EMIT failed(usersNotLoaded(result.error()));
            if (result.value().isEmpty())
                return Q_EMIT failed(noUsersAvailable());
            Q_EMIT offered({ groupId, name, true, result.value() });
        });
}

void GroupManagement::offerMembersToRemove(qint64 groupId)
{
    const GroupPtr target = group(groupId);
    if (!target)
        return;
    if (target->groupMembers.isEmpty())
        //% "No members to remove"
        return Q_EMIT failed(qtTrId("groupNoMembersToRemove"));
    Q_EMIT offered({ groupId, target->name, false, target->groupMembers });
}

void GroupManagement::addMembers(qint64 groupId, const QList<qint64>& userIds)
{
    changeMembers(groupId, userIds, true);
}

void GroupManagement::removeMembers(qint64 groupId, const QList<qint64>& userIds)
{
    changeMembers(groupId, userIds, false);
}

void GroupManagement::changeMembers(qint64 groupId, const QList<qint64>& userIds, bool add)
{
    if (userIds.isEmpty())
        return;
    auto done = [this, add](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return Q_EMIT failed(membersNotChanged(add, result.error()));
        QTimer::singleShot(membersSavedDelayMilliseconds, this, &GroupManagement::afterGroupChange);
    };
    if (add)
        m_api.addUsersToGroup(groupId, userIds, this, done);
    else
        m_api.removeUsersFromGroup(groupId, userIds, this, done);
}

std::optional<GroupManagement::Notice> GroupManagement::deletionRefusal(qint64 groupId) const
{
    const GroupPtr target = group(groupId);
    if (!target || target->groupMembers.isEmpty())
        return std::nullopt;
    //% "Cannot Delete Group"
    const QString title = qtTrId("groupCannotDeleteTitle");
    //: %1 is the group's name
    //% "Please remove all members from '%1' before deleting the group."
    return Notice { title, qtTrId("groupCannotDeleteText").arg(target->name) };
}

void GroupManagement::deleteGroup(qint64 groupId)
{
    if (!group(groupId))
        return;
    if (const auto refusal = deletionRefusal(groupId))
        return Q_EMIT failed(refusal->text);
    m_api.deleteGroup(groupId, this, [this](const APIResult<NoContent>& result) {
        if (!result.isSuccess())
            return Q_EMIT failed(groupNotDeleted(result.error()));
        afterGroupChange();
    });
}
