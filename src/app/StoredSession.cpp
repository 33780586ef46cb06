#include "app/StoredSession.h"

#include "app/BaseUrlStore.h"
#include "app/Log.h"
#include "app/Settings.h"

namespace StoredSession {

bool isComplete()
{
    return Settings::string(Settings::userEmailKey).has_value() && BaseUrlStore::hasBaseURL();
}

void log()
{
    if (!isComplete()) {
        Log::line(QStringLiteral("[AppDelegate] ⚠️ User not authenticated - waiting for QR code scan from iOS"));
        return;
    }
    Log::line(QStringLiteral("[AppDelegate] ✅ User authenticated: ") + Settings::string(Settings::userEmailKey).value_or(QString()));
    Log::line(QStringLiteral("[AppDelegate] ✅ BaseURL: ")
              + Settings::string(Settings::baseUrlKey).value_or(QStringLiteral("not set")));
}

} // namespace StoredSession
