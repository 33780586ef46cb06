#pragma once

#include "recipients/AssociationItem.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>

// The kind of one row of the recipients table, and what it shows.
struct AssociatedUserRowType
{
    enum class Kind { user, groupHeader, groupMember };
    Kind kind;
    UserPtr user; // user rows
    GroupPtr group; // header and member rows
    GroupMemberModel member; // member rows
};

// The people and groups the user may encrypt for: the users the phone reports and the groups
// the signed-in user owns, as one list sorted by name; which of them are checked (the groups'
// marks kept across restarts) and which groups show their members; and the checked entries
// as recipients. A reply is taken in as what it changes: records whose content is the same
// stay as they are, with their marks, and the views hear only of what is new, gone or
// different. Main thread only.
class AssociationsStore : public QObject
{
    Q_OBJECT

public:
    // What one reply changed in items().
    struct Change
    {
        QList<AssociationItemPtr> removed;
        QList<AssociationItemPtr> inserted;
        // The same user or group, in the same place, showing other content.
        QList<AssociationItemPtr> updated;
        // The items that stayed are in another order too: every row may have moved.
        bool reordered = false;
    };

    explicit AssociationsStore(QObject* parent = nullptr);

    // The phone's users reply; the people the user chose stay chosen while it still lists them.
    void setUsers(const QList<UserPtr>& replied);
    // A group fetch; the groups' marks come back from "CheckedGroups".
    void setGroups(const QList<GroupPtr>& fetched);

    const QList<UserPtr>& users() const { return m_users; }
    const QList<GroupPtr>& groups() const { return m_groups; }
    GroupPtr groupById(qint64 id) const;
    // One item per user and per group, sorted (AssociationItem::before).
    const QList<AssociationItemPtr>& items() const { return m_items; }

    bool isExpanded(qint64 groupId) const { return m_expanded.contains(groupId); }
    void toggleGroupExpansion(qint64 id);

    void toggleUserChecked(const User* user);
    void toggleGroupChecked(qint64 id);
    // Checks everything, or unchecks everything when all is checked already.
    void selectDeselectAll();
    // After an encryption: users unchecked, groups keep their marks.
    void uncheckAllUsers();
    // Nothing was checked (a click on a member), but the recipients are judged again.
    void reconsiderRecipients() { Q_EMIT recipientsChanged(); }

    QStringList selectedRecipientEmails() const;
    QString recipientsString() const;
    // The checked users and groups by name, in the list's order: who the next files are for.
    QStringList checkedNames() const;
    static bool isItemChecked(const AssociationItem& item);

    // "CheckedGroups": "test" + ids joined with "test" + "test", and back.
    static QString checkedGroupsText(const QList<qint64>& ids);
    static QList<qint64> parseCheckedGroups(const QString& text);

Q_SIGNALS:
    void itemsChanged(const AssociationsStore::Change& change);
    // Users or groups were checked or unchecked.
    void marksChanged();
    void expansionChanged();
    // What the recipients are may have changed (the encrypt button depends on it).
    void recipientsChanged();

private:
    // Keeps each item whose record is the same thing as a replied one (updated when its content
    // differs), makes items for the rest, and puts the new list of items in order.
    template <typename Ptr>
    Change take(const QList<Ptr>& replied, QList<Ptr>& records, QList<AssociationItemPtr>& items);
    // The views hear of a reply once the store is whole again: items, index and marks.
    void tell(const Change& change, bool changed);
    void saveCheckedGroups() const;
    void marked();

    QList<UserPtr> m_users;
    QList<GroupPtr> m_groups;
    QList<AssociationItemPtr> m_userItems; // parallel to m_users
    QList<AssociationItemPtr> m_groupItems; // parallel to m_groups
    QList<AssociationItemPtr> m_items;
    QHash<qint64, qsizetype> m_groupIndex; // the first group of each id
    QSet<qint64> m_expanded;
};
Q_DECLARE_METATYPE(AssociationsStore::Change)
