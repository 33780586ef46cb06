#include "recipients/AssociationsStore.h"

#include "app/Settings.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QSettings>

#include <algorithm>

namespace {

constexpr auto checkedGroupsKey = "CheckedGroups";

QString fullName(const User& user)
{
    return user.firstName.value_or(QString()) + u' ' + user.lastName.value_or(QString());
}

} // namespace

AssociationsStore::AssociationsStore(QObject* parent)
    : QObject(parent)
{
}

bool AssociationsStore::setUsersFromReply(const QByteArray& body)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return false;
    if (!doc.isObject())
        return true; // JSON, but not an object: nothing happens
    // The people the user chose stay chosen through a reload (a change signal, the phone found
    // again): a list from the phone is no decision of the user's.
    QSet<QString> chosen;
    for (const UserPtr& user : std::as_const(users)) {
        if (user->isChecked.value_or(false) && user->email)
            chosen.insert(*user->email);
    }
    users.clear();
    usersFiltered.clear();
    // Elements that are not objects are skipped; missing fields read as empty text.
    for (const QJsonValue& value : doc.object().value(u"getUsers").toArray()) {
        if (!value.isObject())
            continue;
        const QJsonObject o = value.toObject();
        auto user = std::make_shared<User>();
        user->firstName = o.value(u"firstName").toString();
        user->lastName = o.value(u"lastName").toString();
        user->email = o.value(u"email").toString();
        user->phone = o.value(u"phone").toString();
        if (chosen.contains(*user->email))
            user->isChecked = true;
        users.append(user);
        usersFiltered.append(std::make_shared<User>(*user)); // a separate copy
    }
    return true;
}

void AssociationsStore::setGroups(const QList<GroupPtr>& fetched)
{
    groups = fetched;
    groupsFiltered = fetched;
    restoreCheckedGroups();
}

void AssociationsStore::rebuildAssociations()
{
    // Each item's sort name is made once here, so the sort moves only pointers. Search keys
    // wait for a search: most rebuilds (a reply while nobody searches) never need them.
    struct Keyed
    {
        QString name;
        AssociationItemPtr item;
    };
    QList<Keyed> keyed;
    keyed.reserve(users.size() + groups.size());
    m_userKeys.clear();
    m_keysMade = false;
    m_userItems.clear();
    m_userItems.reserve(users.size());
    for (const UserPtr& user : std::as_const(users)) {
        auto item = std::make_shared<AssociationItem>(AssociationItemType::user, user, nullptr, false);
        m_userItems.append(item);
        keyed.append({ fullName(*user), std::move(item) });
    }
    for (const GroupPtr& group : std::as_const(groups)) {
        auto item = std::make_shared<AssociationItem>(AssociationItemType::group, nullptr, group, false);
        keyed.append({ group ? group->name : QString(), std::move(item) });
    }
    // Ordinal comparison, stable: equal names keep users before groups.
    std::stable_sort(keyed.begin(), keyed.end(), [](const Keyed& a, const Keyed& b) {
        return QStringView(a.name).compare(QStringView(b.name), Qt::CaseSensitive) < 0;
    });
    combinedAssociations.clear();
    combinedAssociations.reserve(keyed.size());
    for (Keyed& k : keyed)
        combinedAssociations.append(std::move(k.item));
    // A search the user typed stays applied, whatever made the list anew (a reply, a change
    // signal from the phone, a group change).
    if (m_search.isEmpty())
        combinedAssociationsFiltered = combinedAssociations;
    else
        filter();
    rowsAndRecipientsChanged();
}

namespace {

// Appends `text` lower-cased exactly as QString::toLower would; ASCII, by far the most common
// case, without the case tables, which made this the slowest part of a rebuild.
void appendLowered(QString& out, QStringView text)
{
    const bool ascii = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
    if (!ascii) {
        out += text.toString().toLower();
        return;
    }
    const qsizetype at = out.size();
    out.resize(at + text.size());
    char16_t* to = reinterpret_cast<char16_t*>(out.data()) + at;
    for (QChar c : text) {
        const char16_t u = c.unicode();
        *to++ = u >= u'A' && u <= u'Z' ? char16_t(u + 32) : u;
    }
}

} // namespace

QString AssociationsStore::searchKeyOf(const AssociationItem& item)
{
    constexpr char16_t separator = u'\x1f';
    QString key;
    if (item.type == AssociationItemType::user) {
        if (!item.user)
            return {};
        const User& u = *item.user;
        const QString& first = u.firstName ? *u.firstName : QString();
        const QString& last = u.lastName ? *u.lastName : QString();
        const QString& email = u.email ? *u.email : QString();
        key.reserve(first.size() + last.size() + email.size() + 2);
        appendLowered(key, first);
        key += u' ';
        appendLowered(key, last);
        key += separator;
        appendLowered(key, email);
        return key;
    }
    if (!item.group)
        return {};
    qsizetype size = item.group->name.size();
    for (const GroupMemberModel& member : item.group->groupMembers)
        size += member.fullName.size() + member.email.size() + 2;
    key.reserve(size);
    appendLowered(key, item.group->name);
    for (const GroupMemberModel& member : item.group->groupMembers) {
        key += separator;
        appendLowered(key, member.fullName);
        key += separator;
        appendLowered(key, member.email);
    }
    return key;
}

bool AssociationsStore::matchesSearch(const AssociationItem& item, const QString& term)
{
    if (item.type == AssociationItemType::user) {
        if (!item.user)
            return false;
        if (fullName(*item.user).contains(term, Qt::CaseInsensitive))
            return true;
        return item.user->email && item.user->email->contains(term, Qt::CaseInsensitive);
    }
    if (!item.group)
        return false;
    if (item.group->name.contains(term, Qt::CaseInsensitive))
        return true;
    for (const GroupMemberModel& member : item.group->groupMembers) {
        if (member.fullName.contains(term, Qt::CaseInsensitive)
            || member.email.contains(term, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

void AssociationsStore::applySearch(const QString& text)
{
    m_search = text;
    filter();
    computeRows();
    Q_EMIT rowsChanged();
}

void AssociationsStore::filter()
{
    if (m_search.isEmpty()) {
        combinedAssociationsFiltered = combinedAssociations;
        usersFiltered = users;
        groupsFiltered = groups;
        return;
    }
    if (!m_keysMade) {
        // A user's key serves both its item and the filtered users.
        m_userKeys.clear();
        m_userKeys.reserve(m_userItems.size());
        for (const AssociationItemPtr& item : std::as_const(m_userItems)) {
            item->searchKey = searchKeyOf(*item);
            m_userKeys.append(item->searchKey);
        }
        for (const auto& item : std::as_const(combinedAssociations)) {
            if (item->type == AssociationItemType::group)
                item->searchKey = searchKeyOf(*item);
        }
        m_keysMade = true;
    }
    // Case-insensitive containment is the lowercased substring test, without making copies.
    const QString term = m_search.toLower();
    // The keys hold the same texts matchesSearch tests, lower-cased once per rebuild.
    combinedAssociationsFiltered.clear();
    for (const auto& item : std::as_const(combinedAssociations)) {
        if (item->searchKey.contains(term))
            combinedAssociationsFiltered.append(item);
    }
    usersFiltered.clear();
    for (qsizetype i = 0; i < users.size(); ++i) {
        if (i < m_userKeys.size()
                ? m_userKeys.at(i).contains(term)
                : searchKeyOf(AssociationItem(AssociationItemType::user, users.at(i), nullptr, false))
                      .contains(term))
            usersFiltered.append(users.at(i));
    }
    groupsFiltered.clear();
    for (const GroupPtr& group : std::as_const(groups)) {
        if (group->name.contains(term, Qt::CaseInsensitive))
            groupsFiltered.append(group);
    }
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
    for (const GroupPtr& group : groups) {
        if (group->isChecked)
            ids.append(group->id);
    }
    Settings::setString(checkedGroupsKey, checkedGroupsText(ids));
}

void AssociationsStore::restoreCheckedGroups()
{
    const auto stored = Settings::string(checkedGroupsKey);
    if (!stored)
        return;
    for (qint64 id : parseCheckedGroups(*stored)) {
        for (const GroupPtr& g : std::as_const(groups)) {
            if (g->id == id) {
                g->isChecked = true;
                break;
            }
        }
        for (const GroupPtr& g : std::as_const(groupsFiltered)) {
            if (g->id == id) {
                g->isChecked = true;
                break;
            }
        }
    }
}

QStringList AssociationsStore::selectedRecipientEmails() const
{
    QSet<QString> emails;
    for (const UserPtr& user : users) {
        if (user->isChecked.value_or(false) && user->email && !user->email->isEmpty())
            emails.insert(*user->email);
    }
    for (const GroupPtr& group : groups) {
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

QString AssociationsStore::recipientsString() const
{
    QString result;
    for (const QString& email : selectedRecipientEmails())
        result += email + u';';
    return result;
}

GroupPtr AssociationsStore::groupById(qint64 id) const
{
    // The index is made with the rows; `groups` may have changed since, so a position is
    // trusted only where it still holds that id.
    if (const qsizetype at = m_groupIndex.value(id, -1);
        at >= 0 && at < groups.size() && groups.at(at)->id == id)
        return groups.at(at);
    for (const GroupPtr& group : groups) {
        if (group->id == id)
            return group;
    }
    return nullptr;
}

void AssociationsStore::computeRows()
{
    m_rows.clear();
    m_rows.reserve(combinedAssociationsFiltered.size());
    m_groupIndex.clear();
    m_groupIndex.reserve(groups.size());
    // The first group of an id wins, as a scan of the list would find it.
    for (qsizetype at = 0; at < groups.size(); ++at) {
        if (!m_groupIndex.contains(groups.at(at)->id))
            m_groupIndex.insert(groups.at(at)->id, at);
    }
    for (int i = 0; i < combinedAssociationsFiltered.size(); ++i) {
        const AssociationItem& item = *combinedAssociationsFiltered.at(i);
        m_rows.append({ i, -1 });
        if (item.type != AssociationItemType::group || !item.group
            || !expandedGroupIds.contains(item.group->id))
            continue;
        // Members of the latest fetched copy of the group.
        const qsizetype at = m_groupIndex.value(item.group->id, -1);
        const GroupPtr group = at >= 0 ? groups.at(at) : item.group;
        for (int m = 0; m < group->groupMembers.size(); ++m)
            m_rows.append({ i, m });
    }
}

std::optional<AssociatedUserRowType> AssociationsStore::rowType(int row) const
{
    if (row < 0 || row >= m_rows.size())
        return std::nullopt;
    const Row& r = m_rows.at(row);
    const AssociationItem& item = *combinedAssociationsFiltered.at(r.item);
    if (item.type == AssociationItemType::user) {
        if (!item.user)
            return std::nullopt;
        return AssociatedUserRowType { AssociatedUserRowType::Kind::user, item.user, nullptr, {} };
    }
    if (!item.group)
        return std::nullopt;
    GroupPtr group = groupById(item.group->id);
    if (!group)
        group = item.group;
    if (r.member < 0)
        return AssociatedUserRowType { AssociatedUserRowType::Kind::groupHeader, nullptr, group, {} };
    if (r.member >= group->groupMembers.size())
        return std::nullopt;
    return AssociatedUserRowType { AssociatedUserRowType::Kind::groupMember, nullptr, group,
        group->groupMembers.at(r.member) };
}

bool AssociationsStore::clickRow(int row)
{
    const auto type = rowType(row);
    if (!type)
        return false;
    if (type->kind == AssociatedUserRowType::Kind::user) {
        User& user = *type->user;
        user.isChecked = !user.isChecked.value_or(false);
        for (const UserPtr& copy : std::as_const(usersFiltered)) {
            if (copy->email == user.email) {
                copy->isChecked = user.isChecked;
                break;
            }
        }
        rowsAndRecipientsChanged();
    } else if (type->kind == AssociatedUserRowType::Kind::groupHeader) {
        toggleGroupChecked(type->group->id);
    } else {
        Q_EMIT recipientsChanged(); // nothing toggled, but the encrypt button is judged again
    }
    return true;
}

void AssociationsStore::toggleGroupChecked(qint64 id)
{
    std::optional<bool> value;
    for (const GroupPtr& g : std::as_const(groups)) {
        if (g->id == id) {
            g->isChecked = !g->isChecked;
            value = g->isChecked;
            break;
        }
    }
    for (const GroupPtr& g : std::as_const(groupsFiltered)) {
        if (g->id == id) {
            g->isChecked = value.value_or(!g->isChecked);
            break;
        }
    }
    if (value) {
        for (const auto* list : { &combinedAssociations, &combinedAssociationsFiltered }) {
            for (const auto& item : *list) {
                if (item->type == AssociationItemType::group && item->group && item->group->id == id)
                    item->group->isChecked = *value;
            }
        }
    }
    saveCheckedGroups();
    rowsAndRecipientsChanged();
}

void AssociationsStore::toggleGroupExpansion(qint64 id)
{
    if (!expandedGroupIds.remove(id))
        expandedGroupIds.insert(id);
    computeRows();
    Q_EMIT rowsChanged();
}

void AssociationsStore::selectDeselectAll()
{
    const bool allChecked = std::all_of(users.begin(), users.end(), [](const UserPtr& u) {
        return u->isChecked.value_or(false);
    }) && std::all_of(groups.begin(), groups.end(), [](const GroupPtr& g) { return g->isChecked; });
    const bool value = !allChecked;
    for (const UserPtr& user : std::as_const(users)) {
        for (const UserPtr& copy : std::as_const(usersFiltered)) {
            if (copy->email == user->email) {
                copy->isChecked = value;
                break;
            }
        }
        user->isChecked = value;
    }
    for (const GroupPtr& group : std::as_const(groups)) {
        for (const GroupPtr& copy : std::as_const(groupsFiltered)) {
            if (copy->id == group->id) {
                copy->isChecked = value;
                break;
            }
        }
        group->isChecked = value;
    }
    saveCheckedGroups();
    rowsAndRecipientsChanged();
}

void AssociationsStore::uncheckAllUsers()
{
    for (const auto* list : { &users, &usersFiltered }) {
        for (const UserPtr& user : *list)
            user->isChecked = false;
    }
    rowsAndRecipientsChanged();
}

void AssociationsStore::rowsAndRecipientsChanged()
{
    computeRows();
    Q_EMIT rowsChanged();
    Q_EMIT recipientsChanged();
}
