#pragma once

#include <QString>

#include <memory>

// The private folder of one running operation, inside a result folder. It is created 0700
// and carries a marker file that only this program writes, locked (flock) for as long as the
// object lives. Start-up cleanup removes only marked folders whose lock nobody holds, so a
// user's own folder is never touched, whatever its name, and a second running program never
// removes the first one's folder mid-operation.
class OperationFolder
{
public:
    // The marker's name inside an operation folder.
    static constexpr const char* markerName = ".varnex-operation";

    ~OperationFolder();
    OperationFolder(const OperationFolder&) = delete;
    OperationFolder& operator=(const OperationFolder&) = delete;

    // Makes `parent`/`id`, marked and locked; nothing (with `error` set) when it cannot.
    static std::unique_ptr<OperationFolder> create(
        const QString& parent, const QString& id, QString* error = nullptr);

    QString path() const { return m_path; }

    // Removes the folder with everything in it, then lets go of the lock.
    void remove();
    // As remove(), but gives up after `msecs` (a file the disk is still writing takes long to
    // remove); false then, with the folder, the rest of its content and the lock kept.
    bool removeWithin(qint64 msecs);

    // Removes the operation folders an interrupted run left in `folder`: marked and not
    // locked by a live program. Nothing else. Returns how many went.
    static int removeLeftovers(const QString& folder);

private:
    OperationFolder(QString path, int lockFd);

    QString m_path;
    int m_lockFd = -1;
};
