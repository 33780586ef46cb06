#include "desktop/DesktopLog.h"

Q_LOGGING_CATEGORY(lcDesktop, "varnex.desktop")
