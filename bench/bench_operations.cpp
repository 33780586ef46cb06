// Operations of many files, each line with its budget and a public tool measured in the same run:
//   bench_operations movein DIR    moving 10,000 results in (all names apart, then all of one
//                                  name), and 20,000 of each to show it is linear; vs mv -n + sync
//   bench_operations cancel DIR    Cancel while 10,000 results move in: the outcome is told within
//                                  0.5 s and the result folder is as it was
//   bench_operations encrypt DIR   encrypting 10,000 small files end to end against the phone
//                                  simulator vs curl -F ... | bsdtar -xf -, then one sync
//   bench_operations refused DIR   decrypting 50 files of 1 MiB, 3 of them for someone else:
//                                  the bytes sent in all vs the batch as curl -F sends it
// DIR is a scratch folder on the disk the results would land on; the simulator is
// $VARNEX_PHONE_SIM_BINARY.
#include "VxCrypto.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "operations/DecryptTask.h"
#include "operations/EncryptTask.h"
#include "operations/SafeArchive.h"

#include "BenchSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace {

// The best of several runs: what the code costs, without what other programs took meanwhile.
double best(const QList<double>& v)
{
    return *std::min_element(v.begin(), v.end());
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

// `count` small staged files in `folder`, flushed, so only the moving in is measured.
QStringList stage(const QString& folder, int count)
{
    QDir().mkpath(folder);
    QStringList paths;
    for (int i = 0; i < count; ++i) {
        paths.append(folder + QStringLiteral("/%1.part").arg(i));
        writeFile(paths.last(), "result " + QByteArray::number(i));
    }
    QProcess::execute(u"sync"_qs, {});
    return paths;
}

double landSeconds(const QString& scratch, int count, bool oneName)
{
    QTemporaryDir dir(scratch + u"/movein-XXXXXX");
    const QStringList staged = stage(dir.path() + u"/results/op", count);
    QList<SafeArchive::Landing> landings;
    for (int i = 0; i < count; ++i)
        landings.append(
            { staged.at(i), oneName ? u"report.pdf.vx"_qs : QStringLiteral("report %1.pdf.vx").arg(i) });
    QElapsedTimer clock;
    clock.start();
    const auto landed = SafeArchive::landAll(landings, dir.path() + u"/results");
    const double seconds = clock.nsecsElapsed() / 1e9;
    if (landed.paths.count(QString()) != 0)
        std::fprintf(stderr, "some results did not land\n");
    return seconds;
}

double mvSeconds(const QString& scratch, int count)
{
    QTemporaryDir dir(scratch + u"/mv-XXXXXX");
    stage(dir.path() + u"/op", count);
    QDir().mkpath(dir.path() + u"/results");
    QElapsedTimer clock;
    clock.start();
    QProcess::execute(u"sh"_qs,
        { u"-c"_qs, u"cd \"$1\" && find op -type f -exec mv -n -t results {} + && sync -f results"_qs,
            u"sh"_qs, dir.path() });
    return clock.nsecsElapsed() / 1e9;
}

int moveIn(const QString& scratch)
{
    const double mv
        = best({ mvSeconds(scratch, 10000), mvSeconds(scratch, 10000), mvSeconds(scratch, 10000) });
    std::printf(
        "moving results in, best of 3 (reference: find | mv -n, then sync -f, %.3f s for 10,000)\n", mv);
    for (const bool oneName : { false, true }) {
        const double ten = best({ landSeconds(scratch, 10000, oneName), landSeconds(scratch, 10000, oneName),
            landSeconds(scratch, 10000, oneName) });
        const double twenty = best({ landSeconds(scratch, 20000, oneName),
            landSeconds(scratch, 20000, oneName), landSeconds(scratch, 20000, oneName) });
        const char* what = oneName ? "of one name" : "names apart";
        std::printf("  10,000 %s: %.3f s (budget 2 s): %s; ratio to mv: %.2f\n", what, ten,
            verdict(ten <= 2.0), ten / mv);
        std::printf("  20,000 %s: %.3f s, %.2f x 10,000 (budget 2.5): %s\n", what, twenty, twenty / ten,
            verdict(twenty <= 2.5 * ten));
    }
    return 0;
}

// Encrypts `files` through the task against `url` into `results`; Cancel when `cancelAt`
// says so. The result and the seconds from the cancel (or the start) to the outcome.
std::pair<OperationTask::Result, double> encryptTask(const QStringList& files, const QString& results,
    const QString& url, const std::function<bool(OperationTask::Stage, qint64)>& cancelAt = {})
{
    EncryptTask task(files, u"a@x;"_qs, results, url);
    QEventLoop loop;
    OperationTask::Result result;
    QElapsedTimer clock;
    clock.start();
    bool cancelled = false;
    QObject::connect(&task, &OperationTask::progress, &loop, [&](OperationTask::Stage stage, qint64 done) {
        if (cancelAt && !cancelled && cancelAt(stage, done)) {
            cancelled = true;
            clock.restart();
            task.cancel();
        }
    });
    QObject::connect(&task, &OperationTask::finished, &loop, [&](const OperationTask::Result& r) {
        result = r;
        loop.quit();
    });
    task.start();
    loop.exec();
    return { result, clock.nsecsElapsed() / 1e9 };
}

QStringList smallFiles(const QString& folder, int count)
{
    QDir().mkpath(folder);
    QStringList files;
    for (int i = 0; i < count; ++i) {
        files.append(folder + QStringLiteral("/note-%1.txt").arg(i, 5, 10, QLatin1Char('0')));
        writeFile(files.last(), "a small note, number " + QByteArray::number(i) + '\n');
    }
    return files;
}

int cancel(const QString& scratch)
{
    PhoneSimProcess sim;
    QTemporaryDir dir(scratch + u"/cancel-XXXXXX");
    const QStringList files = smallFiles(dir.path() + u"/files", 10000);
    QList<double> times;
    bool leftAsItWas = true;
    bool toldAsCancel = true;
    double folderGone = 0;
    for (int run = 0; run < 3; ++run) {
        const QString results = dir.path() + QStringLiteral("/results-%1").arg(run);
        QDir().mkpath(results);
        const auto [result, seconds] = encryptTask(files, results, sim.baseUrl() + u"encryptFile/",
            [](OperationTask::Stage stage, qint64) { return stage == OperationTask::Stage::MovingIn; });
        times.append(seconds);
        toldAsCancel = toldAsCancel && result.outcome == OperationTask::Outcome::Cancelled;
        // No result there when it is told; the operation's own folder may take a moment more.
        leftAsItWas = leftAsItWas && QDir(results).entryList(QDir::Files | QDir::Hidden).isEmpty();
        QElapsedTimer gone;
        gone.start();
        while (!QDir(results).isEmpty() && gone.elapsed() < 60000)
            QThread::msleep(10);
        folderGone = std::max(folderGone, gone.nsecsElapsed() / 1e9);
    }
    const double worst = *std::max_element(times.begin(), times.end());
    std::printf("Cancel while 10,000 results move in, 3 runs\n");
    std::printf("  outcome told after %.3f s at most (budget 0.5 s): %s\n", worst, verdict(worst <= 0.5));
    std::printf("  told as a cancel, no result in the folder: %s\n", verdict(toldAsCancel && leftAsItWas));
    std::printf("  the operation's own folder gone %.3f s later at most\n", folderGone);
    return 0;
}

int encrypt(const QString& scratch)
{
    PhoneSimProcess sim;
    QTemporaryDir dir(scratch + u"/encrypt-XXXXXX");
    const QStringList files = smallFiles(dir.path() + u"/files", 10000);
    // curl takes the parts from a file of its own options: 10,000 of them fit no command line.
    QFile config(dir.path() + u"/form.curl");
    config.open(QIODevice::WriteOnly);
    config.write("form = \"emails=a@x;\"\nform = \"type=MacOS(v1.0.0)\"\n");
    for (const QString& f : files)
        config.write("form = \"" + QFile::encodeName(f.section(u'/', -1).section(u'.', 0, 0)) + "=@"
            + QFile::encodeName(f) + "\"\n");
    config.close();
    const QString pipeline = u"curl -s -K \"$1\" \"$2\" | bsdtar -xf - && sync"_qs;
    QList<double> ours, reference;
    for (int run = 0; run < 6; ++run) {
        const QString results = dir.path() + QStringLiteral("/results-%1").arg(run);
        QDir().mkpath(results);
        QProcess::execute(u"sync"_qs, {});
        if (run % 2 == 0) {
            const auto [result, seconds] = encryptTask(files, results, sim.baseUrl() + u"encryptFile/");
            ours.append(seconds);
            if (result.written.size() != files.size()) {
                std::fprintf(stderr, "encrypt failed: %s\n", qPrintable(result.message));
                return 1;
            }
        } else {
            QElapsedTimer clock;
            clock.start();
            QProcess shell;
            shell.setWorkingDirectory(results);
            shell.start(u"sh"_qs,
                { u"-c"_qs, pipeline, u"sh"_qs, config.fileName(), sim.baseUrl() + u"encryptFile/" });
            shell.waitForFinished(-1);
            reference.append(clock.nsecsElapsed() / 1e9);
            if (QDir(results).count() != uint(files.size()) + 2) {
                std::fprintf(stderr, "pipeline failed: %s\n", shell.readAllStandardError().constData());
                return 1;
            }
        }
        QDir(results).removeRecursively();
    }
    const double ratio = median(ours) / median(reference);
    std::printf("encrypting 10,000 small files end to end against the phone simulator, median of 3 each\n");
    std::printf("  curl -F ... | bsdtar -xf -, then sync: %.3f s\n", median(reference));
    std::printf("  desktop (OperationTask, results flushed): %.3f s\n", median(ours));
    std::printf("  ratio desktop/reference: %.2f (budget 1.2): %s\n", ratio, verdict(ratio <= 1.2));
    return 0;
}

int refused(const QString& scratch)
{
    PhoneSimProcess sim;
    QTemporaryDir dir(scratch + u"/refused-XXXXXX");
    const QStringList plain = [&] {
        QStringList files;
        for (int i = 0; i < 50; ++i) {
            files.append(dir.path() + QStringLiteral("/plain/file-%1.bin").arg(i, 2, 10, QLatin1Char('0')));
            QDir().mkpath(dir.path() + u"/plain"_qs);
            QByteArray data(1 << 20, Qt::Uninitialized);
            for (qsizetype b = 0; b < data.size(); ++b)
                data[b] = char((b * 7 + i * 13) % 251);
            writeFile(files.last(), data);
        }
        return files;
    }();
    // 47 for the phone's own user, encrypted by the phone; 3 for someone it cannot read for.
    const QString sealed = dir.path() + u"/sealed";
    QDir().mkpath(sealed);
    const QList<int> foreign { 7, 23, 41 };
    QStringList mine;
    for (int i = 0; i < 50; ++i) {
        if (!foreign.contains(i))
            mine.append(plain.at(i));
    }
    if (encryptTask(mine, sealed, sim.baseUrl() + u"encryptFile/").first.written.size() != mine.size())
        return 1;
    VxCrypto::initialize();
    const VxCrypto::KeyPair someoneElse = VxCrypto::makeKeyPair();
    for (const int i : foreign)
        VxCrypto::encryptFile(plain.at(i), sealed + u'/' + plain.at(i).section(u'/', -1) + u".vx",
            { { u"someone.else@example.com"_qs, someoneElse.publicKey } });
    QList<DecryptTask::Intake> intake;
    QStringList form { u"-s"_qs, u"-o"_qs, u"/dev/null"_qs, u"-F"_qs, u"type=MacOS(v1.0.0)"_qs };
    for (const QString& p : plain) {
        const QString vx = sealed + u'/' + p.section(u'/', -1) + u".vx";
        intake.append({ vx, true });
        form << u"-F"_qs << vx.section(u'/', -1).chopped(3) + u"=@" + vx;
    }
    // The batch as curl sends it: the phone refuses it, and says how long it was.
    sim.clearRequests();
    QProcess::execute(u"curl"_qs, form << sim.baseUrl() + u"decryptFile/");
    const qint64 batch = sim.requests().at(0)[u"headers"_qs][u"content-length"_qs].toString().toLongLong();
    sim.clearRequests();

    const QString results = dir.path() + u"/results";
    QDir().mkpath(results);
    DecryptTask task(intake, results, sim.baseUrl() + u"decryptFile/");
    QEventLoop loop;
    OperationTask::Result result;
    QObject::connect(&task, &OperationTask::finished, &loop, [&](const OperationTask::Result& r) {
        result = r;
        loop.quit();
    });
    QElapsedTimer clock;
    clock.start();
    task.start();
    loop.exec();
    const double seconds = clock.nsecsElapsed() / 1e9;
    const QJsonArray requests = sim.requests();
    qint64 sent = 0;
    for (const QJsonValue& r : requests)
        sent += r[u"headers"_qs][u"content-length"_qs].toString().toLongLong();
    const double ratio = double(sent) / double(batch);
    std::printf("decrypting 50 files of 1 MiB, 3 of them for someone else\n");
    std::printf("  the batch as curl -F sends it: %lld bytes\n", batch);
    std::printf(
        "  desktop: %lld requests, %lld bytes in all, %.3f s\n", qlonglong(requests.size()), sent, seconds);
    std::printf("  bytes sent / the batch: %.2f (budget 3.00): %s\n", ratio, verdict(ratio <= 3.0));
    std::printf("  results landed: %lld of 47, refused named: %lld of 3: %s\n",
        qlonglong(result.written.size()),
        qlonglong(std::count_if(
            result.files.begin(), result.files.end(), [](const auto& f) { return !f.problem.isEmpty(); })),
        verdict(result.written.size() == 47));
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(u"1.0.0"_qs);
    installTranslations(app);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == u"movein")
        return moveIn(args.at(2));
    if (args.size() == 3 && args.at(1) == u"cancel")
        return cancel(args.at(2));
    if (args.size() == 3 && args.at(1) == u"encrypt")
        return encrypt(args.at(2));
    if (args.size() == 3 && args.at(1) == u"refused")
        return refused(args.at(2));
    std::fprintf(stderr, "usage: bench_operations movein|cancel|encrypt|refused SCRATCH\n");
    return 2;
}
