#include "app/Translations.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

void installTranslations(QCoreApplication& app)
{
    auto* english = new QTranslator(&app);
    if (english->load(QStringLiteral(":/i18n/varnex_en.qm")))
        QCoreApplication::installTranslator(english);
    // Installed later, so consulted first: the user's language where a catalogue exists.
    auto* local = new QTranslator(&app);
    if (local->load(QLocale(), QStringLiteral("varnex"), QStringLiteral("_"), QStringLiteral(":/i18n")))
        QCoreApplication::installTranslator(local);
    else
        delete local;
}
