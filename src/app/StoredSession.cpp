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
    // Both values came from the network once: escaped, they cannot forge lines.
    Log::line(QStringLiteral("[AppDelegate] ✅ User authenticated: ")
              + Log::escaped(Settings::string(Settings::userEmailKey).value_or(QString())));
    Log::line(QStringLiteral("[AppDelegate] ✅ BaseURL: ")
              + Log::escaped(Settings::string(Settings::baseUrlKey).value_or(QStringLiteral("not set"))));
}

} // namespace StoredSession
