#include "screens/ScreensLog.h"

Q_LOGGING_CATEGORY(lcScreens, "varnex.screens", QtInfoMsg)
