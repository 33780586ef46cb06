// Pairing latency while one host floods the listener, against curl posting the same pairing
// message in the same run. The listener runs in a child process (this program with "serve"),
// so its memory is measured alone. The attacker binds its sockets to 127.0.0.2 and keeps 256
// connections that each send one header byte a second, plus 1000 idle ones, reopening any the
// listener closes; the phone posts from 127.0.0.1.
#include "app/Session.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSettings>
#include <QSocketNotifier>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

const QByteArray body = QByteArrayLiteral(
    R"({"ip":"127.0.0.1","mobileDeviceName":"Bench phone","email":"ann@example.com","baseURL":"http://127.0.0.1:8080/"})");

int connectFrom(const char* source, quint16 port, bool blocking)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | (blocking ? 0 : SOCK_NONBLOCK), 0);
    if (fd < 0)
        return -1;
    sockaddr_in from {};
    from.sin_family = AF_INET;
    inet_pton(AF_INET, source, &from.sin_addr);
    sockaddr_in to {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof(from)) != 0
        || (::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof(to)) != 0 && errno != EINPROGRESS)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// One pairing message from 127.0.0.1; seconds until the answer's status line, or -1.
double pairOnce(quint16 port, int* status)
{
    QElapsedTimer timer;
    timer.start();
    const int fd = connectFrom("127.0.0.1", port, true);
    if (fd < 0)
        return -1;
    timeval limit { 10, 0 };
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    const QByteArray request
        = "POST /myInformation HTTP/1.1\r\nHost: desktop\r\nContent-Type: application/json\r\n"
          "Content-Length: "
        + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    ::send(fd, request.constData(), size_t(request.size()), MSG_NOSIGNAL);
    char answer[256] = {};
    const ssize_t got = ::recv(fd, answer, sizeof(answer) - 1, 0);
    const double seconds = timer.nsecsElapsed() / 1e9;
    ::close(fd);
    *status = got > 12 ? QByteArray(answer + 9, 3).toInt() : 0;
    return got > 0 ? seconds : -1;
}

double curlOnce(quint16 port, int* status)
{
    QProcess curl;
    curl.start(QStringLiteral("curl"),
        { QStringLiteral("-s"), QStringLiteral("-o"), QStringLiteral("/dev/null"), QStringLiteral("-m"),
            QStringLiteral("10"), QStringLiteral("--interface"), QStringLiteral("127.0.0.1"),
            QStringLiteral("-w"), QStringLiteral("%{http_code} %{time_total}"), QStringLiteral("-H"),
            QStringLiteral("Content-Type: application/json"), QStringLiteral("--data-binary"),
            QString::fromUtf8(body), QStringLiteral("http://127.0.0.1:%1/myInformation").arg(port) });
    if (!curl.waitForFinished(15000))
        return -1;
    const QList<QByteArray> out = curl.readAllStandardOutput().split(' ');
    *status = out.value(0).toInt();
    return out.size() == 2 ? out.at(1).toDouble() : -1;
}

struct Samples
{
    QList<double> ours;
    QList<double> curl;
    int failures = 0;
};

// Five pairings each way, alternating, keeping within the listener's 10-per-10-seconds rule.
Samples measure(quint16 port)
{
    Samples samples;
    for (int i = 0; i < 5; ++i) {
        int status = 0;
        const double ours = pairOnce(port, &status);
        (ours >= 0 && status == 200) ? samples.ours.append(ours) : void(++samples.failures);
        const double viaCurl = curlOnce(port, &status);
        (viaCurl >= 0 && status == 200) ? samples.curl.append(viaCurl) : void(++samples.failures);
    }
    return samples;
}

double median(QList<double> values)
{
    if (values.isEmpty())
        return -1;
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

double maximum(const QList<double>& values)
{
    return values.isEmpty() ? -1 : *std::max_element(values.begin(), values.end());
}

qint64 statusKiB(qint64 pid, const char* field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(qstrlen(field))).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

struct Attack
{
    std::atomic<bool> stop { false };
    std::atomic<long> opened { 0 };
    std::atomic<long> closedByListener { 0 };
    std::thread thread;

    void run(quint16 port)
    {
        constexpr int slowCount = 256;
        constexpr int idleCount = 1000;
        std::vector<int> slow(slowCount, -1), idle(idleCount, -1);
        const QByteArray head = "POST /myInformation HTTP/1.1\r\nX-Slow: ";
        std::vector<int> sent(slowCount, 0);
        auto reopen = [&](int& fd) {
            if (fd >= 0) {
                ::close(fd);
                ++closedByListener;
            }
            fd = connectFrom("127.0.0.2", port, false);
            if (fd >= 0)
                ++opened;
        };
        for (int& fd : idle)
            reopen(fd);
        while (!stop) {
            for (int i = 0; i < slowCount; ++i) {
                if (slow[i] < 0) {
                    reopen(slow[i]);
                    sent[i] = 0;
                    continue;
                }
                // One byte a second: the head, then an endless header value.
                const char byte = sent[i] < head.size() ? head.at(sent[i]) : 'a';
                if (::send(slow[i], &byte, 1, MSG_NOSIGNAL | MSG_DONTWAIT) == 1) {
                    ++sent[i];
                } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOTCONN) {
                    reopen(slow[i]);
                    sent[i] = 0;
                }
            }
            for (int& fd : idle) {
                char probe;
                const ssize_t got = fd < 0 ? 0 : ::recv(fd, &probe, 1, MSG_DONTWAIT);
                if (fd < 0 || got == 0
                    || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOTCONN))
                    reopen(fd);
            }
            for (int waited = 0; waited < 10 && !stop; ++waited)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        for (int fd : slow)
            if (fd >= 0)
                ::close(fd);
        for (int fd : idle)
            if (fd >= 0)
                ::close(fd);
    }
};

int serve(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    Session session;
    // Whatever the settings trust; the bench's phone answers no pings.
    PhoneConnection phone(session, [](auto, QObject*, auto) {});
    MobileDeviceListener listener(phone, 0);
    if (!listener.start())
        return 1;
    std::printf("port %u\n", unsigned(listener.port()));
    std::fflush(stdout);
    // Runs until the parent closes our standard input.
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
        char buffer[64];
        if (::read(STDIN_FILENO, buffer, sizeof(buffer)) <= 0)
            app.quit();
    });
    return app.exec();
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "serve") == 0)
        return serve(argc, argv);
    QCoreApplication app(argc, argv);
    rlimit files {};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max; // the attacker alone holds 1,256 sockets
    ::setrlimit(RLIMIT_NOFILE, &files);

    QTemporaryDir home; // the listener's settings stay out of the user's
    QProcess listener;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), home.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.path() + u"/.config");
    // The phone is the trusted one, on this computer's loopback, as the simulator is for scripts/run.
    environment.insert(QStringLiteral("VARNEX_ALLOW_LOOPBACK_PHONE"), QStringLiteral("1"));
    {
        QSettings trusted(home.path() + u"/.config/Varnex/Varnex Desktop.conf", QSettings::IniFormat);
        trusted.setValue(QStringLiteral("trustedPhone/address"), QStringLiteral("127.0.0.1"));
        trusted.setValue(QStringLiteral("trustedPhone/email"), QStringLiteral("ann@example.com"));
        trusted.setValue(QStringLiteral("trustedPhone/name"), QStringLiteral("Bench phone"));
    }
    listener.setProcessEnvironment(environment);
    listener.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    listener.start(QCoreApplication::applicationFilePath(), { QStringLiteral("serve") });
    if (!listener.waitForReadyRead(10000)) {
        std::fprintf(stderr, "the listener did not start\n");
        return 1;
    }
    QByteArray line;
    while (!line.contains('\n') && listener.waitForReadyRead(5000))
        line += listener.readAllStandardOutput();
    line += listener.readAllStandardOutput();
    const quint16 port = quint16(line.mid(5).trimmed().toUInt());
    const qint64 pid = listener.processId();

    const Samples calm = measure(port);
    const qint64 rssBefore = statusKiB(pid, "VmRSS:");

    Attack attack;
    attack.thread = std::thread([&] { attack.run(port); });
    // Let the flood settle and the pairing rule's 10-second window pass; the slow heads are
    // dropped at their 5-second deadline meanwhile and reopened by the attacker.
    std::this_thread::sleep_for(std::chrono::seconds(11));
    const Samples flooded = measure(port);
    const qint64 rssAfter = statusKiB(pid, "VmRSS:");
    const qint64 rssPeak = statusKiB(pid, "VmHWM:");
    attack.stop = true;
    attack.thread.join();

    listener.closeWriteChannel();
    listener.waitForFinished(5000);

    std::printf("pairing latency, median of 5 (max), seconds\n");
    std::printf("  no attack:    listener %.4f (%.4f)   curl %.4f (%.4f)\n", median(calm.ours),
        maximum(calm.ours), median(calm.curl), maximum(calm.curl));
    std::printf("  under attack: listener %.4f (%.4f)   curl %.4f (%.4f)\n", median(flooded.ours),
        maximum(flooded.ours), median(flooded.curl), maximum(flooded.curl));
    std::printf(
        "  failed or non-200 answers: %d without, %d under attack\n", calm.failures, flooded.failures);
    std::printf("attacker: %ld connections opened, %ld closed by the listener\n", attack.opened.load(),
        attack.closedByListener.load());
    std::printf(
        "listener memory: RSS %lld KiB before the attack, %lld KiB under it (peak %lld KiB): %+lld KiB\n",
        rssBefore, rssAfter, rssPeak, rssAfter - rssBefore);
    const bool fast = flooded.failures == 0 && maximum(flooded.ours) < 1.0 && maximum(flooded.curl) < 1.0;
    const bool lean = rssAfter - rssBefore < 20 * 1024;
    std::printf("bar (answered within 1 s under attack, memory grows < 20 MB): %s\n",
        fast && lean ? "met" : "NOT met");
    return fast && lean ? 0 : 2;
}
