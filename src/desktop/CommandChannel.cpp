#include "desktop/CommandChannel.h"

#include "desktop/InstanceMessages.h"

#include <QLocalSocket>

CommandChannel::CommandChannel(QLocalSocket* socket, QStringList arguments)
    : QObject(socket)
    , m_socket(socket)
    , m_arguments(std::move(arguments))
{
    connect(socket, &QLocalSocket::disconnected, this, [this] {
        if (!m_finished)
            Q_EMIT gone();
    });
}

void CommandChannel::send(const QString& word, const QString& value)
{
    if (m_socket && !m_finished)
        m_socket->write(InstanceMessages::frame(word, { value }));
}

void CommandChannel::print(const QString& line)
{
    send(QStringLiteral("out"), line);
}

void CommandChannel::printError(const QString& line)
{
    send(QStringLiteral("err"), line);
}

void CommandChannel::finish(int exitCode)
{
    send(QStringLiteral("exit"), QString::number(exitCode));
    m_finished = true;
    // Closes once everything is written; the socket (and this with it) then goes.
    if (m_socket)
        m_socket->disconnectFromServer();
}

void CommandChannel::take(const QString& word)
{
    if (word == u"cancel" && !m_finished)
        Q_EMIT cancelRequested();
}
