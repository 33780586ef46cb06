#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

// What the program prints instead of starting, and the status it exits with.
struct CommandLineAnswer
{
    int exitCode = 0;
    QString output; // for standard output when exitCode is 0, standard error otherwise
};

// The statuses a command exits with, for scripts to act on.
namespace ExitCode {
inline constexpr int done = 0; // everything asked for was done
inline constexpr int failed = 1; // the operation failed (connection, disk), or the program did not answer
inline constexpr int usage = 2; // bad usage: unknown option, missing file, unknown recipient
inline constexpr int noPhone = 3; // no phone connected (or lost during the operation)
inline constexpr int refused = 4; // the phone refused the files
inline constexpr int someFailed = 5; // some files got a result, others did not
inline constexpr int cancelled = 6;
} // namespace ExitCode

// The program takes files and no options of its own: it answers --help and --version, and
// refuses any option it does not know. Nothing means "start the application". Qt's own
// window-system options (-platform, -style, ...) are let through for QApplication to take.
// --hidden starts without showing the window; --serve too, and quits once the commands it was
// started for are answered (a command or the session bus starts it so).
std::optional<CommandLineAnswer> answerCommandLine(const QStringList& arguments);

// The files named on the command line, absolute (relative ones against `workingFolder`) and
// in their order; "file:" URLs of local files become their paths, other URLs are left out.
QStringList commandLineFiles(const QStringList& arguments, const QString& workingFolder);

// Whether the program starts with its window hidden (--hidden or --serve), and whether it
// quits once idle (--serve).
bool startsHidden(const QStringList& arguments);
bool servesOnly(const QStringList& arguments);

// A command for the running program: `varnex-desktop encrypt --to a@x.org report.pdf`.
struct ScriptCommand
{
    enum class Name { Encrypt, Decrypt, People, Groups, Status };
    Name name = Name::Status;
    QStringList to; // e-mails
    QStringList groups; // group names
    QStringList files; // absolute
    bool wait = false;
    bool json = false;
    bool noStart = false; // answer only if the program runs already

    // The command as the running program takes it: names, options and absolute files.
    QStringList arguments() const;
};

// True when the first argument after the program's name is a command.
bool isScriptCommand(const QStringList& arguments);
// Parses `arguments` (the program's name, the command, its options and files; relative files
// against `workingFolder`): the command, or what to print instead (its help, or one line saying
// what is wrong, with ExitCode::usage).
std::variant<ScriptCommand, CommandLineAnswer> parseScriptCommand(
    const QStringList& arguments, const QString& workingFolder);
