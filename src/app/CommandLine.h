#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// What the program prints instead of starting, and the status it exits with.
struct CommandLineAnswer
{
    int exitCode = 0;
    QString output; // for standard output when exitCode is 0, standard error otherwise
};

// The program takes files and no options of its own: it answers --help and --version, and
// refuses any option it does not know. Nothing means "start the application". Qt's own
// window-system options (-platform, -style, ...) are let through for QApplication to take.
std::optional<CommandLineAnswer> answerCommandLine(const QStringList& arguments);

// The files named on the command line, absolute (relative ones against `workingFolder`) and
// in their order; "file:" URLs of local files become their paths, other URLs are left out.
QStringList commandLineFiles(const QStringList& arguments, const QString& workingFolder);
