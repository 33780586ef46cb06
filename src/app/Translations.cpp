#include "app/Translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

void installTranslations(QCoreApplication& app)
{
    auto* english = new QTranslator(&app);
    if (english->load(QStringLiteral(":/i18n/varnex_en.qm")))
        QCoreApplication::installTranslator(english);
    // Installed later, so consulted first: the user's language where a catalogue exists.
    auto* local = new QTranslator(&app);
    if (!local->load(QLocale(), QStringLiteral("varnex"), QStringLiteral("_"), QStringLiteral(":/i18n"))) {
        delete local;
        return;
    }
    QCoreApplication::installTranslator(local);
    // Qt's own texts (the file chooser, a text field's menu) in the same language, when the
    // system has them; only when we speak that language too, so a window never mixes two.
    auto* qt = new QTranslator(&app);
    if (qt->load(QLocale(), QStringLiteral("qtbase"), QStringLiteral("_"),
            QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(qt);
    else
        delete qt;
}
