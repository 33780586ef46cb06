#include "recipients/AssociationItem.h"

QString AssociationItem::id() const
{
    if (type == AssociationItemType::user)
        return u"user_" + (user ? user->email.value_or(QString()) : QString());
    return u"group_" + QString::number(group ? group->id : 0);
}

QString AssociationItem::displayName() const
{
    if (type == AssociationItemType::group)
        return group ? group->name : QString();
    if (!user)
        return {};
    return user->firstName.value_or(QString()) + u' ' + user->lastName.value_or(QString());
}
