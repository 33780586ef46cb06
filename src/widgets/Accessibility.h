#pragma once

#include <functional>

class QAccessibleEvent;

// The accessibility events this program sends of its own go through here. Qt drops every
// event unless a platform bridge is active, so a test on a platform without one installs a
// listener to see what would be sent.
namespace Accessibility {
// Whether anyone listens: an active bridge, or a test's listener.
bool listening();
void send(QAccessibleEvent* event);
// nullptr: events go to the bridge again.
void setListenerForTesting(std::function<void(QAccessibleEvent*)> listener);
} // namespace Accessibility
