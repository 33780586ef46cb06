#include "desktop/SingleInstance.h"

#include "desktop/DesktopLog.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QThread>
#include <QTimer>

#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr QDataStream::Version streamVersion = QDataStream::Qt_6_4;
const QString openWord = QStringLiteral("open");
const QString moreWord = QStringLiteral("more");
// A long list goes in messages of about this size (their paths in UTF-16), well under the cap.
constexpr qsizetype pieceBytes = 1024 * 1024;
// Paths taken from one later start at most: far more than any file manager hands over.
constexpr qsizetype maxPaths = 1'000'000;
const QString doneWord = QStringLiteral("done");
// A connection that has not sent its whole message by then is dropped.
constexpr int readTimeoutMs = 5000;

QByteArray frame(const QString& word, const QStringList& values)
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

// A whole message at the start of `buffer`: its word and values, taken out of the buffer.
// Nothing while it is incomplete; `bad` when it can never be one.
struct Message
{
    QString word;
    QStringList values;
};
std::optional<Message> takeMessage(QByteArray& buffer, bool& bad)
{
    if (buffer.size() < 4)
        return std::nullopt;
    quint32 size = 0;
    {
        QDataStream in(buffer.left(4));
        in.setVersion(streamVersion);
        in >> size;
    }
    if (size > SingleInstance::maxMessageBytes) {
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

// A folder that is ours alone: owned by us, no access for group or others.
bool isPrivateFolder(const QString& path)
{
    struct stat st
    {
    };
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return false;
    return S_ISDIR(st.st_mode) && st.st_uid == ::geteuid() && (st.st_mode & 077) == 0;
}

bool makePrivateFolder(const QString& path)
{
    if (!QFileInfo::exists(path)) {
        QDir().mkpath(path);
        ::chmod(QFile::encodeName(path).constData(), 0700);
    }
    return isPrivateFolder(path);
}

} // namespace

SingleInstance::SingleInstance(QString folder, QObject* parent)
    : QObject(parent)
    , m_folder(std::move(folder))
{
}

SingleInstance::~SingleInstance()
{
    if (m_server)
        m_server->close();
}

QString SingleInstance::defaultFolder()
{
    // XDG_RUNTIME_DIR itself, not QStandardPaths::RuntimeLocation: without the variable Qt
    // falls back to a folder under /tmp.
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && isPrivateFolder(runtime))
        return runtime;
    const QString cache = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (cache.isEmpty())
        return {};
    const QString folder = cache + QStringLiteral("/varnex-desktop");
    return makePrivateFolder(folder) ? folder : QString();
}

QString SingleInstance::socketPath() const
{
    return m_folder + QStringLiteral("/varnex-desktop.socket");
}

bool SingleInstance::claim()
{
    if (m_folder.isEmpty()) {
        // Nowhere private to hold a lock: run alone rather than not at all.
        qCWarning(lcDesktop, "No private folder for the single-instance lock; running without one");
        return true;
    }
    if (!QFileInfo::exists(m_folder))
        makePrivateFolder(m_folder);
    m_lock = std::make_unique<QLockFile>(m_folder + QStringLiteral("/varnex-desktop.lock"));
    // Never stale by age: only a lock whose program is gone is taken over.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0))
        return true;
    m_lock.reset();
    return false;
}

bool SingleInstance::listen()
{
    if (m_folder.isEmpty() || !m_lock)
        return false;
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    // We hold the lock, so a socket left here belongs to a program that is gone.
    QLocalServer::removeServer(socketPath());
    if (!m_server->listen(socketPath())) {
        qCWarning(lcDesktop) << "Cannot listen for later starts:" << m_server->errorString();
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::accept);
    return true;
}

void SingleInstance::accept()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { read(socket); });
        QTimer::singleShot(readTimeoutMs, socket, [socket] { socket->abort(); });
        read(socket);
    }
}

void SingleInstance::read(QLocalSocket* socket)
{
    QByteArray buffer = socket->property("buffer").toByteArray() + socket->readAll();
    QStringList values = socket->property("paths").toStringList();
    bool bad = false;
    std::optional<Message> message;
    while (!bad && (message = takeMessage(buffer, bad))) {
        if (message->word != openWord && message->word != moreWord)
            bad = true;
        values += message->values;
        bad = bad || values.size() > maxPaths;
        if (!bad && message->word == openWord)
            break;
    }
    if (bad) {
        socket->abort();
        return;
    }
    if (!message) {
        socket->setProperty("buffer", buffer);
        socket->setProperty("paths", values);
        return;
    }
    socket->write(frame(doneWord, {}));
    socket->disconnectFromServer();
    QStringList paths;
    for (const QString& path : std::as_const(values)) {
        // Only absolute paths: a relative one would be read against our own folder.
        if (QDir::isAbsolutePath(path))
            paths.append(path);
    }
    qCInfo(lcDesktop).noquote() << "A later start handed over" << paths.size() << "files:"
                                << paths.mid(0, 20).join(u' ') + (paths.size() > 20 ? u" …"_qs : QString());
    // Taken in by the event loop, never inside this socket's read handler: whoever receives
    // the files may open a dialog, whose nested event loop would see this socket closed and
    // deleted under the handler still running.
    QMetaObject::invokeMethod(
        this, [this, paths] { Q_EMIT filesHandedOver(paths); }, Qt::QueuedConnection);
}

SingleInstance::HandOver SingleInstance::handOver(
    const QStringList& paths, std::chrono::milliseconds timeout) const
{
    const QDeadlineTimer deadline(timeout);
    const auto left = [&deadline] { return int(std::max<qint64>(deadline.remainingTime(), 0)); };
    while (!deadline.hasExpired()) {
        QLocalSocket socket;
        socket.connectToServer(socketPath());
        if (!socket.waitForConnected(left())) {
            // The first start holds the lock but may not listen yet.
            QThread::msleep(std::min(50, left()));
            continue;
        }
        // A long list in pieces, each well under the cap; the last one asks to open them all.
        qsizetype start = 0;
        do {
            qsizetype end = start;
            for (qsizetype bytes = 0; end < paths.size() && (end == start || bytes < pieceBytes); ++end)
                bytes += 2 * paths.at(end).size() + 4;
            socket.write(frame(end == paths.size() ? openWord : moreWord, paths.mid(start, end - start)));
            start = end;
        } while (start < paths.size());
        while (socket.bytesToWrite() > 0 && left() > 0) {
            if (!socket.waitForBytesWritten(left()))
                break;
        }
        QByteArray buffer;
        bool bad = false;
        while (!bad && left() > 0 && socket.waitForReadyRead(left())) {
            buffer += socket.readAll();
            if (const auto answer = takeMessage(buffer, bad))
                return answer->word == doneWord ? HandOver::Delivered : HandOver::NoAnswer;
        }
        return HandOver::NoAnswer;
    }
    return HandOver::NoAnswer;
}
