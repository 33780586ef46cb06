#pragma once

#include "api/Records.h"

#include <memory>

enum class AssociationItemType : quint8 { user = 0, group = 1 };

// One entry of the combined users-and-groups list. It refers to the very User and
// GroupModel objects of the store's lists, so a mark set through it is set on them.
class AssociationItem
{
public:
    AssociationItem(AssociationItemType type, UserPtr user, GroupPtr group, bool isExpanded)
        : type(type)
        , user(std::move(user))
        , group(std::move(group))
        , isExpanded(isExpanded)
    {
    }

    AssociationItemType type;
    UserPtr user;
    GroupPtr group;
    bool isExpanded;
    // Everything the search looks at, lower-cased at the first search after a rebuild and joined with a
    // separator no typed term contains.
    QString searchKey;

    // "user_" + e-mail, or "group_" + id.
    QString id() const;
    // A group's name, or first name, a space and last name.
    QString displayName() const;

    friend bool operator==(const AssociationItem& a, const AssociationItem& b) { return a.id() == b.id(); }
};
using AssociationItemPtr = std::shared_ptr<AssociationItem>;

inline size_t qHash(const AssociationItem& item, size_t seed = 0)
{
    return qHash(item.id(), seed);
}
