#pragma once

#include "api/Records.h"

#include <memory>

enum class AssociationItemType : quint8 { user = 0, group = 1 };

// One entry of the combined users-and-groups list: a user or a group, with what the list is
// sorted and searched by, made once when its record arrives. It refers to the very User or
// GroupModel record the store holds, so a mark set through it is set on the record.
class AssociationItem
{
public:
    AssociationItem(UserPtr user, int order);
    AssociationItem(GroupPtr group, int order);

    AssociationItemType type;
    UserPtr user; // user items
    GroupPtr group; // group items
    // Its place in the phone's list of users or of groups, which orders equal names.
    int order;

    // "user_" + e-mail, or "group_" + id.
    QString id() const;
    // A group's name, or first name, a space and last name: what the list is sorted by.
    const QString& displayName() const { return m_name; }
    // Whether the name or e-mail (a group's members' too) contains `loweredTerm`, as lower case.
    bool matches(const QString& loweredTerm) const { return m_searchKey.contains(loweredTerm); }

    // The same user or group with new content (a phone number, the members): the same name.
    void update(UserPtr newer);
    void update(GroupPtr newer);

    // Ordinal by name (upper case before lower case), users before groups of the same name,
    // then in the phone's order.
    static bool before(const AssociationItem& a, const AssociationItem& b);

    friend bool operator==(const AssociationItem& a, const AssociationItem& b) { return a.id() == b.id(); }

private:
    void makeSearchKey();

    QString m_name;
    // Everything the search looks at, lower-cased and joined with a separator no typed term
    // contains.
    QString m_searchKey;
};
using AssociationItemPtr = std::shared_ptr<AssociationItem>;

inline size_t qHash(const AssociationItem& item, size_t seed = 0)
{
    return qHash(item.id(), seed);
}
