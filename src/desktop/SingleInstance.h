#pragma once

#include "desktop/CommandChannel.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <memory>

class QLocalServer;
class QTextStream;
class QLocalSocket;
class QLockFile;

// One Varnex Desktop per user. The first start holds a lock file and listens on a local socket
// beside it, both in a folder only the user can reach; a later start finds the lock taken,
// hands its files to the first over the socket and ends.
//
// A message is a 32-bit length, then a QDataStream of a word saying what it carries and its
// values: "open" with a list of absolute paths (none: just come forward), after as many
// "more" with the list's earlier pieces as its length needs. The first answers "done" once it
// took the files, and hands them on from its event loop. "run" carries a command and its
// arguments instead; the first answers with "out" and "err" lines and, last, "exit" with the
// status, and the later start may send "cancel" meanwhile.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    // `folder` holds the lock and the socket; it is made (0700) when missing.
    explicit SingleInstance(QString folder = defaultFolder(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // The user's runtime folder when the desktop gives one that is the user's own, else a
    // folder of the user's cache; never the shared temporary folder, where another account
    // could take the name first. Empty when neither can be made private.
    static QString defaultFolder();

    QString folder() const { return m_folder; }
    QString socketPath() const;

    // True when this is the first start: the lock is now held. Needs no application object.
    bool claim();
    // The first start listens for later ones; needs the application object (event loop).
    bool listen();

    enum class HandOver { Delivered, NoAnswer };
    // A later start: gives `paths` to the first and waits for its answer, at most `timeout`
    // in all (the first may still be starting, so a refused connection is tried again).
    HandOver handOver(const QStringList& paths, std::chrono::milliseconds timeout) const;

    // True when another start holds the lock now (this one has not claimed it); the lock is
    // only read.
    bool isRunning() const;
    // A later start: asks the first to run a command (its words, files absolute), printing the
    // answer's lines to `out` and `err` as they come, and sends a cancel once `interrupted`
    // says so. The status the first answered; -1 when none could be reached within
    // `connectTimeout`, or it went away before answering.
    int runCommand(const QStringList& arguments, std::chrono::milliseconds connectTimeout,
        const std::function<bool()>& interrupted, QTextStream& out, QTextStream& err) const;

    // Largest message taken; anything longer is dropped with its connection (a long list comes
    // in pieces).
    static constexpr quint32 maxMessageBytes = 4 * 1024 * 1024;

Q_SIGNALS:
    // A later start handed these over (absolute paths; none: only bring the window forward).
    void filesHandedOver(const QStringList& paths);
    // A later start asks for a command; from the event loop. Whoever takes it answers through
    // the channel (which goes with its connection).
    void commandReceived(CommandChannel* channel);

private:
    void accept();
    void read(QLocalSocket* socket);

    QString m_folder;
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer* m_server = nullptr;
};
