#pragma once

#include <QLoggingCategory>

// Developer diagnostics of the screens.
Q_DECLARE_LOGGING_CATEGORY(lcScreens)
