#pragma once

#include <QSettings>
#include <QString>

#include <memory>
#include <optional>

// The application's persistent key-value store. QSettings objects are reentrant, not
// thread-safe, so every caller gets its own short-lived instance over the same file.
namespace Settings {

inline constexpr auto organization = "Varnex";
inline constexpr auto application = "Varnex Desktop";

inline constexpr auto userEmailKey = "varnex_user_email";
inline constexpr auto baseUrlKey = "baseURL";

std::unique_ptr<QSettings> open();

// The string stored under key, or nothing when the key holds no string.
std::optional<QString> string(const char* key);
void setString(const char* key, const QString& value);
// Removes a key, or a whole group when key names one.
void remove(const char* key);
// Makes the settings file readable and writable by its owner only (0600); every write does too.
void protectFile();

} // namespace Settings
