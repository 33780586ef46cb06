#include "recipients/RecipientsModel.h"

namespace {

using Kind = AssociatedUserRowType::Kind;

// Beyond this many changed users and groups, the rows are shown anew in one go rather than
// moved run by run.
constexpr qsizetype mostMoved = 256;

bool checkedOf(const AssociationItem& item)
{
    return item.type == AssociationItemType::user ? item.user->isChecked.value_or(false)
                                                  : item.group->isChecked;
}

} // namespace

RecipientsModel::RecipientsModel(AssociationsStore* store, QObject* parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    for (const AssociationItemPtr& item : store->items())
        m_shown.append(item.get());
    m_rows = rowsOf(m_shown);
    connect(store, &AssociationsStore::itemsChanged, this, &RecipientsModel::itemsChanged);
    connect(store, &AssociationsStore::marksChanged, this, &RecipientsModel::marksChanged);
    connect(store, &AssociationsStore::expansionChanged, this, [this] { showAnew(m_shown); });
}

bool RecipientsModel::passes(const AssociationItem& item) const
{
    return m_term.isEmpty() || item.matches(m_term);
}

int RecipientsModel::hiddenCheckedCount() const
{
    int hidden = 0;
    for (const AssociationItemPtr& item : m_store->items())
        hidden += !passes(*item) && AssociationsStore::isItemChecked(*item);
    return hidden;
}

QList<RecipientsModel::Row> RecipientsModel::rowsOf(const QList<const AssociationItem*>& shown) const
{
    QList<Row> rows;
    rows.reserve(shown.size());
    for (const AssociationItem* item : shown) {
        rows.append({ item, -1, checkedOf(*item) });
        if (item->type == AssociationItemType::group && m_store->isExpanded(item->group->id)) {
            for (int m = 0; m < item->group->groupMembers.size(); ++m)
                rows.append({ item, m, false });
        }
    }
    return rows;
}

void RecipientsModel::applySearch(const QString& text)
{
    const QString term = text.toLower();
    // Typing on only narrows what is shown already.
    const bool narrowing = !m_term.isEmpty() && term.contains(m_term);
    m_search = text;
    m_term = term;
    QList<const AssociationItem*> shown;
    if (narrowing) {
        for (const AssociationItem* item : std::as_const(m_shown)) {
            if (passes(*item))
                shown.append(item);
        }
    } else {
        shown.reserve(m_store->items().size());
        for (const AssociationItemPtr& item : m_store->items()) {
            if (passes(*item))
                shown.append(item.get());
        }
    }
    showAnew(std::move(shown));
}

void RecipientsModel::showAnew(QList<const AssociationItem*> shown)
{
    QList<Row> next = rowsOf(shown);
    m_shown = std::move(shown);
    // The same rows keep the view's current row and scroll position.
    if (next != m_rows) {
        beginResetModel();
        m_rows = std::move(next);
        endResetModel();
    }
    marksChanged();
}

void RecipientsModel::itemsChanged(const AssociationsStore::Change& change)
{
    QSet<const AssociationItem*> touched;
    for (const auto* list : { &change.removed, &change.inserted, &change.updated }) {
        for (const AssociationItemPtr& item : *list)
            touched.insert(item.get());
    }
    QList<const AssociationItem*> shown;
    shown.reserve(m_store->items().size());
    if (change.reordered || touched.size() > mostMoved) {
        for (const AssociationItemPtr& item : m_store->items()) {
            if (passes(*item))
                shown.append(item.get());
        }
        return showAnew(std::move(shown));
    }
    // Only what changed is searched again: the others pass as they passed.
    qsizetype j = 0; // into the items shown so far, which are in the same order
    for (const AssociationItemPtr& held : m_store->items()) {
        const AssociationItem* item = held.get();
        while (j < m_shown.size() && m_shown.at(j) != item && touched.contains(m_shown.at(j)))
            ++j; // removed, or updated and placed again below
        const bool wasShown = j < m_shown.size() && m_shown.at(j) == item;
        j += wasShown;
        if (touched.contains(item) ? passes(*item) : wasShown)
            shown.append(item);
    }
    QList<Row> next = rowsOf(shown);
    m_shown = std::move(shown);
    moveTo(std::move(next), touched);
}

void RecipientsModel::moveTo(QList<Row> next, const QSet<const AssociationItem*>& touched)
{
    const QList<Row> old = m_rows;
    QList<int> renewed; // rows that stay but show something new
    qsizetype i = 0; // into old; m_rows is next[0, j) followed by old[i, end)
    qsizetype j = 0;
    while (i < old.size() || j < next.size()) {
        if (i < old.size() && j < next.size() && old.at(i) == next.at(j)) {
            if (touched.contains(old.at(i).item))
                renewed.append(int(j));
            next[j].checked = old.at(i).checked; // as shown; the marks are compared below
            ++i;
            ++j;
            continue;
        }
        qsizetype end = i;
        while (end < old.size() && touched.contains(old.at(end).item)
            && !(j < next.size() && old.at(end) == next.at(j)))
            ++end;
        if (end > i) {
            beginRemoveRows({}, int(j), int(j + end - i - 1));
            m_rows.remove(j, end - i);
            endRemoveRows();
            i = end;
            continue;
        }
        end = j;
        while (end < next.size() && touched.contains(next.at(end).item)
            && !(i < old.size() && old.at(i) == next.at(end)))
            ++end;
        if (end > j) {
            beginInsertRows({}, int(j), int(end - 1));
            m_rows.insert(j, end - j, Row {});
            std::copy(next.begin() + j, next.begin() + end, m_rows.begin() + j);
            endInsertRows();
            j = end;
            continue;
        }
        // Rows of unchanged items out of step: nothing to move, everything to show anew.
        beginResetModel();
        m_rows = std::move(next);
        endResetModel();
        return marksChanged();
    }
    m_rows = std::move(next);
    for (int row : std::as_const(renewed)) {
        Row& r = m_rows[row];
        r.checked = !(r.member < 0 && checkedOf(*r.item)); // told as changed by the pass below
    }
    marksChanged();
}

void RecipientsModel::marksChanged()
{
    // One signal per run of rows that show another mark now; none when nothing changed.
    qsizetype first = -1;
    for (qsizetype row = 0; row <= m_rows.size(); ++row) {
        bool differs = false;
        if (row < m_rows.size()) {
            Row& r = m_rows[row];
            const bool now = r.member < 0 && checkedOf(*r.item);
            differs = r.checked != now;
            r.checked = now;
        }
        if (differs && first < 0)
            first = row;
        if (!differs && first >= 0) {
            Q_EMIT dataChanged(index(int(first)), index(int(row - 1)));
            first = -1;
        }
    }
}

std::optional<AssociatedUserRowType> RecipientsModel::rowType(int row) const
{
    if (row < 0 || row >= m_rows.size())
        return std::nullopt;
    const Row& r = m_rows.at(row);
    if (r.item->type == AssociationItemType::user)
        return AssociatedUserRowType { Kind::user, r.item->user, nullptr, {} };
    if (r.member < 0)
        return AssociatedUserRowType { Kind::groupHeader, nullptr, r.item->group, {} };
    return AssociatedUserRowType { Kind::groupMember, nullptr, r.item->group,
        r.item->group->groupMembers.at(r.member) };
}

bool RecipientsModel::clickRow(int row)
{
    const auto type = rowType(row);
    if (!type)
        return false;
    switch (type->kind) {
    case Kind::user:
        m_store->toggleUserChecked(type->user.get());
        break;
    case Kind::groupHeader:
        m_store->toggleGroupChecked(type->group->id);
        break;
    case Kind::groupMember:
        m_store->reconsiderRecipients(); // nothing toggled, but the encrypt button is judged again
        break;
    }
    return true;
}

bool RecipientsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole
        || !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)
        || !flags(index).testFlag(Qt::ItemIsUserCheckable))
        return false;
    const bool wanted = value.value<Qt::CheckState>() == Qt::Checked;
    if (wanted != data(index, CheckedRole).toBool())
        clickRow(index.row());
    return true;
}

int RecipientsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

Qt::ItemFlags RecipientsModel::flags(const QModelIndex& index) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return Qt::NoItemFlags;
    // Users and groups carry a mark; a member row only shows who is in a group.
    const bool markable = m_rows.at(index.row()).member < 0;
    return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren
        | (markable ? Qt::ItemIsUserCheckable : Qt::NoItemFlags);
}

QVariant RecipientsModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row& row = m_rows.at(index.row());
    const AssociationItem& item = *row.item;
    if (item.type == AssociationItemType::user) {
        const User& u = *item.user;
        switch (role) {
        case KindRole:
            return int(Kind::user);
        case Qt::DisplayRole:
        case NameRole:
            return item.displayName().toUpper();
        case Qt::ToolTipRole:
            return item.displayName();
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
            return QString(item.displayName() + u", " + u.email.value_or(QString()));
        }
        return {};
    }
    const GroupModel& g = *item.group;
    if (row.member >= 0) {
        const GroupMemberModel& member = g.groupMembers.at(row.member);
        switch (role) {
        case KindRole:
            return int(Kind::groupMember);
        case Qt::DisplayRole:
        case NameRole:
        case Qt::AccessibleTextRole:
            return member.fullName;
        case EmailRole:
            return member.email;
        case GroupIdRole:
            return g.id;
        }
        return {};
    }
    switch (role) {
    case KindRole:
        return int(Kind::groupHeader);
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
        return m_store->isExpanded(g.id);
    }
    return {};
}
