#pragma once

#include "recipients/AssociationsStore.h"

#include <QAbstractListModel>

#include <optional>

// The rows of the recipients table: the store's users and groups that pass the search, each
// expanded group followed by its members. It follows the store: a reply moves only the rows
// of what it changed, a mark repaints only the rows that show it, and the search narrows the
// rows without touching the store.
class RecipientsModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        KindRole = Qt::UserRole + 1, // AssociatedUserRowType::Kind as int
        NameRole, // upper-case full name / group name; member's full name
        EmailRole,
        PhoneRole,
        CheckedRole,
        GroupIdRole,
        MemberCountRole,
        ExpandedRole,
        SummaryRole, // a user's tool tip
    };

    explicit RecipientsModel(AssociationsStore* store, QObject* parent = nullptr);

    // Shows the users whose full name ("first last") or e-mail contains `text`, and the groups
    // whose name or members' names or e-mails do, ignoring case; everything when it is empty.
    // It stays applied whatever the store changes.
    void applySearch(const QString& text);
    const QString& searchText() const { return m_search; }
    // How many checked users and groups the search hides: they are recipients all the same.
    int hiddenCheckedCount() const;

    std::optional<AssociatedUserRowType> rowType(int row) const;
    // A click on a row (or its check box): users and groups flip, members check nothing but
    // have the recipients judged again. False when there is no such row.
    bool clickRow(int row);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    // Qt::CheckStateRole on a user or group row flips it by the click rule; other rows refuse.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    struct Row
    {
        const AssociationItem* item;
        int member; // -1 for the user or group itself
        bool checked; // the mark as last shown

        friend bool operator==(const Row& a, const Row& b)
        {
            return a.item == b.item && a.member == b.member;
        }
    };
    bool passes(const AssociationItem& item) const;
    QList<Row> rowsOf(const QList<const AssociationItem*>& shown) const;
    // Everything anew (the search or an expansion changed, or the store reordered).
    void showAnew(QList<const AssociationItem*> shown);
    void itemsChanged(const AssociationsStore::Change& change);
    // Moves from the rows shown to `next` by removing and inserting runs of rows; `touched`
    // holds the items whose rows may come, go or show something new.
    void moveTo(QList<Row> next, const QSet<const AssociationItem*>& touched);
    void marksChanged();

    AssociationsStore* m_store;
    QString m_search;
    QString m_term; // lower case
    QList<const AssociationItem*> m_shown; // the items that pass the search, in order
    QList<Row> m_rows;
};
