#pragma once

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: an application object, and a home of its own so that nothing
// a target writes (settings, scratch folders) lands in the real user's files.
namespace FuzzSupport {

inline QTemporaryDir& scratch()
{
    static QTemporaryDir* dir = [] {
        auto* d = new QTemporaryDir;
        qputenv("HOME", QFile::encodeName(d->path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(d->path() + QStringLiteral("/.config")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(d->path() + QStringLiteral("/.local/share")));
        qputenv("QT_LOGGING_RULES", "*.debug=false;*.info=false;*.warning=false");
        return d;
    }();
    return *dir;
}

inline void start(int* argc, char*** argv)
{
    scratch();
    static QCoreApplication* app = new QCoreApplication(*argc, *argv);
    Q_UNUSED(app);
}

} // namespace FuzzSupport

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
