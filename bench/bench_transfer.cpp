// The two heavy paths of an operation, each against a public tool in the same run:
//   bench_transfer upload FILE   sending FILE through the encrypt upload vs curl -F, to a local sink
//   bench_transfer unpack ZIP    unpacking a reply archive vs bsdtar -xf
#include "operations/EncryptTask.h"
#include "operations/MultipartUpload.h"
#include "operations/SafeArchive.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

double median(QList<double> v)
{
    std::sort(v.begin(), v.end());
    return v.at(v.size() / 2);
}

qint64 writtenBytes()
{
    QFile io(u"/proc/self/io"_qs);
    if (!io.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : io.readAll().split('\n')) {
        if (line.startsWith("write_bytes:"))
            return line.mid(12).trimmed().toLongLong();
    }
    return -1;
}

// A sink that reads and discards each request's body and answers 200 with an empty zip.
class Sink
{
public:
    Sink()
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        ::listen(m_fd, 8);
        socklen_t len = sizeof addr;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&addr), &len);
        m_port = ntohs(addr.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~Sink()
    {
        m_stop = true;
        ::shutdown(m_fd, SHUT_RDWR);
        ::close(m_fd);
        m_thread.join();
    }
    quint16 port() const { return m_port; }

private:
    void serve()
    {
        static const char zip[22] = { 'P', 'K', 5, 6 };
        std::vector<char> buffer(1 << 20);
        while (!m_stop) {
            const int c = ::accept(m_fd, nullptr, nullptr);
            if (c < 0)
                return;
            std::string head;
            long long length = -1;
            long long body = 0;
            ssize_t n = 0;
            while ((n = ::read(c, buffer.data(), buffer.size())) > 0) {
                if (length < 0) {
                    head.append(buffer.data(), size_t(n));
                    const size_t end = head.find("\r\n\r\n");
                    if (end == std::string::npos)
                        continue;
                    std::string lower = head.substr(0, end);
                    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
                    const size_t cl = lower.find("content-length:");
                    length = cl == std::string::npos ? 0 : std::atoll(lower.c_str() + cl + 15);
                    body = qint64(head.size() - end - 4);
                } else {
                    body += n;
                }
                if (body >= length)
                    break;
            }
            const std::string reply = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\nContent-Length: 22\r\nConnection: close\r\n\r\n";
            ::write(c, reply.data(), reply.size());
            ::write(c, zip, sizeof zip);
            ::close(c);
        }
    }

    int m_fd = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop { false };
    std::thread m_thread;
};

int upload(const QString& file)
{
    Sink sink;
    const QString url = QStringLiteral("http://127.0.0.1:%1/encryptFile/").arg(sink.port());
    QTemporaryDir dir;
    QList<double> ours;
    QList<double> curl;
    const qint64 writesBefore = writtenBytes();
    for (int run = 0; run < 3; ++run) {
        QElapsedTimer t;
        t.start();
        QProcess p;
        p.start(u"curl"_qs, { u"-s"_qs, u"-o"_qs, u"/dev/null"_qs, u"-F"_qs, u"emails=a@x;"_qs, u"-F"_qs,
                              u"type=MacOS(v1.0.0)"_qs, u"-F"_qs, u"file=@"_qs + file, url });
        p.waitForFinished(-1);
        curl.append(t.nsecsElapsed() / 1e9);

        const QString reply = dir.filePath(QStringLiteral("reply-%1.zip").arg(run));
        const QStringList staged = EncryptTask::stagedNames({ file }, dir.path());
        std::atomic<bool> cancel { false };
        t.restart();
        const auto outcome = MultipartUpload::send(url, EncryptTask::parts({ file }, staged, u"a@x;"_qs), reply, {}, cancel);
        ours.append(t.nsecsElapsed() / 1e9);
        if (outcome.status != 200) {
            std::fprintf(stderr, "upload failed: %d %s\n", outcome.status, qPrintable(outcome.failure));
            return 1;
        }
    }
    const qint64 written = writtenBytes() - writesBefore;
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    const double size = double(QFileInfo(file).size());
    std::printf("upload of %.0f MiB to a local sink, median of 3\n", size / 1048576.0);
    std::printf("  curl -F:          %.3f s\n", median(curl));
    std::printf("  desktop (libcurl): %.3f s\n", median(ours));
    std::printf("  ratio desktop/curl: %.2f (budget 1.15)\n", median(ours) / median(curl));
    std::printf("  peak memory of the desktop side: %.1f MB (budget 100 MB)\n", usage.ru_maxrss / 1024.0);
    std::printf("  bytes written to disk by the desktop side: %lld (the 22-byte replies)\n", written);
    return 0;
}

int unpack(const QString& zip)
{
    QList<double> ours;
    QList<double> bsdtar;
    // Alternating who goes first, each run after a sync and on an empty folder, so neither
    // pays for the other's write-back.
    for (int run = 0; run < 6; ++run) {
        const bool oursNow = run % 2 == 0;
        QTemporaryDir out(QFileInfo(zip).absolutePath() + u"/bench-XXXXXX");
        QProcess::execute(u"sync"_qs, {});
        QElapsedTimer t;
        t.start();
        if (oursNow) {
            const auto result = SafeArchive::extract(zip, out.path(), 1LL << 42, {}, nullptr, 0644);
            ours.append(t.nsecsElapsed() / 1e9);
            if (!result.ok) {
                std::fprintf(stderr, "unpack failed: %s\n", qPrintable(result.detail));
                return 1;
            }
        } else {
            QProcess::execute(u"bsdtar"_qs, { u"-xf"_qs, zip, u"-C"_qs, out.path() });
            bsdtar.append(t.nsecsElapsed() / 1e9);
        }
        out.remove();
        QProcess::execute(u"sync"_qs, {});
    }
    std::printf("unpacking %.0f MiB, median of 3 each\n", QFileInfo(zip).size() / 1048576.0);
    std::printf("  bsdtar -xf:        %.3f s\n", median(bsdtar));
    std::printf("  desktop (checked): %.3f s\n", median(ours));
    std::printf("  ratio desktop/bsdtar: %.2f (budget 1.2)\n", median(ours) / median(bsdtar));
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(u"1.0.0"_qs);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == u"upload")
        return upload(args.at(2));
    if (args.size() == 3 && args.at(1) == u"unpack")
        return unpack(args.at(2));
    std::fprintf(stderr, "usage: bench_transfer upload FILE | unpack ZIP\n");
    return 2;
}
