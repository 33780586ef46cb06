#pragma once

#include <QAbstractListModel>

class AssociationsStore;

// The rows of the recipients table: users, group headers and the members of expanded groups.
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

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    // Qt::CheckStateRole on a user or group row flips it by the click rule; other rows refuse.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    // What a row stands for and what it shows, as of the last look at the store. Rows that
    // stand for the same things are updated in place instead of reset, so a view keeps its
    // current row and scroll position, and only rows that show something new are announced.
    struct Shown
    {
        int kind = -1; // AssociatedUserRowType::Kind, -1 for a row without one
        qint64 group = 0;
        qint64 member = 0;
        QString name; // a user's first name, a group's or member's name
        QString lastName;
        QString email;
        QString phone;
        int memberCount = 0;
        bool checked = false;
        bool expanded = false;

        bool sameThing(const Shown& o) const;
        bool sameLook(const Shown& o) const;
    };
    QList<Shown> shownRows() const;
    void storeChanged();

    AssociationsStore* m_store;
    QList<Shown> m_shown;
};
