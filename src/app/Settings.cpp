#include "app/Settings.h"

#include <QFile>
#include <QFileInfo>

namespace Settings {

namespace {

// The file holds the user's e-mail and the phone that may receive their files: nobody else
// on the computer reads or changes it.
void keepPrivate(const QSettings& settings)
{
    const QString file = settings.fileName();
    if (QFileInfo::exists(file))
        QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

} // namespace

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
    keepPrivate(*settings);
}

void remove(const char* key)
{
    auto settings = open();
    settings->remove(QString::fromLatin1(key));
    settings->sync();
    keepPrivate(*settings);
}

void protectFile()
{
    keepPrivate(*open());
}

} // namespace Settings
