#include "operations/MultipartUpload.h"

#include <QFile>
#include <QMimeDatabase>

#include <curl/curl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace MultipartUpload {

namespace {

using Problem = Outcome::Problem;

struct Transfer
{
    std::FILE* reply = nullptr;
    qint64 received = 0;
    qint64 replyLimit = 0;
    const std::function<void(const Progress&)>* onProgress = nullptr;
    const std::atomic<bool>* cancel = nullptr;
    Problem problem = Problem::None;
    QString problemDetail;
};

// One file part's bytes: an open file of a size fixed when it was opened.
struct Source
{
    int fd = -1;
    qint64 size = 0;
    QString path;
    Transfer* transfer = nullptr;

    ~Source()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

size_t readSource(char* buffer, size_t size, size_t count, void* user)
{
    auto* s = static_cast<Source*>(user);
    if (s->transfer->cancel->load())
        return CURL_READFUNC_ABORT;
    // curl asks for exactly the declared size, reading on from where it stopped.
    const off_t offset = ::lseek(s->fd, 0, SEEK_CUR);
    const qint64 wanted = qMin<qint64>(qint64(size * count), s->size - offset);
    ssize_t n = 0;
    do
        n = wanted > 0 ? ::read(s->fd, buffer, size_t(wanted)) : 0;
    while (n < 0 && errno == EINTR);
    struct stat st
    {
    };
    const bool last = offset + n >= s->size;
    if (n < 0 || (wanted > 0 && n == 0) || (last && (::fstat(s->fd, &st) != 0 || st.st_size != s->size))) {
        s->transfer->problem = n < 0 ? Problem::FileUnreadable : Problem::FileChanged;
        s->transfer->problemDetail = s->path;
        return CURL_READFUNC_ABORT;
    }
    return size_t(n);
}

int seekSource(void* user, curl_off_t offset, int origin)
{
    auto* s = static_cast<Source*>(user);
    return origin == SEEK_SET && ::lseek(s->fd, offset, SEEK_SET) == offset ? CURL_SEEKFUNC_OK
                                                                            : CURL_SEEKFUNC_FAIL;
}

size_t writeReply(char* data, size_t size, size_t count, void* user)
{
    auto* t = static_cast<Transfer*>(user);
    const qint64 bytes = qint64(size * count);
    if (t->cancel->load())
        return 0;
    if (t->received + bytes > t->replyLimit) {
        t->problem = Problem::ReplyTooLarge;
        return 0;
    }
    if (std::fwrite(data, 1, size_t(bytes), t->reply) != size_t(bytes)) {
        t->problem = Problem::ReplyNotWritten;
        t->problemDetail = QString::fromLocal8Bit(std::strerror(errno));
        return 0;
    }
    t->received += bytes;
    return size_t(bytes);
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
    const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel,
    qint64 replyLimit)
{
    static CurlInit init;
    Outcome outcome;
    Transfer transfer { nullptr, 0, replyLimit, &onProgress, &cancel, Problem::None, {} };
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), curl_easy_cleanup);
    std::unique_ptr<curl_mime, decltype(&curl_mime_free)> mime(curl_mime_init(curl.get()), curl_mime_free);
    std::list<Source> sources; // stable addresses, outliving the transfer
    for (const Part& part : parts) {
        curl_mimepart* p = curl_mime_addpart(mime.get());
        curl_mime_name(p, part.name.toUtf8().constData());
        if (part.filePath.isEmpty()) {
            curl_mime_data(p, part.value.constData(), size_t(part.value.size()));
            continue;
        }
        // Non-blocking open: a FIFO would otherwise wait for a writer where Cancel cannot reach.
        Source& source = sources.emplace_back();
        source.path = part.filePath;
        source.transfer = &transfer;
        source.fd = ::open(QFile::encodeName(part.filePath).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat st
        {
        };
        if (source.fd < 0 || ::fstat(source.fd, &st) != 0 || !S_ISREG(st.st_mode)) {
            outcome.problem = Problem::FileUnreadable;
            outcome.problemDetail = part.filePath;
            outcome.failure = u"Cannot read " + part.filePath;
            return outcome;
        }
        source.size = st.st_size;
        curl_mime_data_cb(p, curl_off_t(source.size), readSource, seekSource, nullptr, &source);
        curl_mime_filename(p, part.filename.toUtf8().constData());
        curl_mime_type(p, part.contentType.toUtf8().constData());
    }

    const int replyFd
        = ::open(QFile::encodeName(replyPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    std::unique_ptr<std::FILE, decltype(&std::fclose)> reply(
        replyFd >= 0 ? ::fdopen(replyFd, "wb") : nullptr, std::fclose);
    if (!reply) {
        outcome.problem = Problem::ReplyNotWritten;
        outcome.problemDetail = QString::fromLocal8Bit(std::strerror(errno));
        outcome.failure = u"Cannot write " + replyPath;
        return outcome;
    }
    transfer.reply = reply.get();
    char error[CURL_ERROR_SIZE] = {};
    const QByteArray address = url.toUtf8();
    // Bodies go with a Content-Length and without waiting for "100 Continue".
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
        curl_slist_append(nullptr, "Expect:"), curl_slist_free_all);
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
    // No time limit once connected: a phone may need minutes for gigabytes.

    // The multi interface lets the loop look at `cancel` every 100 ms, whatever stage the
    // transfer is in (connecting, sending, waiting for the phone, receiving).
    std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(), curl_multi_cleanup);
    curl_multi_add_handle(multi.get(), curl.get());
    CURLcode code = CURLE_OK;
    for (int running = 1; running;) {
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            code = CURLE_FAILED_INIT;
            break;
        }
        if (cancel.load()) {
            code = CURLE_ABORTED_BY_CALLBACK;
            break;
        }
        if (running)
            curl_multi_poll(multi.get(), nullptr, 0, 100, nullptr);
    }
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi.get(), &queued)) {
        if (message->msg == CURLMSG_DONE && code == CURLE_OK)
            code = message->data.result;
    }
    curl_multi_remove_handle(multi.get(), curl.get());

    long status = 0;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (std::fflush(reply.get()) != 0 && transfer.problem == Problem::None && code == CURLE_OK) {
        transfer.problem = Problem::ReplyNotWritten;
        transfer.problemDetail = QString::fromLocal8Bit(std::strerror(errno));
        code = CURLE_WRITE_ERROR;
    }
    outcome.status = int(status);
    outcome.replyBytes = transfer.received;
    outcome.cancelled
        = cancel.load() || (code == CURLE_ABORTED_BY_CALLBACK && transfer.problem == Problem::None);
    outcome.problem = transfer.problem;
    outcome.problemDetail = transfer.problemDetail;
    if (code != CURLE_OK)
        outcome.failure = QString::fromUtf8(error[0] ? error : curl_easy_strerror(code));
    return outcome;
}

} // namespace MultipartUpload
