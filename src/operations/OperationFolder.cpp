#include "operations/OperationFolder.h"

#include "app/Log.h"
#include "operations/WholeWrite.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The marker's first line; a file of that name without it is not ours.
constexpr char markerMagic[] = "varnex-desktop operation folder\n";

QByteArray encoded(const QString& path)
{
    return QFile::encodeName(path);
}

// Opens the marker of `folder` without following links, locked exclusively; -1 when it is
// absent, not ours, or held by a running operation.
int lockLeftoverMarker(const QString& folder)
{
    const int fd = ::open(encoded(folder + u'/' + QLatin1String(OperationFolder::markerName)).constData(),
        O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return -1;
    struct stat st
    {
    };
    char head[sizeof markerMagic - 1] = {};
    const bool ours = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::getuid()
        && ::read(fd, head, sizeof head) == ssize_t(sizeof head)
        && std::memcmp(head, markerMagic, sizeof head) == 0;
    if (!ours || ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

OperationFolder::OperationFolder(QString path, int lockFd)
    : m_path(std::move(path))
    , m_lockFd(lockFd)
{
}

OperationFolder::~OperationFolder()
{
    remove();
}

std::unique_ptr<OperationFolder> OperationFolder::create(
    const QString& parent, const QString& id, QString* error)
{
    const QString path = parent + u'/' + id;
    auto fail = [&](const QString& what) {
        if (error)
            *error = what + u": " + QString::fromLocal8Bit(std::strerror(errno));
        return nullptr;
    };
    if (parent.isEmpty() || ::mkdir(encoded(path).constData(), 0700) != 0)
        return fail(u"Cannot create " + path);
    // The marker is written and locked under a temporary name, then renamed: a cleanup that
    // runs at the same moment never sees an unlocked marker of a live operation.
    const QString temp = path + u'/' + QLatin1String(markerName) + u".new";
    const int fd
        = ::open(encoded(temp).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        const auto result = fail(u"Cannot mark " + path);
        QDir(path).removeRecursively();
        return result;
    }
    const QByteArray content = QByteArray(markerMagic) + "pid "
        + QByteArray::number(QCoreApplication::applicationPid()) + "\nstarted "
        + QDateTime::currentDateTimeUtc().toString(Qt::ISODate).toLatin1() + '\n';
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0 || !WholeWrite::writeAll(fd, content.constData(), content.size())
        || ::rename(encoded(temp).constData(), encoded(path + u'/' + QLatin1String(markerName)).constData())
            != 0) {
        const auto result = fail(u"Cannot mark " + path);
        ::close(fd);
        QDir(path).removeRecursively();
        return result;
    }
    return std::unique_ptr<OperationFolder>(new OperationFolder(path, fd));
}

void OperationFolder::remove()
{
    if (m_lockFd < 0)
        return;
    if (!QDir(m_path).removeRecursively())
        Log::line(u"Cannot remove " + m_path);
    ::close(m_lockFd);
    m_lockFd = -1;
}

bool OperationFolder::removeWithin(qint64 msecs)
{
    if (m_lockFd < 0)
        return true;
    QElapsedTimer clock;
    clock.start();
    // The files first, one by one, each time looking at the clock; the marker goes last.
    QDirIterator it(m_path, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString file = it.next();
        if (file.section(u'/', -1) != QLatin1String(markerName))
            QFile::remove(file);
        if (clock.elapsed() > msecs)
            return false;
    }
    remove();
    return true;
}

int OperationFolder::removeLeftovers(const QString& folder)
{
    int removed = 0;
    const QDir dir(folder);
    for (const QString& name :
        dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks)) {
        const QString path = dir.filePath(name);
        const int fd = lockLeftoverMarker(path);
        if (fd < 0)
            continue;
        // Held while removing, so a program starting now cannot take it over half-way.
        if (QDir(path).removeRecursively())
            ++removed;
        else
            Log::line(u"Cannot remove " + path);
        ::close(fd);
    }
    return removed;
}
