#pragma once

#include <QLoggingCategory>

// Developer diagnostics of pairing: the listener, the phone connection and its watchdog.
Q_DECLARE_LOGGING_CATEGORY(lcPairing)
