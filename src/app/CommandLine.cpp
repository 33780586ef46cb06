#include "app/CommandLine.h"

#include "app/Settings.h"

#include <QCommandLineParser>
#include <QDir>
#include <QUrl>

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
    //: Description of the files argument in the command line help
    //% "Files to add: encrypted files (.vx) to Decrypt, the others to Encrypt."
    parser.addPositionalArgument(
        QStringLiteral("files"), qtTrId("commandLineFiles"), QStringLiteral("[files...]"));

    const bool parsed = parser.parse(arguments);
    // --help-all is Qt's own spelling; the Qt options it would add are not ours to explain.
    if (parsed && (parser.isSet(help) || parser.isSet(QStringLiteral("help-all"))))
        return CommandLineAnswer { 0, parser.helpText() };
    if (parsed && parser.isSet(version))
        return CommandLineAnswer { 0,
            QString::fromLatin1(Settings::application) + u' ' + QStringLiteral(VARNEX_VERSION) + u'\n' };
    const QString error = parser.errorText();
    if (error.isEmpty())
        return std::nullopt;
    //% "Try '%1 --help' for more information."
    return CommandLineAnswer { 1,
        error + u'\n' + qtTrId("commandLineTryHelp").arg(arguments.value(0)) + u'\n' };
}

QStringList commandLineFiles(const QStringList& arguments, const QString& workingFolder)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const char* name : qtValueOptions)
        acceptQtOption(parser, name, true);
    for (const char* name : qtFlagOptions)
        acceptQtOption(parser, name, false);
    parser.addHelpOption();
    parser.addVersionOption();
    if (!parser.parse(arguments))
        return {};
    QStringList files;
    const QDir base(workingFolder);
    for (const QString& argument : parser.positionalArguments()) {
        if (argument.isEmpty())
            continue;
        // File managers may pass URLs; only local ones name a file here.
        if (argument.startsWith(u"file:") || argument.contains(u"://")) {
            const QUrl url(argument);
            if (url.isLocalFile())
                files.append(QDir::cleanPath(url.toLocalFile()));
            continue;
        }
        // Made absolute here: the running instance that may take them has a folder of its own.
        files.append(QDir::cleanPath(base.absoluteFilePath(argument)));
    }
    return files;
}
