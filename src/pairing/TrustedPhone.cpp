#include "pairing/TrustedPhone.h"

#include "app/Settings.h"

namespace {
constexpr auto group = "trustedPhone";
constexpr auto emailKey = "trustedPhone/email";
constexpr auto nameKey = "trustedPhone/name";
constexpr auto addressKey = "trustedPhone/address";
constexpr auto baseUrlKey = "trustedPhone/baseURL";
} // namespace

std::optional<TrustedPhone> TrustedPhone::load()
{
    // Without an address there is nothing to find the phone at: no trusted phone.
    const auto address = Settings::string(addressKey);
    if (!address || address->isEmpty())
        return std::nullopt;
    return TrustedPhone { Settings::string(emailKey).value_or(QString()),
        Settings::string(nameKey).value_or(QString()), *address,
        Settings::string(baseUrlKey).value_or(QString()) };
}

void TrustedPhone::save() const
{
    auto settings = Settings::open();
    settings->setValue(QString::fromLatin1(emailKey), email);
    settings->setValue(QString::fromLatin1(nameKey), name);
    settings->setValue(QString::fromLatin1(addressKey), address);
    settings->setValue(QString::fromLatin1(baseUrlKey), baseURL);
    settings->sync();
    Settings::protectFile();
}

void TrustedPhone::forget()
{
    Settings::remove(group);
}
