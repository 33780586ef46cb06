#pragma once

#include <QLoggingCategory>

// Developer diagnostics of the desktop integration: one instance, notifications.
Q_DECLARE_LOGGING_CATEGORY(lcDesktop)
