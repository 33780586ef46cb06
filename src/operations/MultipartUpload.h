#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>

// One multipart POST with libcurl: the file parts stream from their files, the reply body is
// handed on block by block as it arrives, or streamed into a file. Blocking; run it on a
// worker thread. Every file must be a regular file and is sent with the size it had when the
// request was made: a file that grows, shrinks or is replaced before or while it is sent ends
// the transfer instead of making a malformed request. Files are open only while they are read.
namespace MultipartUpload {

struct Part
{
    QString name;
    QByteArray value; // a text part, or
    QString filePath; // a file part streamed from here,
    QString filename; //   with this filename
    QString contentType; //   and content type
};

struct Progress
{
    qint64 sent = 0;
    qint64 total = 0;
    qint64 received = 0;
    qint64 receiveTotal = 0; // the reply's length, 0 while unknown
};

struct Outcome
{
    enum class Problem {
        None,
        FileUnreadable, // a file could not be opened, or is no regular file
        FileChanged, // a file changed size while it was sent
        ReplyTooLarge, // the reply went past the limit
        ReplyNotWritten, // the reply could not be written
    };

    int status = 0; // 0 when no HTTP answer arrived
    QString failure; // the transfer's failure, empty when it completed
    bool cancelled = false;
    qint64 replyBytes = 0;
    Problem problem = Problem::None;
    QString problemDetail; // the file's path, or the system's text
};

// One request whose reply body is pulled block by block as it arrives, on the calling thread:
// nothing is read from the network while the caller works on a block, so a slow consumer holds
// the phone back (through TCP) instead of piling the reply up in memory.
class Transfer
{
public:
    // Nothing is sent before the first call to status() or next().
    Transfer(const QString& url, const QList<Part>& parts, std::function<void(const Progress&)> onProgress,
        const std::atomic<bool>& cancel);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    // Sends the request and waits for the reply's head: its status, 0 when none came.
    int status();
    // The next block of the body; it stays valid until `retainedBlocks` more have been handed
    // out. 0 once the body is complete or the transfer ended (then see finish()).
    qint64 next(const char** block);
    static constexpr int retainedBlocks = 8;
    // Ends the transfer: reads what is left of the body (discarding it) when `drain`, or drops
    // the connection at once; says how it went.
    Outcome finish(bool drain);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

// Sends `parts` to `url` and writes the reply body to `replyPath` (created exclusively, at
// most `replyLimit` bytes). `onProgress` is called from the transfer's thread; the transfer
// stops within a tenth of a second once `cancel` turns true, at any stage.
Outcome send(const QString& url, const QList<Part>& parts, const QString& replyPath,
    const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel,
    qint64 replyLimit = std::numeric_limits<qint64>::max());

// The content type a file part gets from its extension.
QString contentTypeFor(const QString& fileName);

} // namespace MultipartUpload
