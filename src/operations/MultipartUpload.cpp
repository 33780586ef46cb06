#include "operations/MultipartUpload.h"

#include <QFile>
#include <QMimeDatabase>

#include <curl/curl.h>

#include <cstdio>
#include <memory>

namespace MultipartUpload {

namespace {

struct Transfer
{
    std::FILE* reply = nullptr;
    qint64 received = 0;
    const std::function<void(const Progress&)>* onProgress = nullptr;
    const std::atomic<bool>* cancel = nullptr;
};

size_t writeReply(char* data, size_t size, size_t count, void* user)
{
    auto* t = static_cast<Transfer*>(user);
    const size_t n = std::fwrite(data, size, count, t->reply);
    t->received += qint64(n * size);
    return n * size;
}

int onTransferInfo(void* user, curl_off_t, curl_off_t downloaded, curl_off_t uploadTotal, curl_off_t uploaded)
{
    auto* t = static_cast<Transfer*>(user);
    if (t->onProgress && *t->onProgress)
        (*t->onProgress)({ qint64(uploaded), qint64(uploadTotal), qint64(downloaded) });
    return t->cancel->load() ? 1 : 0; // non-zero aborts the transfer
}

struct CurlInit
{
    CurlInit() { curl_global_init(CURL_GLOBAL_DEFAULT); }
};

} // namespace

QString contentTypeFor(const QString& fileName)
{
    static const QMimeDatabase database;
    const QMimeType type = database.mimeTypeForFile(fileName, QMimeDatabase::MatchExtension);
    return type.isDefault() ? QStringLiteral("application/octet-stream") : type.name();
}

Outcome send(const QString& url, const QList<Part>& parts, const QString& replyPath,
             const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel)
{
    static CurlInit init;
    Outcome outcome;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    std::unique_ptr<curl_mime, decltype(&curl_mime_free)> mime(curl_mime_init(curl.get()), curl_mime_free);
    for (const Part& part : parts) {
        curl_mimepart* p = curl_mime_addpart(mime.get());
        curl_mime_name(p, part.name.toUtf8().constData());
        if (part.filePath.isEmpty()) {
            curl_mime_data(p, part.value.constData(), size_t(part.value.size()));
            continue;
        }
        if (curl_mime_filedata(p, QFile::encodeName(part.filePath).constData()) != CURLE_OK) {
            outcome.failure = u"Cannot read " + part.filePath;
            return outcome;
        }
        curl_mime_filename(p, part.filename.toUtf8().constData());
        curl_mime_type(p, part.contentType.toUtf8().constData());
    }

    std::unique_ptr<std::FILE, decltype(&std::fclose)> reply(std::fopen(QFile::encodeName(replyPath).constData(), "wbx"),
                                                            std::fclose);
    if (!reply) {
        outcome.failure = u"Cannot write " + replyPath;
        return outcome;
    }
    Transfer transfer { reply.get(), 0, &onProgress, &cancel };
    char error[CURL_ERROR_SIZE] = {};
    const QByteArray address = url.toUtf8();
    // Bodies go with a Content-Length and without waiting for "100 Continue".
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(curl_slist_append(nullptr, "Expect:"),
                                                                        curl_slist_free_all);
    curl_easy_setopt(curl.get(), CURLOPT_URL, address.constData());
    curl_easy_setopt(curl.get(), CURLOPT_MIMEPOST, mime.get());
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl.get(), CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024L);
    curl_easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, 512L * 1024L);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, writeReply);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, onTransferInfo);
    curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &transfer);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*"); // the phone is on the local network
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, 15L);
    // Nothing moving for two minutes counts as a lost phone; big files may take long otherwise.
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_LOW_SPEED_TIME, 120L);

    const CURLcode code = curl_easy_perform(curl.get());
    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    outcome.status = int(status);
    outcome.replyBytes = transfer.received;
    outcome.cancelled = code == CURLE_ABORTED_BY_CALLBACK;
    if (code != CURLE_OK)
        outcome.failure = QString::fromUtf8(error[0] ? error : curl_easy_strerror(code));
    return outcome;
}

} // namespace MultipartUpload
