#include "files/IntakeList.h"

#include <QFile>

#include <climits>

#include <sys/stat.h>

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

bool IntakeList::admits(const QString& path) const
{
    // Only regular files (a link to one counts): a folder, FIFO, socket or device would be
    // sent as a malformed part or block the upload where Cancel cannot reach it. A path that
    // does not exist is judged by its name; the upload checks the file again when it opens it.
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISREG(st.st_mode))
        return false;
    const QStringList pieces = path.split(u'/', Qt::SkipEmptyParts);
    const QString last = pieces.isEmpty() ? QString() : pieces.last();
    for (const FilePtr& file : m_files) {
        if (file->filePath && file->filePath->section(u'/', -1) == last)
            return false;
    }
    if (resultNameTooLong(path))
        return false;
    // A name made only of dots has no extension: it is not an encrypted file.
    const bool encrypted = isEncryptedName(last);
    return m_kind == Kind::Encrypt ? !encrypted : encrypted;
}

bool IntakeList::resultNameTooLong(const QString& path) const
{
    // Refused when added, not when ENCRYPT is pressed: such a file can never be encrypted, so
    // the user hears it while picking files instead of after marking them and choosing people.
    // Decrypted results are shorter than their files, so only encryption needs this.
    const QString name = path.section(u'/', -1, -1, QString::SectionSkipEmpty);
    return m_kind == Kind::Encrypt && QFile::encodeName(name).size() + 3 > NAME_MAX;
}

bool IntakeList::addFiles(const QStringList& paths)
{
    bool refused = false;
    bool added = false;
    for (const QString& path : paths) {
        if (!admits(path)) {
            refused = true;
            continue;
        }
        added = true;
        m_files.append(std::make_shared<File>(path));
    }
    if (added) {
        Buttons b = m_buttons;
        b.markAll = true;
        setButtons(b);
    }
    Q_EMIT changed();
    return refused;
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
    const bool someUnmarked = std::any_of(m_files.begin(), m_files.end(), [](const FilePtr& f) { return !f->isChecked; });
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
    m_files.removeIf([](const FilePtr& f) { return f->isChecked; });
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

void IntakeList::setButtons(Buttons buttons)
{
    if (buttons == m_buttons)
        return;
    m_buttons = buttons;
    Q_EMIT buttonsChanged(buttons);
}
