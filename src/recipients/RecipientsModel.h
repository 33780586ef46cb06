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
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    AssociationsStore* m_store;
};
