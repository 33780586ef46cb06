#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>

class QLocalSocket;

// A command a later start asked the running program for (`varnex-desktop status`), and the way
// back to it: lines for its standard output and standard error, then the status it exits with.
// The later start may ask to cancel meanwhile (Ctrl+C). Lives until the answer is sent or the
// later start is gone; whoever answers holds it through a QPointer.
class CommandChannel : public QObject
{
    Q_OBJECT

public:
    CommandChannel(QLocalSocket* socket, QStringList arguments);

    // The command's words as the later start sent them (files absolute).
    const QStringList& arguments() const { return m_arguments; }

    void print(const QString& line);
    void printError(const QString& line);
    // Sends the status; the channel goes once it is written.
    void finish(int exitCode);
    bool isFinished() const { return m_finished; }

    // A message from the later start after its command: "cancel".
    void take(const QString& word);

Q_SIGNALS:
    void cancelRequested();
    // The later start went away before its answer (killed, say).
    void gone();

private:
    void send(const QString& word, const QString& value);

    QPointer<QLocalSocket> m_socket;
    QStringList m_arguments;
    bool m_finished = false;
};
