#pragma once

#include <QObject>
#include <QWidget>

// A named part of a screen (its object name), found the way assistive tools walk a window.
template <typename T = QWidget> T* part(const QObject* owner, const char* name)
{
    T* found = owner->findChild<T*>(QString::fromLatin1(name));
    if (!found)
        qWarning("no part named %s", name);
    return found;
}
