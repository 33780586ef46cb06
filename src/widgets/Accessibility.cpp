#include "widgets/Accessibility.h"

#include <QAccessible>

namespace {
std::function<void(QAccessibleEvent*)>& testListener()
{
    static std::function<void(QAccessibleEvent*)> listener;
    return listener;
}
} // namespace

bool Accessibility::listening()
{
    return testListener() || QAccessible::isActive();
}

void Accessibility::send(QAccessibleEvent* event)
{
    if (testListener())
        testListener()(event);
    else
        QAccessible::updateAccessibility(event);
}

void Accessibility::setListenerForTesting(std::function<void(QAccessibleEvent*)> listener)
{
    testListener() = std::move(listener);
}
