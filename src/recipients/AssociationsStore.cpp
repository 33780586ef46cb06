#include "recipients/AssociationsStore.h"

#include "app/Settings.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

constexpr auto checkedGroupsKey = "CheckedGroups";

// What makes a record the same thing as one already held: its item can stay where it is.
QString identityOf(const User& user)
{
    return user.email.value_or(QString()) + u'\x1f' + user.firstName.value_or(QString()) + u'\x1f'
        + user.lastName.value_or(QString());
}

QString identityOf(const GroupModel& group)
{
    return QString::number(group.id) + u'\x1f' + group.name;
}

bool sameThing(const User& a, const User& b)
{
    return a.email == b.email && a.firstName == b.firstName && a.lastName == b.lastName;
}

bool sameThing(const GroupModel& a, const GroupModel& b)
{
    return a.id == b.id && a.name == b.name;
}

// Whether the records show the same, marks aside.
bool sameContent(const User& a, const User& b)
{
    return sameThing(a, b) && a.phone == b.phone;
}

bool sameContent(const GroupModel& a, const GroupModel& b)
{
    return sameThing(a, b) && a.createdAt == b.createdAt && a.ownerEmail == b.ownerEmail
        && std::equal(a.groupMembers.begin(), a.groupMembers.end(), b.groupMembers.begin(),
            b.groupMembers.end(), [](const GroupMemberModel& x, const GroupMemberModel& y) {
                return x.id == y.id && x.fullName == y.fullName && x.email == y.email
                    && x.phoneNumber == y.phoneNumber;
            });
}

bool isChecked(const User& user)
{
    return user.isChecked.value_or(false);
}

} // namespace

AssociationsStore::AssociationsStore(QObject* parent)
    : QObject(parent)
{
    qRegisterMetaType<AssociationsStore::Change>();
}

template <typename Ptr>
AssociationsStore::Change AssociationsStore::take(
    const QList<Ptr>& replied, QList<Ptr>& records, QList<AssociationItemPtr>& items)
{
    Change change;
    bool moved = false; // an item that stays has another place in its list
    QList<Ptr> nextRecords;
    QList<AssociationItemPtr> nextItems;
    nextRecords.reserve(replied.size());
    nextItems.reserve(replied.size());
    QList<bool> kept(items.size(), false);
    // Most replies list what they listed before in the same order, give or take a few records
    // added or gone: those are matched as the two lists are walked side by side. Anything else
    // is matched by identity, first come first served.
    constexpr qsizetype lookAhead = 8;
    qsizetype next = 0; // the first record held that the walk has not passed
    QHash<QString, QList<qsizetype>> byIdentity;
    const auto findHeld = [&](const Ptr& record) -> qsizetype {
        if (items.isEmpty())
            return -1;
        if (byIdentity.isEmpty()) {
            for (qsizetype j = 0; j < items.size(); ++j)
                byIdentity[identityOf(*records.at(j))].append(j);
        }
        const auto found = byIdentity.find(identityOf(*record));
        if (found == byIdentity.end())
            return -1;
        while (!found->isEmpty() && kept.at(found->first()))
            found->removeFirst();
        return found->isEmpty() ? -1 : found->takeFirst();
    };
    for (qsizetype i = 0; i < replied.size(); ++i) {
        const Ptr& record = replied.at(i);
        qsizetype at = -1;
        // Held records that are gone are stepped over.
        for (qsizetype j = next; at < 0 && j < std::min(items.size(), next + lookAhead); ++j) {
            if (!kept.at(j) && (records.at(j) == record || sameThing(*records.at(j), *record)))
                at = j;
        }
        if (at < 0) {
            // A new record comes before the held one the walk is at.
            bool added = false;
            for (qsizetype d = 1; !added && next < items.size() && d < lookAhead && i + d < replied.size();
                 ++d)
                added = sameThing(*records.at(next), *replied.at(i + d));
            if (!added)
                at = findHeld(record);
        }
        if (at >= next)
            next = at + 1;
        if (at < 0) {
            nextRecords.append(record);
            nextItems.append(std::make_shared<AssociationItem>(record, int(i)));
            change.inserted.append(nextItems.last());
            continue;
        }
        kept[at] = true;
        const AssociationItemPtr& item = items.at(at);
        if (records.at(at) == record || sameContent(*records.at(at), *record)) {
            nextRecords.append(records.at(at));
        } else {
            nextRecords.append(record);
            item->update(record);
            change.updated.append(item);
        }
        if (item->order != int(i)) {
            item->order = int(i);
            moved = true;
        }
        nextItems.append(item);
    }
    for (qsizetype j = 0; j < items.size(); ++j) {
        if (!kept.at(j))
            change.removed.append(items.at(j));
    }
    records = std::move(nextRecords);
    items = std::move(nextItems);

    if (!change.removed.isEmpty() || !change.inserted.isEmpty() || moved) {
        const QSet<const AssociationItem*> gone = [&change] {
            QSet<const AssociationItem*> set;
            for (const AssociationItemPtr& item : std::as_const(change.removed))
                set.insert(item.get());
            return set;
        }();
        QList<AssociationItemPtr> staying;
        staying.reserve(m_items.size());
        for (const AssociationItemPtr& item : std::as_const(m_items)) {
            if (!gone.contains(item.get()))
                staying.append(item);
        }
        const auto before = [](const AssociationItemPtr& a, const AssociationItemPtr& b) {
            return AssociationItem::before(*a, *b);
        };
        QList<AssociationItemPtr> added = change.inserted;
        std::sort(added.begin(), added.end(), before);
        change.reordered = !std::is_sorted(staying.begin(), staying.end(), before);
        if (change.reordered)
            std::sort(staying.begin(), staying.end(), before);
        m_items.clear();
        m_items.reserve(staying.size() + added.size());
        std::merge(
            staying.begin(), staying.end(), added.begin(), added.end(), std::back_inserter(m_items), before);
    }
    return change;
}

void AssociationsStore::tell(const Change& change, bool changed)
{
    if (!change.removed.isEmpty() || !change.inserted.isEmpty() || !change.updated.isEmpty()
        || change.reordered)
        Q_EMIT itemsChanged(change);
    // The views look at the marks again after every reply, whatever set them meanwhile: a look
    // at each row's mark is cheap, and the records are shared.
    Q_EMIT marksChanged();
    if (changed)
        Q_EMIT recipientsChanged();
}

void AssociationsStore::setUsers(const QList<UserPtr>& replied)
{
    // The people the user chose stay chosen through a reload (a change signal, the phone found
    // again): a list from the phone is no decision of the user's.
    QSet<QString> chosen;
    for (const UserPtr& user : std::as_const(m_users)) {
        if (isChecked(*user) && user->email)
            chosen.insert(*user->email);
    }
    const QList<UserPtr> previous = m_users;
    const Change change = take(replied, m_users, m_userItems);
    bool changed = previous != m_users;
    for (const UserPtr& user : std::as_const(m_users)) {
        const bool wanted = !chosen.isEmpty() && user->email && chosen.contains(*user->email);
        changed = changed || isChecked(*user) != wanted;
        user->isChecked = wanted;
    }
    tell(change, changed);
}

void AssociationsStore::setGroups(const QList<GroupPtr>& fetched)
{
    const QList<GroupPtr> previous = m_groups;
    const Change change = take(fetched, m_groups, m_groupItems);
    m_groupIndex.clear();
    m_groupIndex.reserve(m_groups.size());
    for (qsizetype i = 0; i < m_groups.size(); ++i) {
        if (!m_groupIndex.contains(m_groups.at(i)->id))
            m_groupIndex.insert(m_groups.at(i)->id, i);
    }
    // A fetched group arrives unchecked; the stored ids check the first group of each again.
    QSet<qint64> stored;
    if (const auto text = Settings::string(checkedGroupsKey)) {
        for (qint64 id : parseCheckedGroups(*text))
            stored.insert(id);
    }
    bool changed = previous != m_groups;
    for (qsizetype i = 0; i < m_groups.size(); ++i) {
        GroupModel& group = *m_groups.at(i);
        const bool wanted = stored.contains(group.id) && m_groupIndex.value(group.id) == i;
        changed = changed || group.isChecked != wanted;
        group.isChecked = wanted;
    }
    tell(change, changed);
}

GroupPtr AssociationsStore::groupById(qint64 id) const
{
    const qsizetype at = m_groupIndex.value(id, -1);
    return at >= 0 ? m_groups.at(at) : nullptr;
}

void AssociationsStore::toggleGroupExpansion(qint64 id)
{
    if (!m_expanded.remove(id))
        m_expanded.insert(id);
    Q_EMIT expansionChanged();
}

void AssociationsStore::toggleUserChecked(const User* user)
{
    for (const UserPtr& held : std::as_const(m_users)) {
        if (held.get() == user) {
            held->isChecked = !isChecked(*held);
            return marked();
        }
    }
}

void AssociationsStore::toggleGroupChecked(qint64 id)
{
    const GroupPtr first = groupById(id);
    if (!first)
        return;
    const bool value = !first->isChecked;
    for (const GroupPtr& group : std::as_const(m_groups)) {
        if (group->id == id)
            group->isChecked = value;
    }
    saveCheckedGroups();
    marked();
}

void AssociationsStore::selectDeselectAll()
{
    const bool allChecked = std::all_of(m_users.begin(), m_users.end(), [](const UserPtr& u) {
        return isChecked(*u);
    }) && std::all_of(m_groups.begin(), m_groups.end(), [](const GroupPtr& g) { return g->isChecked; });
    for (const UserPtr& user : std::as_const(m_users))
        user->isChecked = !allChecked;
    for (const GroupPtr& group : std::as_const(m_groups))
        group->isChecked = !allChecked;
    saveCheckedGroups();
    marked();
}

void AssociationsStore::uncheckAllUsers()
{
    for (const UserPtr& user : std::as_const(m_users))
        user->isChecked = false;
    marked();
}

void AssociationsStore::marked()
{
    Q_EMIT marksChanged();
    Q_EMIT recipientsChanged();
}

QString AssociationsStore::checkedGroupsText(const QList<qint64>& ids)
{
    QStringList parts;
    for (qint64 id : ids)
        parts.append(QString::number(id));
    return u"test" + parts.join(u"test") + u"test";
}

QList<qint64> AssociationsStore::parseCheckedGroups(const QString& text)
{
    QList<qint64> ids;
    for (const QString& piece : text.split(QStringLiteral("test"), Qt::SkipEmptyParts)) {
        // A sign, then digits only; anything else (or an overflow) is skipped.
        static const QRegularExpression number(QStringLiteral("^[+-]?[0-9]+$"));
        if (!number.match(piece).hasMatch())
            continue;
        bool ok = false;
        const qint64 id = piece.toLongLong(&ok);
        if (ok)
            ids.append(id);
    }
    return ids;
}

void AssociationsStore::saveCheckedGroups() const
{
    QList<qint64> ids;
    for (const GroupPtr& group : m_groups) {
        if (group->isChecked)
            ids.append(group->id);
    }
    Settings::setString(checkedGroupsKey, checkedGroupsText(ids));
}

QStringList AssociationsStore::selectedRecipientEmails() const
{
    QSet<QString> emails;
    for (const UserPtr& user : m_users) {
        if (isChecked(*user) && user->email && !user->email->isEmpty())
            emails.insert(*user->email);
    }
    for (const GroupPtr& group : m_groups) {
        if (!group->isChecked)
            continue;
        for (const GroupMemberModel& member : group->groupMembers) {
            if (!member.email.isEmpty())
                emails.insert(member.email);
        }
    }
    QStringList sorted(emails.begin(), emails.end());
    std::sort(
        sorted.begin(), sorted.end(), [](const QString& a, const QString& b) { return a.compare(b) < 0; });
    return sorted;
}

QStringList AssociationsStore::checkedNames() const
{
    QStringList names;
    for (const AssociationItemPtr& item : m_items) {
        if (isItemChecked(*item))
            names.append(item->displayName().trimmed());
    }
    return names;
}

bool AssociationsStore::isItemChecked(const AssociationItem& item)
{
    return item.user ? ::isChecked(*item.user) : item.group && item.group->isChecked;
}

QString AssociationsStore::recipientsString() const
{
    QString result;
    for (const QString& email : selectedRecipientEmails())
        result += email + u';';
    return result;
}
