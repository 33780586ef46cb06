#include "recipients/RecipientsModel.h"

#include "recipients/AssociationsStore.h"

RecipientsModel::RecipientsModel(AssociationsStore* store, QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    m_keys = rowKeys();
    connect(store, &AssociationsStore::rowsChanged, this, &RecipientsModel::storeChanged);
}

QStringList RecipientsModel::rowKeys() const
{
    QStringList keys;
    const int count = m_store->associatedRowCount();
    keys.reserve(count);
    for (int row = 0; row < count; ++row) {
        const auto type = m_store->rowType(row);
        if (!type) {
            keys.append(QString());
            continue;
        }
        switch (type->kind) {
        case AssociatedUserRowType::Kind::user:
            keys.append(u"u:" + type->user->email.value_or(QString()) + u'\x1f' + type->user->firstName.value_or(QString())
                        + u'\x1f' + type->user->lastName.value_or(QString()));
            break;
        case AssociatedUserRowType::Kind::groupHeader:
            keys.append(u"g:" + QString::number(type->group->id));
            break;
        case AssociatedUserRowType::Kind::groupMember:
            keys.append(u"m:" + QString::number(type->group->id) + u':' + QString::number(type->member.id));
            break;
        }
    }
    return keys;
}

void RecipientsModel::storeChanged()
{
    QStringList keys = rowKeys();
    if (keys == m_keys) {
        if (!keys.isEmpty())
            Q_EMIT dataChanged(index(0), index(int(keys.size()) - 1));
        return;
    }
    beginResetModel();
    m_keys = std::move(keys);
    endResetModel();
}

bool RecipientsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)
        || !flags(index).testFlag(Qt::ItemIsUserCheckable))
        return false;
    const bool wanted = value.value<Qt::CheckState>() == Qt::Checked;
    if (wanted != data(index, CheckedRole).toBool()) {
        const auto row = m_store->rowType(index.row());
        if (row->kind == AssociatedUserRowType::Kind::groupHeader)
            m_store->toggleGroupChecked(row->group->id);
        else
            m_store->clickRow(index.row());
    }
    return true;
}

int RecipientsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_store->associatedRowCount();
}

Qt::ItemFlags RecipientsModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    // Users and groups carry a mark; a member row only shows who is in a group.
    const auto row = m_store->rowType(index.row());
    const bool markable = row && row->kind != AssociatedUserRowType::Kind::groupMember;
    return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren | (markable ? Qt::ItemIsUserCheckable : Qt::NoItemFlags);
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
        case Qt::CheckStateRole:
            return u.isChecked.value_or(false) ? Qt::Checked : Qt::Unchecked;
        case SummaryRole:
        case Qt::AccessibleDescriptionRole:
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
        case Qt::CheckStateRole:
            return g.isChecked ? Qt::Checked : Qt::Unchecked;
        case Qt::AccessibleDescriptionRole:
            return data(index, MemberCountRole);
        case GroupIdRole:
            return g.id;
        case MemberCountRole:
            //: Under a group's name: how many members it has
            //% "%n member(s)"
            return qtTrId("groupMemberCount", int(g.groupMembers.size()));
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
