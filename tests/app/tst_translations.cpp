#include "app/Translations.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

#include <map>

namespace {

struct Entry
{
    QString source;
    QStringList translations; // one per plural form, or the single translation
    QString type; // "unfinished", "vanished", "obsolete" or empty
    bool numerus = false;
};

// The messages of a Qt Linguist file, by id.
std::map<QString, Entry> readCatalogue(const QString& path)
{
    std::map<QString, Entry> entries;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    QXmlStreamReader xml(&file);
    QString id;
    while (xml.readNextStartElement() || !xml.atEnd()) {
        if (!xml.isStartElement())
            continue;
        const auto name = xml.name();
        if (name == u"message") {
            id = xml.attributes().value(QStringLiteral("id")).toString();
            entries[id].numerus = xml.attributes().value(QStringLiteral("numerus")) == u"yes";
        } else if (name == u"source") {
            entries[id].source = xml.readElementText();
        } else if (name == u"translation") {
            Entry& entry = entries[id];
            entry.type = xml.attributes().value(QStringLiteral("type")).toString();
            if (!entry.numerus)
                entry.translations = { xml.readElementText() };
        } else if (name == u"numerusform") {
            entries[id].translations.append(xml.readElementText());
        }
    }
    return entries;
}

// The placeholders a text carries (%1, %n, ...), which a translation must keep.
QStringList placeholders(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("%(\\d+|n)"));
    QStringList found;
    for (const auto& match : pattern.globalMatch(text))
        found.append(match.captured());
    found.sort();
    found.removeDuplicates();
    return found;
}

} // namespace

class TestTranslations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cataloguesAreComplete();
    void catalogueFollowsTheLocale_data();
    void catalogueFollowsTheLocale();

private:
    std::map<QString, Entry> m_english;
    std::map<QString, Entry> m_german;
};

void TestTranslations::initTestCase()
{
    m_english = readCatalogue(QStringLiteral(VARNEX_SOURCE_TS));
    m_german = readCatalogue(QStringLiteral(VARNEX_GERMAN_TS));
    QVERIFY2(m_english.size() > 30, "the catalogue gathered from the sources is missing or nearly empty");
    QVERIFY(!m_german.empty());
}

void TestTranslations::cataloguesAreComplete()
{
    QStringList problems;
    for (const auto& [id, english] : m_english) {
        // Without a //% text, every user without a catalogue would see the bare id.
        if (english.source.trimmed().isEmpty())
            problems.append(id + u": no English text");
        const auto found = m_german.find(id);
        if (found == m_german.end()) {
            problems.append(id + u": missing");
            continue;
        }
        const Entry& german = found->second;
        if (!german.type.isEmpty())
            problems.append(id + u": " + german.type);
        // German has two plural forms; a counted text needs both.
        const qsizetype forms = english.numerus ? 2 : 1;
        if (german.translations.size() != forms)
            problems.append(id + u": expected " + QString::number(forms) + u" form(s)");
        for (const QString& text : german.translations) {
            if (text.trimmed().isEmpty())
                problems.append(id + u": empty");
            else if (placeholders(text) != placeholders(english.source))
                problems.append(id + u": placeholders differ from \"" + english.source + u'"');
        }
        if (german.source != english.source)
            problems.append(id + u": English text changed since it was translated");
    }
    for (const auto& [id, german] : m_german)
        if (!m_english.count(id) && german.type != u"vanished" && german.type != u"obsolete")
            problems.append(id + u": no longer in the sources");
    QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
}

void TestTranslations::catalogueFollowsTheLocale_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<bool>("german");
    QTest::newRow("German") << QStringLiteral("de_DE") << true;
    QTest::newRow("Swiss German") << QStringLiteral("de_CH") << true;
    QTest::newRow("French falls back to English") << QStringLiteral("fr_FR") << false;
}

void TestTranslations::catalogueFollowsTheLocale()
{
    QFETCH(QString, locale);
    QFETCH(bool, german);

    QLocale::setDefault(QLocale(locale));
    installTranslations(*QCoreApplication::instance());
    for (const auto& [id, english] : m_english) {
        const auto translated = m_german.find(id);
        if (german && (translated == m_german.end() || translated->second.translations.isEmpty()))
            continue; // reported by cataloguesAreComplete
        const QString expected = german ? translated->second.translations.constFirst() : english.source;
        QCOMPARE(qtTrId(id.toUtf8().constData(), english.numerus ? 1 : -1),
            QString(expected).replace(QStringLiteral("%n"), QStringLiteral("1")));
    }
    qDeleteAll(QCoreApplication::instance()->findChildren<QTranslator*>());
}

QTEST_GUILESS_MAIN(TestTranslations)
#include "tst_translations.moc"
