#include "operations/MultipartUpload.h"

#include "operations/WholeWrite.h"

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

struct TransferState
{
    const std::function<void(const Progress&)>* onProgress = nullptr;
    const std::atomic<bool>* cancel = nullptr;
    Problem problem = Problem::None;
    QString problemDetail;
};

// Opens `path` for reading without blocking: a FIFO would otherwise wait for a writer where
// Cancel cannot reach. -1 unless it is a regular file.
int openRegular(const QString& path, struct stat& st)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0 && (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// One file part's bytes: a file of a size fixed when the request was made. It is open only
// while curl reads it: a batch of thousands of files must not need a descriptor for each.
struct Source
{
    int fd = -1;
    qint64 size = 0;
    qint64 offset = 0;
    dev_t device = 0;
    ino_t inode = 0;
    QString path;
    TransferState* transfer = nullptr;

    void close()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    ~Source() { close(); }
};

size_t readSource(char* buffer, size_t size, size_t count, void* user)
{
    auto* s = static_cast<Source*>(user);
    if (s->transfer->cancel->load())
        return CURL_READFUNC_ABORT;
    const auto fail = [s](Problem problem) {
        s->transfer->problem = problem;
        s->transfer->problemDetail = s->path;
        s->close();
        return size_t(CURL_READFUNC_ABORT);
    };
    struct stat st
    {
    };
    if (s->fd < 0) {
        // The file measured when the request was made, not another one put in its place since.
        s->fd = openRegular(s->path, st);
        if (s->fd < 0)
            return fail(Problem::FileUnreadable);
        if (st.st_dev != s->device || st.st_ino != s->inode)
            return fail(Problem::FileChanged);
    }
    // curl asks for exactly the declared size, reading on from where it stopped.
    const qint64 wanted = qMin<qint64>(qint64(size * count), s->size - s->offset);
    ssize_t n = 0;
    do
        n = wanted > 0 ? ::pread(s->fd, buffer, size_t(wanted), off_t(s->offset)) : 0;
    while (n < 0 && errno == EINTR);
    if (n < 0)
        return fail(Problem::FileUnreadable);
    s->offset += n;
    const bool last = s->offset >= s->size;
    if ((wanted > 0 && n == 0) || (last && (::fstat(s->fd, &st) != 0 || st.st_size != s->size)))
        return fail(Problem::FileChanged);
    if (last)
        s->close();
    return size_t(n);
}

int seekSource(void* user, curl_off_t offset, int origin)
{
    auto* s = static_cast<Source*>(user);
    if (origin != SEEK_SET || offset < 0 || offset > s->size)
        return CURL_SEEKFUNC_FAIL;
    s->offset = offset;
    return CURL_SEEKFUNC_OK;
}

int onTransferInfo(
    void* user, curl_off_t downloadTotal, curl_off_t downloaded, curl_off_t uploadTotal, curl_off_t uploaded)
{
    auto* t = static_cast<TransferState*>(user);
    if (t->onProgress && *t->onProgress)
        (*t->onProgress)(
            { qint64(uploaded), qint64(uploadTotal), qint64(downloaded), qint64(downloadTotal) });
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

struct Transfer::Private
{
    static constexpr size_t pendingLimit = 1024 * 1024;

    std::function<void(const Progress&)> onProgress;
    TransferState state;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl { curl_easy_init(), curl_easy_cleanup };
    std::unique_ptr<curl_mime, decltype(&curl_mime_free)> mime { nullptr, curl_mime_free };
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers { nullptr, curl_slist_free_all };
    std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi { curl_multi_init(), curl_multi_cleanup };
    std::list<Source> sources; // stable addresses, outliving the transfer
    QByteArray address;
    char error[CURL_ERROR_SIZE] = {};
    QString openFailure; // a file that could not even be opened
    bool started = false;
    bool done = false;
    bool paused = false;
    bool resumed = false;
    CURLcode code = CURLE_OK;
    qint64 received = 0;
    // Bytes that arrived and were not handed out yet, and the blocks handed out lately (the
    // oldest is reused for what arrives next, so the memory stays bounded).
    std::vector<char> pending;
    std::list<std::vector<char>> handed;

    static size_t write(char* data, size_t size, size_t count, void* user)
    {
        auto* d = static_cast<Private*>(user);
        const size_t bytes = size * count;
        if (d->state.cancel->load())
            return 0;
        // Full: curl keeps these bytes and stops reading the socket until next() wants more.
        if (!d->pending.empty() && d->pending.size() + bytes > pendingLimit) {
            d->paused = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        d->pending.insert(d->pending.end(), data, data + bytes);
        d->received += qint64(bytes);
        return bytes;
    }

    void start()
    {
        started = true;
        if (!openFailure.isEmpty()) {
            done = true;
            return;
        }
        curl_multi_add_handle(multi.get(), curl.get());
    }

    // One step of the transfer: at most a tenth of a second, so `cancel` is always near.
    void pump()
    {
        if (!started)
            start();
        if (done)
            return;
        int running = 0;
        if (curl_multi_perform(multi.get(), &running) != CURLM_OK) {
            stop(CURLE_FAILED_INIT);
            return;
        }
        if (state.cancel->load()) {
            stop(CURLE_ABORTED_BY_CALLBACK);
            return;
        }
        if (!running) {
            int queued = 0;
            CURLcode result = CURLE_OK;
            while (CURLMsg* message = curl_multi_info_read(multi.get(), &queued)) {
                if (message->msg == CURLMSG_DONE)
                    result = message->data.result;
            }
            stop(result);
            return;
        }
        // Never longer than curl's own timers say (a transfer just resumed wants to run now).
        long wait = 100;
        if (curl_multi_timeout(multi.get(), &wait) != CURLM_OK || wait < 0 || wait > 100)
            wait = 100;
        if (resumed)
            wait = 0;
        resumed = false;
        if (wait > 0)
            curl_multi_poll(multi.get(), nullptr, 0, int(wait), nullptr);
    }

    void stop(CURLcode result)
    {
        if (done)
            return;
        done = true;
        if (code == CURLE_OK)
            code = result;
        curl_multi_remove_handle(multi.get(), curl.get());
    }

    long responseCode() const
    {
        long status = 0;
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
        return status;
    }
};

Transfer::Transfer(const QString& url, const QList<Part>& parts,
    std::function<void(const Progress&)> onProgress, const std::atomic<bool>& cancel)
    : d(std::make_unique<Private>())
{
    static CurlInit init;
    d->onProgress = std::move(onProgress);
    d->state = { &d->onProgress, &cancel, Problem::None, {} };
    CURL* curl = d->curl.get();
    d->mime.reset(curl_mime_init(curl));
    for (const Part& part : parts) {
        curl_mimepart* p = curl_mime_addpart(d->mime.get());
        curl_mime_name(p, part.name.toUtf8().constData());
        if (part.filePath.isEmpty()) {
            curl_mime_data(p, part.value.constData(), size_t(part.value.size()));
            continue;
        }
        Source& source = d->sources.emplace_back();
        source.path = part.filePath;
        source.transfer = &d->state;
        struct stat st
        {
        };
        const int fd = openRegular(part.filePath, st);
        if (fd < 0) {
            d->state.problem = Problem::FileUnreadable;
            d->state.problemDetail = part.filePath;
            d->openFailure = u"Cannot read " + part.filePath;
            return;
        }
        ::close(fd);
        source.size = st.st_size;
        source.device = st.st_dev;
        source.inode = st.st_ino;
        curl_mime_data_cb(p, curl_off_t(source.size), readSource, seekSource, nullptr, &source);
        curl_mime_filename(p, part.filename.toUtf8().constData());
        curl_mime_type(p, part.contentType.toUtf8().constData());
    }
    d->address = url.toUtf8();
    // Bodies go with a Content-Length and without waiting for "100 Continue".
    d->headers.reset(curl_slist_append(nullptr, "Expect:"));
    curl_easy_setopt(curl, CURLOPT_URL, d->address.constData());
    curl_easy_setopt(curl, CURLOPT_MIMEPOST, d->mime.get());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, d->headers.get());
    curl_easy_setopt(curl, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024L);
    curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, 512L * 1024L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Private::write);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, d.get());
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, onTransferInfo);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &d->state);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, d->error);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*"); // the phone is on the local network
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 15L);
    // No time limit once connected: a phone may need minutes for gigabytes.
}

Transfer::~Transfer()
{
    if (d->started && !d->done)
        curl_multi_remove_handle(d->multi.get(), d->curl.get());
}

int Transfer::status()
{
    while (!d->done && d->pending.empty() && d->responseCode() == 0)
        d->pump();
    return int(d->responseCode());
}

qint64 Transfer::next(const char** block)
{
    while (!d->done && d->pending.empty())
        d->pump();
    if (d->pending.empty())
        return 0;
    std::vector<char> spare;
    if (int(d->handed.size()) >= retainedBlocks) {
        spare = std::move(d->handed.front());
        d->handed.pop_front();
    }
    spare.clear();
    d->handed.push_back(std::move(d->pending));
    d->pending = std::move(spare);
    if (d->paused) {
        d->paused = false;
        curl_easy_pause(d->curl.get(), CURLPAUSE_CONT); // may deliver the held bytes at once
        d->resumed = true;
    }
    *block = d->handed.back().data();
    return qint64(d->handed.back().size());
}

Outcome Transfer::finish(bool drain)
{
    if (!d->started)
        d->start();
    while (drain && !d->done) {
        d->pending.clear();
        if (d->paused) {
            d->paused = false;
            curl_easy_pause(d->curl.get(), CURLPAUSE_CONT);
        }
        d->pump();
    }
    // Ended early on purpose: not a failure of the transfer.
    d->stop(CURLE_OK);
    Outcome outcome;
    outcome.status = int(d->responseCode());
    outcome.replyBytes = d->received;
    const std::atomic<bool>& cancel = *d->state.cancel;
    outcome.cancelled
        = cancel.load() || (d->code == CURLE_ABORTED_BY_CALLBACK && d->state.problem == Problem::None);
    outcome.problem = d->state.problem;
    outcome.problemDetail = d->state.problemDetail;
    if (!d->openFailure.isEmpty())
        outcome.failure = d->openFailure;
    else if (d->code != CURLE_OK)
        outcome.failure = QString::fromUtf8(d->error[0] ? d->error : curl_easy_strerror(d->code));
    return outcome;
}

Outcome send(const QString& url, const QList<Part>& parts, const QString& replyPath,
    const std::function<void(const Progress&)>& onProgress, const std::atomic<bool>& cancel,
    qint64 replyLimit)
{
    Transfer transfer(url, parts, onProgress, cancel);
    const int replyFd
        = ::open(QFile::encodeName(replyPath).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (replyFd < 0) {
        Outcome outcome = transfer.finish(false);
        if (outcome.problem == Problem::None) {
            outcome.problem = Problem::ReplyNotWritten;
            outcome.problemDetail = QString::fromLocal8Bit(std::strerror(errno));
            outcome.failure = u"Cannot write " + replyPath;
        }
        return outcome;
    }
    Problem problem = Problem::None;
    QString detail;
    qint64 written = 0;
    const char* block = nullptr;
    for (qint64 n; (n = transfer.next(&block)) > 0;) {
        if (written + n > replyLimit) {
            problem = Problem::ReplyTooLarge;
            break;
        }
        if (!WholeWrite::writeAll(replyFd, block, n)) {
            problem = Problem::ReplyNotWritten;
            detail = QString::fromLocal8Bit(std::strerror(errno));
            break;
        }
        written += n;
    }
    ::close(replyFd);
    Outcome outcome = transfer.finish(false);
    if (problem != Problem::None) {
        outcome.problem = problem;
        outcome.problemDetail = detail;
        outcome.cancelled = cancel.load();
        if (outcome.failure.isEmpty())
            outcome.failure = QStringLiteral("reply not stored");
    }
    return outcome;
}

} // namespace MultipartUpload
