#pragma once

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

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

// A broken promise of the code under test: libFuzzer and the replay report the input.
inline void check(bool ok)
{
    if (!ok)
        std::abort();
}

} // namespace FuzzSupport

// Included by exactly one file of each target, which defines LLVMFuzzerTestOneInput.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    FuzzSupport::scratch();
    static QCoreApplication* app = new QCoreApplication(*argc, *argv);
    Q_UNUSED(app);
    return 0;
}
