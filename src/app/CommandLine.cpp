#include "app/CommandLine.h"

#include "app/Settings.h"

#include <QCommandLineParser>
#include <QDir>
#include <QUrl>
#include <algorithm>

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

const QString hiddenOption = QStringLiteral("hidden");
const QString serveOption = QStringLiteral("serve");

void acceptStartOptions(QCommandLineParser& parser)
{
    //: Description of the --hidden option in the command line help
    //% "Start without showing the window (at login, for example)."
    parser.addOption(QCommandLineOption(hiddenOption, qtTrId("commandLineHidden")));
    // Started for a command or by the session bus; not for people to type.
    QCommandLineOption serve(serveOption);
    serve.setFlags(QCommandLineOption::HiddenFromHelp);
    parser.addOption(serve);
}

constexpr const char* commandNames[] = { "encrypt", "decrypt", "people", "groups", "status" };

// Absolute paths of the positional arguments; "file:" URLs of local files become their paths.
QStringList absoluteFiles(const QStringList& arguments, const QString& workingFolder)
{
    QStringList files;
    const QDir base(workingFolder);
    for (const QString& argument : arguments) {
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

} // namespace

std::optional<CommandLineAnswer> answerCommandLine(const QStringList& arguments)
{
    QCommandLineParser parser;
    // Qt's own options are spelt with one dash ("-platform offscreen").
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    //: The commands in the command line help; keep the command names
    //% "Commands (answered by the running program; see 'varnex-desktop COMMAND --help'):\n  encrypt   encrypt files for people and groups\n  decrypt   decrypt files\n  people    list the people the phone knows\n  groups    list your groups and their members\n  status    tell the phone's state and the running operations"
    const QString commands = qtTrId("commandLineCommands");
    //% "Encrypt and decrypt files with your phone."
    parser.setApplicationDescription(qtTrId("commandLineDescription") + u"\n\n" + commands);
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    acceptStartOptions(parser);
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
    acceptStartOptions(parser);
    if (!parser.parse(arguments))
        return {};
    return absoluteFiles(parser.positionalArguments(), workingFolder);
}

bool startsHidden(const QStringList& arguments)
{
    return arguments.contains(u"--" + hiddenOption) || servesOnly(arguments);
}

bool servesOnly(const QStringList& arguments)
{
    return arguments.contains(u"--" + serveOption);
}

bool isScriptCommand(const QStringList& arguments)
{
    const QString first = arguments.value(1);
    return std::any_of(std::begin(commandNames), std::end(commandNames),
        [&first](const char* name) { return first == QLatin1String(name); });
}

QStringList ScriptCommand::arguments() const
{
    QStringList result { QString::fromLatin1(commandNames[int(name)]) };
    for (const QString& email : to)
        result << QStringLiteral("--to") << email;
    for (const QString& group : groups)
        result << QStringLiteral("--group") << group;
    if (wait)
        result << QStringLiteral("--wait");
    if (json)
        result << QStringLiteral("--json");
    if (noStart)
        result << QStringLiteral("--no-start");
    if (!files.isEmpty())
        result << QStringLiteral("--") << files;
    return result;
}

std::variant<ScriptCommand, CommandLineAnswer> parseScriptCommand(
    const QStringList& arguments, const QString& workingFolder)
{
    ScriptCommand command;
    const QString word = arguments.value(1);
    for (int i = 0; i < int(std::size(commandNames)); ++i) {
        if (word == QLatin1String(commandNames[i]))
            command.name = ScriptCommand::Name(i);
    }
    using Name = ScriptCommand::Name;
    const bool operation = command.name == Name::Encrypt || command.name == Name::Decrypt;
    QCommandLineParser parser;
    QString description;
    switch (command.name) {
    case Name::Encrypt:
        //: Help of the encrypt command
        //% "Encrypt files for people and groups with the paired phone. Without --wait it returns once the phone was asked."
        description = qtTrId("commandEncryptHelp");
        break;
    case Name::Decrypt:
        //: Help of the decrypt command
        //% "Decrypt encrypted files (.vx) with the paired phone. Without --wait it returns once the phone was asked."
        description = qtTrId("commandDecryptHelp");
        break;
    case Name::People:
        //: Help of the people command
        //% "List the people the phone knows: e-mail, then name."
        description = qtTrId("commandPeopleHelp");
        break;
    case Name::Groups:
        //: Help of the groups command
        //% "List your groups: name, then the members' e-mails."
        description = qtTrId("commandGroupsHelp");
        break;
    case Name::Status:
        //: Help of the status command
        //% "Tell the phone's state and name, and the operations running."
        description = qtTrId("commandStatusHelp");
        break;
    }
    //: The end of every command's help: the exit statuses; keep the numbers
    //% "Exit status: 0 done, 1 failed, 2 bad usage or unknown recipient, 3 no phone, 4 refused by the phone, 5 some files failed, 6 cancelled."
    parser.setApplicationDescription(description + u"\n" + qtTrId("commandExitStatus"));
    const QCommandLineOption help = parser.addHelpOption();
    //: Description of --to in the encrypt command's help
    //% "Encrypt for this person (repeat for more)."
    const QCommandLineOption to(QStringLiteral("to"), qtTrId("commandOptionTo"), QStringLiteral("EMAIL"));
    //: Description of --group in the encrypt command's help
    //% "Encrypt for the members of this group (repeat for more)."
    const QCommandLineOption group(
        QStringLiteral("group"), qtTrId("commandOptionGroup"), QStringLiteral("NAME"));
    //: Description of --wait in the command line help
    //% "Wait until the phone is done, print each result's path and exit with its status."
    const QCommandLineOption wait(QStringLiteral("wait"), qtTrId("commandOptionWait"));
    //: Description of --json in the command line help
    //% "Print JSON."
    const QCommandLineOption json(QStringLiteral("json"), qtTrId("commandOptionJson"));
    //: Description of --no-start in the command line help
    //% "Answer only if Varnex Desktop runs already (for shell completion)."
    const QCommandLineOption noStart(QStringLiteral("no-start"), qtTrId("commandOptionNoStart"));
    parser.addPositionalArgument(word, QString(), word);
    if (command.name == Name::Encrypt)
        parser.addOptions({ to, group });
    if (operation) {
        parser.addOption(wait);
        //: Description of the files argument of the encrypt and decrypt commands
        //% "The files."
        parser.addPositionalArgument(
            QStringLiteral("files"), qtTrId("commandFiles"), QStringLiteral("FILE..."));
    } else {
        parser.addOption(noStart);
    }
    parser.addOption(json);

    // One line on standard error, with where to read more.
    const auto wrong = [&arguments, &word](const QString& error) {
        //% "Try '%1 --help' for more information."
        return CommandLineAnswer { ExitCode::usage,
            error + u' ' + qtTrId("commandLineTryHelp").arg(arguments.value(0) + u' ' + word) + u'\n' };
    };
    if (!parser.parse(arguments))
        return wrong(parser.errorText());
    if (parser.isSet(help))
        return CommandLineAnswer { ExitCode::done, parser.helpText() };
    const QStringList positional = parser.positionalArguments().mid(1);
    if (!operation && !positional.isEmpty()) {
        //: A command that takes no files was given some; %1 is the first
        //% "Unexpected argument: %1."
        return wrong(qtTrId("commandUnexpectedArgument").arg(positional.first()));
    }
    if (command.name == Name::Encrypt) {
        for (const QString& value : parser.values(to))
            command.to += value.split(u',', Qt::SkipEmptyParts);
        command.groups = parser.values(group);
    }
    command.files = absoluteFiles(positional, workingFolder);
    command.wait = operation && parser.isSet(wait);
    command.json = parser.isSet(json);
    command.noStart = !operation && parser.isSet(noStart);
    if (operation && command.files.isEmpty()) {
        //: The encrypt or decrypt command was given no file
        //% "No files given."
        return wrong(qtTrId("commandNoFiles"));
    }
    if (command.name == Name::Encrypt && command.to.isEmpty() && command.groups.isEmpty()) {
        //: The encrypt command was given neither --to nor --group
        //% "No recipients given: name them with --to or --group."
        return wrong(qtTrId("commandNoRecipients"));
    }
    return command;
}
