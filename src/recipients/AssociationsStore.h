#pragma once

#include "recipients/AssociationItem.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QList>
#include <QObject>
#include <QSet>

#include <optional>
#include <variant>

// The kind of one row of the recipients table.
struct AssociatedUserRowType
{
    enum class Kind { user, groupHeader, groupMember };
    Kind kind;
    UserPtr user; // user rows
    GroupPtr group; // header and member rows
    GroupMemberModel member; // member rows
};

// The people and groups the user may encrypt for: the users the phone reports and the groups
// the signed-in user owns, merged into one sorted list, filtered by a search text, with the
// checked groups kept across restarts and the checked entries turned into recipients.
// Main thread only.
class AssociationsStore : public QObject
{
    Q_OBJECT

public:
    explicit AssociationsStore(QObject* parent = nullptr);

    QList<UserPtr> users;
    QList<UserPtr> usersFiltered;
    QList<GroupPtr> groups;
    QList<GroupPtr> groupsFiltered;
    QList<AssociationItemPtr> combinedAssociations;
    QList<AssociationItemPtr> combinedAssociationsFiltered;
    QSet<qint64> expandedGroupIds;

    // The phone's users reply: replaces the users (all unchecked). False when the reply is not
    // usable (the caller logs it and keeps what it has).
    bool setUsersFromReply(const QByteArray& body);
    // A fresh group fetch: replaces the groups and restores their marks.
    void setGroups(const QList<GroupPtr>& fetched);

    // Makes the combined list anew from the users and groups; the search last applied stays
    // applied.
    void rebuildAssociations();
    // Filters the list by `text` (empty shows everything) and keeps it for later rebuilds.
    void applySearch(const QString& text);
    const QString& searchText() const { return m_search; }
    static bool matchesSearch(const AssociationItem& item, const QString& term);
    static QString searchKeyOf(const AssociationItem& item);

    void saveCheckedGroups() const;
    void restoreCheckedGroups();
    // "test" + ids joined with "test" + "test", and back.
    static QString checkedGroupsText(const QList<qint64>& ids);
    static QList<qint64> parseCheckedGroups(const QString& text);

    QStringList selectedRecipientEmails() const;
    QString recipientsString() const;

    // Rows of the table, computed from the filtered list and the expanded groups.
    int associatedRowCount() const { return int(m_rows.size()); }
    std::optional<AssociatedUserRowType> rowType(int row) const;

    // A click on a row (or its check box): users and groups flip, members do nothing.
    // False when the row has no kind.
    bool clickRow(int row);
    void toggleGroupChecked(qint64 id);
    void toggleGroupExpansion(qint64 id);
    // Checks everything, or unchecks everything when all is checked already.
    void selectDeselectAll();
    // After an encryption: users unchecked, groups keep their marks.
    void uncheckAllUsers();

    GroupPtr groupById(qint64 id) const;

Q_SIGNALS:
    // The rows must be shown again.
    void rowsChanged();
    // What the recipients are may have changed (the encrypt button depends on it).
    void recipientsChanged();

private:
    void computeRows();
    void filter();
    void rowsAndRecipientsChanged();

    struct Row
    {
        int item;
        int member; // -1 for the item itself
    };
    QList<Row> m_rows;
    QList<QString> m_userKeys; // parallel to users
    QList<AssociationItemPtr> m_userItems; // parallel to users, as of the last rebuild
    QString m_search;
    // Whether the items' search keys and m_userKeys belong to the current list.
    bool m_keysMade = false;
    // Positions in `groups` by id, as of the last computeRows().
    QHash<qint64, qsizetype> m_groupIndex;
};
