#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <atomic>
#include <functional>

// One multipart POST with libcurl: the file parts stream from their files, the reply body
// streams into a file. Blocking; run it on a worker thread.
namespace MultipartUpload {

struct Part
{
    QString name;
    QByteArray value;    // a text part, or
    QString filePath;    // a file part streamed from here,
    QString filename;    //   with this filename
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
    int status = 0;        // 0 when no HTTP answer arrived
    QString failure;       // the transfer's failure, empty when it completed
    bool cancelled = false;
    qint64 replyBytes = 0;
};

// Sends `parts` to `url` and writes the reply body to `replyPath`. `onProgress` is called
// from the transfer's thread; `cancel` aborts the transfer when it turns true.
Outcome send(const QString& url, const QList<Part>& parts, const QString& replyPath,
             const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel);

// The content type a file part gets from its extension.
QString contentTypeFor(const QString& fileName);

} // namespace MultipartUpload
