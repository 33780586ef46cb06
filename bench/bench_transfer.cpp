// The heavy paths of an operation, each against public tools in the same run:
//   bench_transfer upload FILE   sending FILE through the encrypt upload vs curl -F, to a local sink
//   bench_transfer unpack ZIP    unpacking a reply archive vs bsdtar -xf, both with their files flushed
//   bench_transfer encrypt FILE  encrypting FILE end to end through OperationTask against the phone
//                                simulator ($VARNEX_PHONE_SIM_BINARY) vs curl -F and bsdtar, flushed
// Every line with a budget says whether it was met.
#include "operations/EncryptTask.h"
#include "operations/MultipartUpload.h"
#include "operations/OperationTask.h"
#include "operations/SafeArchive.h"

#include "BenchSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
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
            const std::string reply = "HTTP/1.1 200 OK\r\nContent-Type: application/zip\r\nContent-Length: "
                                      "22\r\nConnection: close\r\n\r\n";
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
        p.start(u"curl"_qs,
            { u"-s"_qs, u"-o"_qs, u"/dev/null"_qs, u"-F"_qs, u"emails=a@x;"_qs, u"-F"_qs,
                u"type=MacOS(v1.0.0)"_qs, u"-F"_qs, u"file=@"_qs + file, url });
        p.waitForFinished(-1);
        curl.append(t.nsecsElapsed() / 1e9);

        const QString reply = dir.filePath(QStringLiteral("reply-%1.zip").arg(run));
        const QStringList staged = EncryptTask::stagedNames({ file }, dir.path());
        std::atomic<bool> cancel { false };
        t.restart();
        const auto outcome
            = MultipartUpload::send(url, EncryptTask::parts({ file }, staged, u"a@x;"_qs), reply, {}, cancel);
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
    const double ratio = median(ours) / median(curl);
    std::printf("  ratio desktop/curl: %.2f (budget 1.15): %s\n", ratio, verdict(ratio <= 1.15));
    const double memory = usage.ru_maxrss / 1024.0;
    std::printf(
        "  peak memory of the desktop side: %.1f MB (budget 100 MB): %s\n", memory, verdict(memory <= 100));
    std::printf("  bytes written to disk by the desktop side: %lld (the 22-byte replies)\n", written);
    return 0;
}

// Flushes every file in `folder` to the disk, as the desktop does with its results.
void syncFilesIn(const QString& folder)
{
    QStringList files;
    for (const QString& name : QDir(folder).entryList(QDir::Files | QDir::Hidden))
        files.append(folder + u'/' + name);
    if (!files.isEmpty())
        QProcess::execute(u"sync"_qs, QStringList { u"--"_qs } + files);
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
            SafeArchive::flush(out.path()); // as before the results move in
            ours.append(t.nsecsElapsed() / 1e9);
            if (!result.ok) {
                std::fprintf(stderr, "unpack failed: %s\n", qPrintable(result.detail));
                return 1;
            }
        } else {
            QProcess::execute(u"bsdtar"_qs, { u"-xf"_qs, zip, u"-C"_qs, out.path() });
            syncFilesIn(out.path());
            bsdtar.append(t.nsecsElapsed() / 1e9);
        }
        out.remove();
        QProcess::execute(u"sync"_qs, {});
    }
    const double ratio = median(ours) / median(bsdtar);
    std::printf("unpacking %.0f MiB, median of 3 each\n", QFileInfo(zip).size() / 1048576.0);
    std::printf("  bsdtar -xf, then sync of its files: %.3f s\n", median(bsdtar));
    std::printf("  desktop (checked, then flushed): %.3f s\n", median(ours));
    std::printf("  ratio desktop/bsdtar: %.2f (budget 1.2): %s\n", ratio, verdict(ratio <= 1.2));
    return 0;
}

// The phone simulator on a free loopback port, with its state in `data`.
class Simulator
{
public:
    explicit Simulator(const QString& data)
    {
        m_process.start(
            qEnvironmentVariable("VARNEX_PHONE_SIM_BINARY"), { u"--port"_qs, u"0"_qs, u"--data"_qs, data });
        static const QRegularExpression listening(u"listening on ([^:\\s]+):(\\d+)"_qs);
        QByteArray output;
        while (m_port == 0 && m_process.waitForReadyRead(15000)) {
            output += m_process.readAllStandardOutput();
            const auto match = listening.match(QString::fromUtf8(output));
            if (match.hasMatch())
                m_port = quint16(match.captured(2).toUInt());
        }
    }
    ~Simulator()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
    }
    quint16 port() const { return m_port; }

private:
    QProcess m_process;
    quint16 m_port = 0;
};

int encrypt(const QString& file)
{
    const QString scratch = QFileInfo(file).absolutePath();
    QTemporaryDir simData(scratch + u"/sim-XXXXXX");
    Simulator sim(simData.path());
    if (sim.port() == 0) {
        std::fprintf(stderr, "the phone simulator did not start (set VARNEX_PHONE_SIM_BINARY)\n");
        return 1;
    }
    const QString url = QStringLiteral("http://127.0.0.1:%1/encryptFile/").arg(sim.port());
    const QString name = QFileInfo(file).fileName();
    const QString form = u"curl -s -F 'emails=a@x;' -F 'type=MacOS(v1.0.0)' -F '"_qs
        + QFileInfo(name).completeBaseName() + u"=@"_qs + file + u"' "_qs + url;
    const QString flush = u" && sync -- *"_qs;
    const QStringList pipelines { form + u" -o reply.zip && bsdtar -xf reply.zip && rm reply.zip"_qs + flush,
        form + u" | bsdtar -xf -"_qs + flush };
    QList<double> times[3]; // desktop, (a), (b)
    QList<double> writeRatios;
    for (int round = 0; round < 3; ++round) {
        // Each round in another order, each run after a sync on an empty folder.
        for (int k = 0; k < 3; ++k) {
            const int which = (round + k) % 3;
            QTemporaryDir out(scratch + u"/results-XXXXXX");
            QProcess::execute(u"sync"_qs, {});
            QElapsedTimer t;
            t.start();
            if (which == 0) {
                const qint64 writesBefore = writtenBytes();
                EncryptTask task({ file }, u"a@x;"_qs, out.path(), url);
                QEventLoop loop;
                OperationTask::Result result;
                QObject::connect(&task, &OperationTask::finished, &loop, [&](const OperationTask::Result& r) {
                    result = r;
                    loop.quit();
                });
                task.start();
                loop.exec();
                times[0].append(t.nsecsElapsed() / 1e9);
                if (result.outcome != OperationTask::Outcome::Succeeded || result.written.isEmpty()) {
                    std::fprintf(stderr, "encrypt failed: %s\n", qPrintable(result.message));
                    return 1;
                }
                qint64 size = 0;
                for (const QString& f : std::as_const(result.written))
                    size += QFileInfo(f).size();
                writeRatios.append(double(writtenBytes() - writesBefore) / double(size));
            } else {
                QProcess shell;
                shell.setWorkingDirectory(out.path());
                shell.start(u"sh"_qs, { u"-c"_qs, pipelines.at(which - 1) });
                shell.waitForFinished(-1);
                times[which].append(t.nsecsElapsed() / 1e9);
                if (shell.exitCode() != 0 || QDir(out.path()).isEmpty()) {
                    std::fprintf(stderr, "pipeline failed: %s\n", shell.readAllStandardError().constData());
                    return 1;
                }
            }
        }
    }
    const double ours = median(times[0]);
    std::printf("encrypting %.0f MiB end to end against the phone simulator, median of 3 each\n",
        QFileInfo(file).size() / 1048576.0);
    std::printf("  (a) curl -F -o reply.zip && bsdtar -xf reply.zip, then sync of the results: %.3f s\n",
        median(times[1]));
    std::printf("  (b) curl -F | bsdtar -xf -, then sync of the results: %.3f s\n", median(times[2]));
    std::printf("  desktop (OperationTask, results flushed): %.3f s\n", ours);
    std::printf("  ratio desktop/(b): %.2f (budget 1.00): %s\n", ours / median(times[2]),
        verdict(ours <= median(times[2])));
    std::printf("  ratio desktop/(a): %.2f (budget 1.00): %s\n", ours / median(times[1]),
        verdict(ours <= median(times[1])));
    // The desktop side's peak: the reply passes through a bounded buffer, whatever its size.
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    const double memory = usage.ru_maxrss / 1024.0;
    std::printf(
        "  peak memory of the desktop side: %.1f MB (budget 100 MB): %s\n", memory, verdict(memory <= 100));
    const double writes = median(writeRatios);
    std::printf("  disk writes of the desktop side: %.3f x the results' size (budget 1.10): %s\n", writes,
        verdict(writes <= 1.10));
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
    if (args.size() == 3 && args.at(1) == u"encrypt")
        return encrypt(args.at(2));
    std::fprintf(stderr, "usage: bench_transfer upload FILE | unpack ZIP | encrypt FILE\n");
    return 2;
}
