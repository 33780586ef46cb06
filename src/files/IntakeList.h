#pragma once

#include "storage/File.h"

#include <QFuture>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QStringList>

#include <functional>
#include <optional>

// The rules of a screen's intake list: which files are admitted, how marks are made, and
// which buttons that switches. The remove, mark-all and operation buttons are always switched
// as a unit: enabled, state on and mirrored flag together.
class IntakeList : public QObject
{
    Q_OBJECT

public:
    enum class Kind { Encrypt, Decrypt };

    struct Buttons
    {
        bool markAll = false;
        bool remove = false;
        bool operation = false;
        friend bool operator==(const Buttons&, const Buttons&) = default;
    };

    // Why a path was not admitted, in the order the checks run.
    enum class Reason {
        Missing, // nothing at that path
        NameNotValid, // a name the file system's encoding (UTF-8) cannot carry: no such file here
        Folder,
        NotRegularFile, // FIFO, socket, device
        Unreadable,
        AlreadyListed, // a file of the same name is in the list (or earlier in the same call)
        NameTooLong, // its encrypted result's name would exceed the file system's limit
        Encrypted, // on the Encrypt list
        NotEncrypted, // on the Decrypt list
    };
    // Why a file was not added, in a few words for the user.
    static QString reasonText(Reason reason);
    struct Refusal
    {
        QString path;
        Reason reason;
        friend bool operator==(const Refusal&, const Refusal&) = default;
    };

    explicit IntakeList(Kind kind, QObject* parent = nullptr);

    Kind kind() const { return m_kind; }
    const FileList& files() const { return m_files; }
    Buttons buttons() const { return m_buttons; }
    int markedCount() const;

    // The operation's other precondition (the Encrypt screen: a recipient is selected).
    void setOperationPrecondition(std::function<bool()> precondition);
    // Re-applies the operation button rule after the precondition changed (recipients).
    void updateOperationButton();

    // Admits what the screen's rule allows, in order, and returns the paths refused with their
    // reasons (the screen then tells the user once). Takes time linear in the number of paths,
    // whatever the list's length.
    QList<Refusal> addFiles(const QStringList& paths);
    // The same, for a drop or a choice of any size: more than `inlineLimit` paths are looked
    // at on a worker thread, so the screen stays responsive while thousands of files are
    // examined. `done` runs once the batch is admitted (at once for a small batch when no other
    // is waiting), batches in the order they came; not at all once `context` is gone.
    void admit(const QStringList& paths, QObject* context, std::function<void(const QList<Refusal>&)> done);
    static constexpr qsizetype inlineLimit = 500;
    // True while a batch waits for its files to be looked at.
    bool isAdmitting() const { return !m_batches.isEmpty(); }
    void flip(int row);
    void markAll();
    void removeMarked();
    // After an operation: every mark cleared, files kept.
    void clearMarks();
    // Marks exactly the files at `paths` (those still listed), clears the others.
    void markOnly(const QStringList& paths);
    // Marks the files at `paths` too (those listed); the others keep their marks.
    void mark(const QStringList& paths);

    // The last piece of a name split at "."; "vx" exactly marks an encrypted file.
    static bool isEncryptedName(const QString& name);
    // Why `path` would be refused now; nothing when it would be admitted.
    std::optional<Reason> refusalOf(const QString& path) const;
    // True when the file's result would have a name too long for the file system: on the
    // Encrypt list, a name that cannot take ".vx" within 255 bytes.
    bool resultNameTooLong(const QString& path) const;

Q_SIGNALS:
    void changed();
    void buttonsChanged(const IntakeList::Buttons& buttons);
    // The last waiting batch was admitted (its `done` has run): isAdmitting() is false again.
    void admissionEnded();

private:
    // What a path is on disk, found without touching the list (any thread).
    enum class Found : quint8 { Missing, NotValid, Regular, Folder, Special, Unreadable };
    static Found inspect(const QString& path);
    static Found inspectExisting(const QByteArray& local);
    std::optional<Reason> refusalOf(const QString& path, Found found) const;
    QList<Refusal> addInspected(const QStringList& paths, const QList<Found>& found);
    // Admits the waiting batches whose files have been looked at, oldest first.
    void admitReady();

    struct Batch
    {
        QStringList paths;
        QFuture<QList<Found>> found;
        QPointer<QObject> context;
        std::function<void(const QList<Refusal>&)> done;
    };
    QList<std::shared_ptr<Batch>> m_batches;

    void setButtons(Buttons buttons);
    // The one rule of the operation button, wherever marks or recipients change: on exactly
    // when a file is marked and the other precondition holds.
    bool operationOn() const { return markedCount() > 0 && (!m_precondition || m_precondition()); }

    Kind m_kind;
    FileList m_files;
    // The names (last path components) of m_files, so admission never scans the list.
    QSet<QString> m_names;
    Buttons m_buttons;
    std::function<bool()> m_precondition;
};
