#include "files/IntakeList.h"

#include <QFile>
#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>

#include <climits>

#include <sys/stat.h>
#include <unistd.h>

IntakeList::IntakeList(Kind kind, QObject* parent)
    : QObject(parent)
    , m_kind(kind)
{
}

int IntakeList::markedCount() const
{
    return int(std::count_if(m_files.begin(), m_files.end(), [](const FilePtr& f) { return f->isChecked; }));
}

void IntakeList::setOperationPrecondition(std::function<bool()> precondition)
{
    m_precondition = std::move(precondition);
}

void IntakeList::updateOperationButton()
{
    Buttons b = m_buttons;
    b.operation = operationOn();
    setButtons(b);
}

bool IntakeList::isEncryptedName(const QString& name)
{
    const QStringList pieces = name.split(u'.', Qt::SkipEmptyParts);
    return !pieces.isEmpty() && pieces.last() == u"vx";
}

namespace {

// The last path component, as the list compares names.
QString lastComponent(const QString& path)
{
    qsizetype end = path.size();
    while (end > 0 && path.at(end - 1) == u'/')
        --end;
    if (end == 0)
        return {};
    const qsizetype start = path.lastIndexOf(u'/', end - 1) + 1;
    return path.mid(start, end - start);
}

} // namespace

IntakeList::Found IntakeList::inspect(const QString& path)
{
    // Only regular files (a link to one counts): a folder, FIFO, socket or device would be
    // sent as a malformed part or block the upload where Cancel cannot reach it. A path that
    // does not exist is never listed: it would be a row without a size that fails the
    // operation later.
    const QByteArray local = QFile::encodeName(path);
    // A name whose bytes are not UTF-8 reaches us with replacement characters: the path we
    // hold names another file (or none), whatever is on disk.
    if (path.contains(QChar::ReplacementCharacter) || QFile::decodeName(local) != path)
        return ::access(local.constData(), F_OK) == 0 ? inspectExisting(local) : Found::NotValid;
    return inspectExisting(local);
}

IntakeList::Found IntakeList::inspectExisting(const QByteArray& local)
{
    struct stat st
    {
    };
    if (::stat(local.constData(), &st) != 0)
        return Found::Missing;
    if (S_ISDIR(st.st_mode))
        return Found::Folder;
    if (!S_ISREG(st.st_mode))
        return Found::Special;
    // Refused now rather than failing the whole operation once the user has chosen people.
    if (::access(local.constData(), R_OK) != 0)
        return Found::Unreadable;
    return Found::Regular;
}

std::optional<IntakeList::Reason> IntakeList::refusalOf(const QString& path) const
{
    return refusalOf(path, inspect(path));
}

std::optional<IntakeList::Reason> IntakeList::refusalOf(const QString& path, Found found) const
{
    switch (found) {
    case Found::Missing:
        return Reason::Missing;
    case Found::NotValid:
        return Reason::NameNotValid;
    case Found::Folder:
        return Reason::Folder;
    case Found::Special:
        return Reason::NotRegularFile;
    case Found::Unreadable:
        return Reason::Unreadable;
    case Found::Regular:
        break;
    }
    const QString last = lastComponent(path);
    if (m_names.contains(last))
        return Reason::AlreadyListed;
    if (resultNameTooLong(path))
        return Reason::NameTooLong;
    // A name made only of dots has no extension: it is not an encrypted file.
    const bool encrypted = isEncryptedName(last);
    if (m_kind == Kind::Encrypt && encrypted)
        return Reason::Encrypted;
    if (m_kind == Kind::Decrypt && !encrypted)
        return Reason::NotEncrypted;
    return std::nullopt;
}

bool IntakeList::resultNameTooLong(const QString& path) const
{
    // Refused when added, not when ENCRYPT is pressed: such a file can never be encrypted, so
    // the user hears it while picking files instead of after marking them and choosing people.
    // Decrypted results are shorter than their files, so only encryption needs this.
    const QString name = lastComponent(path);
    return m_kind == Kind::Encrypt && QFile::encodeName(name).size() + 3 > NAME_MAX;
}

QList<IntakeList::Refusal> IntakeList::addFiles(const QStringList& paths)
{
    QList<Found> found;
    found.reserve(paths.size());
    for (const QString& path : paths)
        found.append(inspect(path));
    return addInspected(paths, found);
}

QList<IntakeList::Refusal> IntakeList::addInspected(const QStringList& paths, const QList<Found>& found)
{
    QList<Refusal> refused;
    const qsizetype before = m_files.size();
    m_files.reserve(before + paths.size());
    for (qsizetype i = 0; i < paths.size(); ++i) {
        const QString& path = paths.at(i);
        if (const auto reason = refusalOf(path, found.value(i, Found::Missing))) {
            refused.append({ path, *reason });
            continue;
        }
        m_names.insert(lastComponent(path));
        m_files.append(std::make_shared<File>(path));
    }
    if (m_files.size() > before) {
        Buttons b = m_buttons;
        b.markAll = true;
        setButtons(b);
    }
    Q_EMIT changed();
    return refused;
}

void IntakeList::admit(
    const QStringList& paths, QObject* context, std::function<void(const QList<Refusal>&)> done)
{
    if (m_batches.isEmpty() && paths.size() <= inlineLimit) {
        const QList<Refusal> refused = addFiles(paths);
        if (done)
            done(refused);
        return;
    }
    auto batch = std::make_shared<Batch>();
    batch->paths = paths;
    batch->context = context;
    batch->done = std::move(done);
    // The worker gets its own copy of the paths and touches nothing else.
    batch->found = QtConcurrent::run([paths] {
        QList<Found> found;
        found.reserve(paths.size());
        for (const QString& path : paths)
            found.append(inspect(path));
        return found;
    });
    m_batches.append(batch);
    auto* watcher = new QFutureWatcher<QList<Found>>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        // From the event loop: `done` may open a dialog, whose loop would delete the watcher
        // under its own signal.
        QMetaObject::invokeMethod(this, &IntakeList::admitReady, Qt::QueuedConnection);
    });
    watcher->setFuture(batch->found);
}

void IntakeList::admitReady()
{
    bool admitted = false;
    while (!m_batches.isEmpty() && m_batches.first()->found.isFinished()) {
        const std::shared_ptr<Batch> batch = m_batches.takeFirst();
        const QList<Refusal> refused = addInspected(batch->paths, batch->found.result());
        admitted = true;
        // A dialog shown by `done` runs its own event loop; later batches wait for it.
        const QPointer<IntakeList> self(this);
        if (batch->context && batch->done)
            batch->done(refused);
        if (!self)
            return;
    }
    if (admitted && m_batches.isEmpty())
        Q_EMIT admissionEnded();
}

void IntakeList::flip(int row)
{
    if (row < 0 || row >= m_files.size())
        return;
    m_files.at(row)->isChecked = !m_files.at(row)->isChecked;
    Buttons b = m_buttons;
    b.remove = markedCount() > 0;
    b.operation = operationOn();
    setButtons(b);
    Q_EMIT changed();
}

void IntakeList::markAll()
{
    const bool someUnmarked
        = std::any_of(m_files.begin(), m_files.end(), [](const FilePtr& f) { return !f->isChecked; });
    for (const FilePtr& file : m_files)
        file->isChecked = someUnmarked;
    Buttons b = m_buttons;
    b.remove = someUnmarked;
    b.operation = operationOn();
    setButtons(b);
    Q_EMIT changed();
}

void IntakeList::removeMarked()
{
    m_files.removeIf([this](const FilePtr& f) {
        if (f->isChecked && f->filePath)
            m_names.remove(lastComponent(*f->filePath));
        return f->isChecked;
    });
    Buttons b = m_buttons;
    b.markAll = !m_files.isEmpty();
    b.remove = false;
    b.operation = operationOn(); // nothing marked is left: off
    setButtons(b);
    Q_EMIT changed();
}

void IntakeList::clearMarks()
{
    for (const FilePtr& file : m_files)
        file->isChecked = false;
    Buttons b = m_buttons;
    b.remove = false;
    b.operation = operationOn();
    setButtons(b);
    Q_EMIT changed();
}

void IntakeList::mark(const QStringList& paths)
{
    const QSet<QString> wanted(paths.begin(), paths.end());
    QStringList marked;
    for (const FilePtr& file : m_files) {
        if (file->isChecked || (file->filePath && wanted.contains(*file->filePath)))
            marked.append(file->filePath.value_or(QString()));
    }
    markOnly(marked);
}

void IntakeList::markOnly(const QStringList& paths)
{
    const QSet<QString> wanted(paths.begin(), paths.end());
    for (const FilePtr& file : m_files)
        file->isChecked = file->filePath && wanted.contains(*file->filePath);
    Buttons b = m_buttons;
    b.remove = markedCount() > 0;
    b.operation = operationOn();
    setButtons(b);
    Q_EMIT changed();
}

void IntakeList::setButtons(Buttons buttons)
{
    if (buttons == m_buttons)
        return;
    m_buttons = buttons;
    Q_EMIT buttonsChanged(buttons);
}

QString IntakeList::reasonText(Reason reason)
{
    switch (reason) {
    case Reason::Missing:
        //: Why a file was not added: nothing is at that path
        //% "does not exist"
        return qtTrId("refusedMissing");
    case Reason::NameNotValid:
        //: Why a file was not added: its name's bytes are not valid UTF-8, so it cannot be opened
        //% "name is not valid UTF-8"
        return qtTrId("refusedNameNotValid");
    case Reason::Folder:
        //: Why a file was not added: it is a folder
        //% "a folder"
        return qtTrId("refusedFolder");
    case Reason::NotRegularFile:
        //: Why a file was not added: it is a device, pipe or socket
        //% "not a regular file"
        return qtTrId("refusedNotRegular");
    case Reason::Unreadable:
        //: Why a file was not added: the user may not read it
        //% "cannot be read"
        return qtTrId("refusedUnreadable");
    case Reason::AlreadyListed:
        //: Why a file was not added: a file of the same name is in the list
        //% "already in the list"
        return qtTrId("refusedAlreadyListed");
    case Reason::NameTooLong:
        //: Why a file was not added: its name cannot take ".vx" within the file system's limit
        //% "name too long to add \".vx\" (255 bytes at most)"
        return qtTrId("refusedNameTooLong");
    case Reason::Encrypted:
        //: Why a file was not added to the files to encrypt
        //% "already encrypted"
        return qtTrId("refusedEncrypted");
    case Reason::NotEncrypted:
        //: Why a file was not added to the files to decrypt
        //% "not encrypted"
        return qtTrId("refusedNotEncrypted");
    }
    return {};
}
