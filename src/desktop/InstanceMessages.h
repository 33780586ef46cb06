#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <optional>

// The messages between two starts of the program over the instance's local socket: a 32-bit
// length, then a QDataStream of a word saying what it carries and its values.
namespace InstanceMessages {

inline constexpr QDataStream::Version streamVersion = QDataStream::Qt_6_4;
// Largest message taken; anything longer is dropped with its connection.
inline constexpr quint32 maxMessageBytes = 4 * 1024 * 1024;

inline QByteArray frame(const QString& word, const QStringList& values)
{
    QByteArray payload;
    {
        QDataStream out(&payload, QIODevice::WriteOnly);
        out.setVersion(streamVersion);
        out << word << values;
    }
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out.setVersion(streamVersion);
    out << quint32(payload.size());
    message.append(payload);
    return message;
}

struct Message
{
    QString word;
    QStringList values;
};

// A whole message at the start of `buffer`: its word and values, taken out of the buffer.
// Nothing while it is incomplete; `bad` when it can never be one.
inline std::optional<Message> take(QByteArray& buffer, bool& bad)
{
    if (buffer.size() < 4)
        return std::nullopt;
    quint32 size = 0;
    {
        QDataStream in(buffer.left(4));
        in.setVersion(streamVersion);
        in >> size;
    }
    if (size > maxMessageBytes) {
        bad = true;
        return std::nullopt;
    }
    if (quint32(buffer.size() - 4) < size)
        return std::nullopt;
    Message message;
    QDataStream in(buffer.mid(4, size));
    in.setVersion(streamVersion);
    in >> message.word >> message.values;
    buffer.remove(0, 4 + qsizetype(size));
    if (in.status() != QDataStream::Ok) {
        bad = true;
        return std::nullopt;
    }
    return message;
}

} // namespace InstanceMessages
