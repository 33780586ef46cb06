#include "app/BaseUrlStore.h"

#include "app/Log.h"
#include "app/Settings.h"

#include <QUrl>

namespace BaseUrlStore {

namespace {

bool isUrlCharacter(char16_t c)
{
    if ((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9'))
        return true;
    // RFC 3986 unreserved and reserved characters; '%' is checked with its escape below.
    static constexpr std::u16string_view allowed = u"-._~:/?#[]@!$&'()*+,;=";
    return allowed.find(c) != std::u16string_view::npos;
}

bool isHex(char16_t c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

} // namespace

bool isWellFormedUrl(const QString& text)
{
    if (text.isEmpty())
        return false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text.at(i).unicode();
        if (c == u'%') {
            if (i + 2 >= text.size() || !isHex(text.at(i + 1).unicode()) || !isHex(text.at(i + 2).unicode()))
                return false;
            i += 2;
            continue;
        }
        if (!isUrlCharacter(c))
            return false;
    }
    // Character set alone accepts things like "http://[bad"; let the strict parser judge the
    // structure (authority, IPv6 literal, port).
    const QUrl url(text, QUrl::StrictMode);
    // Every call to the phone's group API is built on this URL: only a web address with a
    // host will do (not file:, ftp: or a bare path).
    const QString scheme = url.scheme().toLower();
    return url.isValid() && (scheme == u"http" || scheme == u"https") && !url.host().isEmpty();
}

bool setBaseURL(const QString& text)
{
    if (!isWellFormedUrl(text)) {
        Log::line(QStringLiteral("[BaseUrlStore] ❌ ERROR: Invalid URL format: ") + Log::escaped(text));
        return false;
    }
    Settings::setString(Settings::baseUrlKey, text);
    Log::line(QStringLiteral("[BaseUrlStore] ✅ Base URL set: ") + Log::escaped(text));
    return true;
}

void clear()
{
    if (!hasBaseURL())
        return;
    Settings::remove(Settings::baseUrlKey);
    Log::line(QStringLiteral("[BaseUrlStore] ✅ Base URL cleared"));
}

bool hasBaseURL()
{
    const auto stored = Settings::string(Settings::baseUrlKey);
    return stored && !stored->isEmpty();
}

} // namespace BaseUrlStore
