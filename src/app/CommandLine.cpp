#include "app/CommandLine.h"

#include "app/Settings.h"

#include <QCommandLineParser>

namespace {

// QApplication reads these itself; a launcher or a user may pass them to any Qt program.
constexpr const char* qtValueOptions[]
    = { "platform", "platformpluginpath", "platformtheme", "plugin", "qwindowgeometry", "qwindowtitle",
          "qwindowicon", "style", "stylesheet", "session", "display", "qmljsdebugger" };
constexpr const char* qtFlagOptions[] = { "reverse", "widgetcount", "nograb", "dograb", "sync" };

void acceptQtOption(QCommandLineParser& parser, const char* name, bool takesValue)
{
    QCommandLineOption option(QString::fromLatin1(name));
    if (takesValue)
        option.setValueName(QStringLiteral("value"));
    option.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(option);
}

} // namespace

std::optional<CommandLineAnswer> answerCommandLine(const QStringList& arguments)
{
    QCommandLineParser parser;
    // Qt's own options are spelt with one dash ("-platform offscreen").
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    //% "Encrypt and decrypt files with your phone."
    parser.setApplicationDescription(qtTrId("commandLineDescription"));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    for (const char* name : qtValueOptions)
        acceptQtOption(parser, name, true);
    for (const char* name : qtFlagOptions)
        acceptQtOption(parser, name, false);

    const bool parsed = parser.parse(arguments);
    // --help-all is Qt's own spelling; the Qt options it would add are not ours to explain.
    if (parsed && (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))))
        return CommandLineAnswer { 0, parser.helpText() };
    if (parsed && parser.isSet(version))
        return CommandLineAnswer { 0,
            QString::fromLatin1(Settings::application) + u' ' + QStringLiteral(VARNEX_VERSION) + u'\n' };
    QString error = parser.errorText();
    if (parsed && !parser.positionalArguments().isEmpty())
        //% "Unexpected argument: %1"
        error = qtTrId("commandLineUnexpectedArgument").arg(parser.positionalArguments().constFirst());
    if (error.isEmpty())
        return std::nullopt;
    //% "Try '%1 --help' for more information."
    return CommandLineAnswer { 1,
        error + u'\n' + qtTrId("commandLineTryHelp").arg(arguments.value(0)) + u'\n' };
}
