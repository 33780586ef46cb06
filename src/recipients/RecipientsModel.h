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
        NameRole,                    // upper-case full name / group name; member's full name
        EmailRole,
        PhoneRole,
        CheckedRole,
        GroupIdRole,
        MemberCountRole,
        ExpandedRole,
        SummaryRole,                 // a user's tool tip
    };

    explicit RecipientsModel(AssociationsStore* store, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    // Qt::CheckStateRole on a user or group row flips it by the click rule; other rows refuse.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    // What each row stands for; rows standing for the same things are updated in place
    // instead of reset, so a view keeps its current row and scroll position.
    QStringList rowKeys() const;
    void storeChanged();

    AssociationsStore* m_store;
    QStringList m_keys;
};
