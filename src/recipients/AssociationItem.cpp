#include "recipients/AssociationItem.h"

#include <algorithm>

namespace {

constexpr char16_t separator = u'\x1f';

// Appends `text` lower-cased exactly as QString::toLower would; ASCII, by far the most common
// case, without the case tables.
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

QString nameOf(const User& user)
{
    return user.firstName.value_or(QString()) + u' ' + user.lastName.value_or(QString());
}

} // namespace

AssociationItem::AssociationItem(UserPtr user, int order)
    : type(AssociationItemType::user)
    , user(std::move(user))
    , order(order)
    , m_name(nameOf(*this->user))
{
    makeSearchKey();
}

AssociationItem::AssociationItem(GroupPtr group, int order)
    : type(AssociationItemType::group)
    , group(std::move(group))
    , order(order)
    , m_name(this->group->name)
{
    makeSearchKey();
}

void AssociationItem::update(UserPtr newer)
{
    user = std::move(newer);
    makeSearchKey();
}

void AssociationItem::update(GroupPtr newer)
{
    group = std::move(newer);
    makeSearchKey();
}

QString AssociationItem::id() const
{
    if (type == AssociationItemType::user)
        return u"user_" + user->email.value_or(QString());
    return u"group_" + QString::number(group->id);
}

bool AssociationItem::before(const AssociationItem& a, const AssociationItem& b)
{
    if (const int byName = QStringView(a.m_name).compare(QStringView(b.m_name), Qt::CaseSensitive))
        return byName < 0;
    if (a.type != b.type)
        return a.type == AssociationItemType::user;
    return a.order < b.order;
}

void AssociationItem::makeSearchKey()
{
    m_searchKey.clear();
    if (type == AssociationItemType::user) {
        const User& u = *user;
        const QString& first = u.firstName ? *u.firstName : QString();
        const QString& last = u.lastName ? *u.lastName : QString();
        const QString& email = u.email ? *u.email : QString();
        m_searchKey.reserve(first.size() + last.size() + email.size() + 2);
        appendLowered(m_searchKey, first);
        m_searchKey += u' ';
        appendLowered(m_searchKey, last);
        m_searchKey += separator;
        appendLowered(m_searchKey, email);
        return;
    }
    qsizetype size = group->name.size();
    for (const GroupMemberModel& member : group->groupMembers)
        size += member.fullName.size() + member.email.size() + 2;
    m_searchKey.reserve(size);
    appendLowered(m_searchKey, group->name);
    for (const GroupMemberModel& member : group->groupMembers) {
        m_searchKey += separator;
        appendLowered(m_searchKey, member.fullName);
        m_searchKey += separator;
        appendLowered(m_searchKey, member.email);
    }
}
