#include "recipients/RecipientsModel.h"

#include "recipients/AssociationsStore.h"

RecipientsModel::RecipientsModel(AssociationsStore* store, QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    connect(store, &AssociationsStore::rowsChanged, this, [this] {
        beginResetModel();
        endResetModel();
    });
}

int RecipientsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_store->associatedRowCount();
}

Qt::ItemFlags RecipientsModel::flags(const QModelIndex& index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemNeverHasChildren : Qt::NoItemFlags;
}

QVariant RecipientsModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const auto row = m_store->rowType(index.row());
    if (!row)
        return {};
    using Kind = AssociatedUserRowType::Kind;
    if (role == KindRole)
        return int(row->kind);
    switch (row->kind) {
    case Kind::user: {
        const User& u = *row->user;
        const QString name = u.firstName.value_or(QString()) + u' ' + u.lastName.value_or(QString());
        switch (role) {
        case Qt::DisplayRole:
        case NameRole:
            return name.toUpper();
        case Qt::ToolTipRole:
            return name;
        case EmailRole:
            return u.email.value_or(QString());
        case PhoneRole:
            return u.phone.value_or(QString());
        case CheckedRole:
            return u.isChecked.value_or(false);
        case SummaryRole:
            return u.summaryText();
        case Qt::AccessibleTextRole:
            return QString(name + u", " + u.email.value_or(QString()));
        }
        break;
    }
    case Kind::groupHeader: {
        const GroupModel& g = *row->group;
        switch (role) {
        case Qt::DisplayRole:
        case NameRole:
            return g.name.toUpper();
        case Qt::AccessibleTextRole:
        case Qt::ToolTipRole:
            return g.name;
        case CheckedRole:
            return g.isChecked;
        case GroupIdRole:
            return g.id;
        case MemberCountRole:
            return QString(QString::number(g.groupMembers.size()) + u" member(s)");
        case ExpandedRole:
            return m_store->expandedGroupIds.contains(g.id);
        }
        break;
    }
    case Kind::groupMember:
        switch (role) {
        case Qt::DisplayRole:
        case NameRole:
        case Qt::AccessibleTextRole:
            return row->member.fullName;
        case EmailRole:
            return row->member.email;
        case GroupIdRole:
            return row->group->id;
        }
        break;
    }
    return {};
}
