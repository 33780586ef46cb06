#include "desktop/SingleInstance.h"

#include "desktop/CommandChannel.h"
#include "desktop/DesktopLog.h"
#include "desktop/InstanceMessages.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QLoggingCategory>
#include <QPointer>
#include <QStandardPaths>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <optional>

#include <cerrno>
#include <csignal>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using InstanceMessages::frame;
using InstanceMessages::Message;
const QString openWord = QStringLiteral("open");
const QString runWord = QStringLiteral("run");
const QString moreWord = QStringLiteral("more");
// A long list goes in messages of about this size (their paths in UTF-16), well under the cap.
constexpr qsizetype pieceBytes = 1024 * 1024;
// Paths taken from one later start at most: far more than any file manager hands over.
constexpr qsizetype maxPaths = 1'000'000;
const QString doneWord = QStringLiteral("done");
// A connection that has not sent its whole message by then is dropped.
constexpr int readTimeoutMs = 5000;

static_assert(SingleInstance::maxMessageBytes == InstanceMessages::maxMessageBytes);

std::optional<Message> takeMessage(QByteArray& buffer, bool& bad)
{
    return InstanceMessages::take(buffer, bad);
}

// Sends `values` in pieces well under the cap; the last one carries `word`.
void sendInPieces(QLocalSocket& socket, const QString& word, const QStringList& values)
{
    qsizetype start = 0;
    do {
        qsizetype end = start;
        for (qsizetype bytes = 0; end < values.size() && (end == start || bytes < pieceBytes); ++end)
            bytes += 2 * values.at(end).size() + 4;
        socket.write(frame(end == values.size() ? word : moreWord, values.mid(start, end - start)));
        start = end;
    } while (start < values.size());
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
        auto* timeout = new QTimer(socket);
        timeout->setObjectName(QStringLiteral("readTimeout"));
        timeout->setSingleShot(true);
        connect(timeout, &QTimer::timeout, socket, &QLocalSocket::abort);
        timeout->start(readTimeoutMs);
        read(socket);
    }
}

void SingleInstance::read(QLocalSocket* socket)
{
    QByteArray buffer = socket->property("buffer").toByteArray() + socket->readAll();
    bool bad = false;
    // A command's later messages (a cancel) go to its channel, from the event loop too.
    if (auto* channel = socket->findChild<CommandChannel*>()) {
        while (const auto message = takeMessage(buffer, bad)) {
            QMetaObject::invokeMethod(
                channel, [channel, word = message->word] { channel->take(word); }, Qt::QueuedConnection);
        }
        if (bad)
            socket->abort();
        else
            socket->setProperty("buffer", buffer);
        return;
    }
    QStringList values = socket->property("paths").toStringList();
    std::optional<Message> message;
    while (!bad && (message = takeMessage(buffer, bad))) {
        if (message->word != openWord && message->word != moreWord && message->word != runWord)
            bad = true;
        values += message->values;
        bad = bad || values.size() > maxPaths;
        if (!bad && message->word != moreWord)
            break;
    }
    if (bad) {
        socket->abort();
        return;
    }
    socket->setProperty("buffer", buffer);
    if (!message) {
        socket->setProperty("paths", values);
        return;
    }
    if (message->word == runWord) {
        // A command: the connection stays for its answer, however long the operation takes.
        if (auto* timeout = socket->findChild<QTimer*>(QStringLiteral("readTimeout")))
            timeout->stop();
        auto* channel = new CommandChannel(socket, values);
        qCInfo(lcDesktop).noquote() << "A later start asks:" << values.value(0);
        // Answered from the event loop, never inside this socket's read handler.
        QMetaObject::invokeMethod(
            this,
            [this, guard = QPointer<CommandChannel>(channel)] {
                if (guard)
                    Q_EMIT commandReceived(guard);
            },
            Qt::QueuedConnection);
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
        sendInPieces(socket, openWord, paths);
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

bool SingleInstance::isRunning() const
{
    if (m_folder.isEmpty())
        return false;
    // Read, never taken: a start that claims the lock meanwhile must find it free.
    const QLockFile lock(m_folder + QStringLiteral("/varnex-desktop.lock"));
    qint64 pid = 0;
    QString host;
    QString application;
    if (!lock.getLockInfo(&pid, &host, &application) || pid <= 0)
        return false;
    return ::kill(pid_t(pid), 0) == 0 || errno == EPERM;
}

int SingleInstance::runCommand(const QStringList& arguments, std::chrono::milliseconds connectTimeout,
    const std::function<bool()>& interrupted, QTextStream& out, QTextStream& err) const
{
    const QDeadlineTimer deadline(connectTimeout);
    QLocalSocket socket;
    for (;;) {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(int(std::max<qint64>(deadline.remainingTime(), 0))))
            break;
        if (deadline.hasExpired())
            return -1;
        // The program being started for this command does not listen yet.
        QThread::msleep(20);
    }
    sendInPieces(socket, runWord, arguments);
    socket.flush();
    QByteArray buffer;
    bool cancelSent = false;
    bool bad = false;
    while (!bad) {
        if (!cancelSent && interrupted && interrupted()) {
            socket.write(frame(QStringLiteral("cancel"), {}));
            socket.flush();
            cancelSent = true;
        }
        if (!socket.waitForReadyRead(50)) {
            if (socket.state() != QLocalSocket::ConnectedState && socket.bytesAvailable() == 0)
                break;
            continue;
        }
        buffer += socket.readAll();
        while (const auto message = takeMessage(buffer, bad)) {
            const QString value = message->values.value(0);
            if (message->word == u"out") {
                out << value << u'\n';
                out.flush();
            } else if (message->word == u"err") {
                err << value << u'\n';
                err.flush();
            } else if (message->word == u"exit") {
                return value.toInt();
            }
        }
    }
    return -1;
}
