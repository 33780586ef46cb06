#pragma once

#include "storage/File.h"

#include <QList>
#include <QObject>
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
        Folder,
        NotRegularFile, // FIFO, socket, device
        Unreadable,
        AlreadyListed, // a file of the same name is in the list (or earlier in the same call)
        NameTooLong, // its encrypted result's name would exceed the file system's limit
        Encrypted, // on the Encrypt list
        NotEncrypted, // on the Decrypt list
    };
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
    void flip(int row);
    void markAll();
    void removeMarked();
    // After an operation: every mark cleared, files kept.
    void clearMarks();

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

private:
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
