#include "app/Settings.h"

namespace Settings {

std::unique_ptr<QSettings> open()
{
    return std::make_unique<QSettings>(QString::fromLatin1(organization), QString::fromLatin1(application));
}

std::optional<QString> string(const char* key)
{
    const QVariant value = open()->value(QString::fromLatin1(key));
    if (!value.isValid() || value.typeId() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

void setString(const char* key, const QString& value)
{
    auto settings = open();
    settings->setValue(QString::fromLatin1(key), value);
    settings->sync();
}

} // namespace Settings
