#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>
#include <limits>

// One multipart POST with libcurl: the file parts stream from their files, the reply body
// streams into a file. Blocking; run it on a worker thread. Every file is opened once, must
// be a regular file, and is sent with the size it had then: a file that grows or shrinks
// while it is sent ends the transfer instead of making a malformed request.
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

// Sends `parts` to `url` and writes the reply body to `replyPath` (created exclusively, at
// most `replyLimit` bytes). `onProgress` is called from the transfer's thread; the transfer
// stops within a tenth of a second once `cancel` turns true, at any stage.
Outcome send(const QString& url, const QList<Part>& parts, const QString& replyPath,
    const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel,
    qint64 replyLimit = std::numeric_limits<qint64>::max());

// The content type a file part gets from its extension.
QString contentTypeFor(const QString& fileName);

} // namespace MultipartUpload
