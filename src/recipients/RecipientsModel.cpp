#include "recipients/RecipientsModel.h"

#include "recipients/AssociationsStore.h"

#include <algorithm>
#include <utility>

RecipientsModel::RecipientsModel(AssociationsStore* store, QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    m_shown = shownRows();
    connect(store, &AssociationsStore::rowsChanged, this, &RecipientsModel::storeChanged);
}

bool RecipientsModel::Shown::sameThing(const Shown& o) const
{
    using Kind = AssociatedUserRowType::Kind;
    if (kind != o.kind)
        return false;
    switch (Kind(kind)) {
    case Kind::user:
        return email == o.email && name == o.name && lastName == o.lastName;
    case Kind::groupHeader:
        return group == o.group;
    case Kind::groupMember:
        return group == o.group && member == o.member;
    }
    return true; // rows without a kind
}

bool RecipientsModel::Shown::sameLook(const Shown& o) const
{
    return sameThing(o) && name == o.name && lastName == o.lastName && email == o.email && phone == o.phone
        && memberCount == o.memberCount && checked == o.checked && expanded == o.expanded;
}

QList<RecipientsModel::Shown> RecipientsModel::shownRows() const
{
    using Kind = AssociatedUserRowType::Kind;
    QList<Shown> rows;
    const int count = m_store->associatedRowCount();
    rows.reserve(count);
    for (int row = 0; row < count; ++row) {
        Shown& shown = rows.emplaceBack();
        const auto type = m_store->rowType(row);
        if (!type)
            continue;
        shown.kind = int(type->kind);
        switch (type->kind) {
        case Kind::user: {
            const User& u = *type->user;
            shown.name = u.firstName.value_or(QString());
            shown.lastName = u.lastName.value_or(QString());
            shown.email = u.email.value_or(QString());
            shown.phone = u.phone.value_or(QString());
            shown.checked = u.isChecked.value_or(false);
            break;
        }
        case Kind::groupHeader:
            shown.group = type->group->id;
            shown.name = type->group->name;
            shown.memberCount = int(type->group->groupMembers.size());
            shown.checked = type->group->isChecked;
            shown.expanded = m_store->expandedGroupIds.contains(type->group->id);
            break;
        case Kind::groupMember:
            shown.group = type->group->id;
            shown.member = type->member.id;
            shown.name = type->member.fullName;
            shown.email = type->member.email;
            break;
        }
    }
    return rows;
}

void RecipientsModel::storeChanged()
{
    QList<Shown> now = shownRows();
    const bool sameRows = now.size() == m_shown.size()
        && std::equal(now.begin(), now.end(), m_shown.begin(),
            [](const Shown& a, const Shown& b) { return a.sameThing(b); });
    if (!sameRows) {
        beginResetModel();
        m_shown = std::move(now);
        endResetModel();
        return;
    }
    // One signal per run of rows that look different now; none when nothing changed.
    const QList<Shown> before = std::exchange(m_shown, std::move(now));
    int row = 0;
    const int count = int(m_shown.size());
    while (row < count) {
        if (m_shown.at(row).sameLook(before.at(row))) {
            ++row;
            continue;
        }
        const int first = row;
        while (row < count && !m_shown.at(row).sameLook(before.at(row)))
            ++row;
        Q_EMIT dataChanged(index(first), index(row - 1));
    }
}

bool RecipientsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole
        || !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)
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
    return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren
        | (markable ? Qt::ItemIsUserCheckable : Qt::NoItemFlags);
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
