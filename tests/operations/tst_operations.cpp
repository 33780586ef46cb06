#include "VxCrypto.h"
#include "ZipWriter.h"
#include "app/Session.h"
#include "app/Translations.h"
#include "common/LogCapture.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "operations/DecryptTask.h"
#include "operations/EncryptTask.h"
#include "operations/MultipartUpload.h"
#include "operations/OperationFolder.h"
#include "operations/OperationRun.h"
#include "operations/SafeArchive.h"
#include "operations/TransferRate.h"
#include "operations/UniqueNames.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace TestFiles;
using Outcome = OperationTask::Outcome;
using Stage = OperationTask::Stage;

// Every name and content hash under a folder: to prove a folder is exactly as it was.
QStringList snapshot(const QString& folder)
{
    QStringList result;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QByteArray hash = QCryptographicHash::hash(read(path), QCryptographicHash::Sha1);
        result.append(path.mid(folder.size()) + u' ' + QString::fromLatin1(hash.toHex()));
    }
    result.sort();
    return result;
}

QStringList entriesIn(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

mode_t modeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
}

// A file, then folders up to one entry too many: every entry counts, and no flushing of ten
// thousand files makes a test slow.
bool writeOneEntryTooMany(const QString& zip)
{
    QList<ZipWriter::Entry> entries { { u"fine.txt.vx"_qs, {}, "fine" } };
    for (int i = 0; i < SafeArchive::maxEntries; ++i)
        entries.append({ u"d%1/"_qs.arg(i), {}, {} });
    return ZipWriter::write(zip, entries);
}

OperationTask::Result runTask(OperationTask& task, int timeoutMs = 20000)
{
    QSignalSpy finished(&task, &OperationTask::finished);
    task.start();
    if (!finished.wait(timeoutMs))
        return { Outcome::Failed, u"timed out"_qs, {}, {} };
    return finished.at(0).at(0).value<OperationTask::Result>();
}

OperationRun::Outcome finish(OperationRun* run)
{
    std::unique_ptr<OperationRun> owned(run);
    QSignalSpy finished(run, &OperationRun::finished);
    if (!run->isRunning())
        run->start();
    if (!finished.wait(20000))
        return { OperationTask::Outcome::Failed, u"timed out"_qs };
    return finished.at(0).at(0).value<OperationRun::Outcome>();
}

// What the user is told: the summary line, the dialog's title and text.
QString told(const OperationRun::Outcome& outcome)
{
    return QStringList { outcome.summary, outcome.dialogTitle, outcome.dialogText }.join(u" | ");
}

// A phone's fault on every path, with one setting.
QJsonObject onEveryPath(const char* key, const QJsonValue& value)
{
    return { { u"path"_qs, u"*"_qs }, { QLatin1String(key), value } };
}

// Free space as the task finds it: each look, beyond the reserve, in turn (the last repeated).
void playFreeSpace(const QList<qint64>& free)
{
    auto looks = std::make_shared<int>(0);
    OperationTask::setFreeSpaceProbeForTesting([free, looks](const QString&) {
        return OperationTask::reserveBytes + free.at(qMin<qsizetype>((*looks)++, free.size() - 1));
    });
}

using Samples = QList<QPair<qint64, qint64>>;

} // namespace

// The operations as a command line would drive them, with no widget: the run and its task, the
// archive reader, names and folders, against the phone simulator and the folders on disk.
class TestOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void uniqueNames_data();
    void uniqueNames();
    void archivesThatFailLeaveNoTrace_data();
    void archivesThatFailLeaveNoTrace();
    void cleanupRemovesOnlyMarkedUnlockedFolders();
    void namesAResultMayCarry_data();
    void namesAResultMayCarry();
    void landingIsExclusiveAndLinear_data();
    void landingIsExclusiveAndLinear();
    void onlyRegularFilesAreSent();
    void replies_data();
    void replies();
    void encryptThenDecrypt_data();
    void encryptThenDecrypt();
    void someFilesCannotBeDone_data();
    void someFilesCannotBeDone();
    void endingWithoutResults_data();
    void endingWithoutResults();
    void transferFigures_data();
    void transferFigures();
    void transferBurstsDoNotMakeItJump();

private:
    QTemporaryDir m_dir;
    QString m_encrypted;
    QString m_decrypted;
    QString m_files;
    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<Session> m_session; // connected to the simulator
    QString url(const char* path) const { return m_sim->baseUrl() + QLatin1String(path + 1); }
};

void TestOperations::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestOperations::init()
{
    m_encrypted = m_dir.filePath(u"EncryptedFiles"_qs);
    m_decrypted = m_dir.filePath(u"DecryptedFiles"_qs);
    m_files = m_dir.filePath(u"files"_qs);
    for (const QString& f : { m_encrypted, m_decrypted, m_files }) {
        QDir(f).removeRecursively();
        QDir().mkpath(f);
    }
    m_sim->clearFaults();
    m_sim->clearRequests();
    OperationTask::setFreeSpaceProbeForTesting({});
    SafeArchive::setLinkFunctionsForTesting(nullptr);
    m_session = std::make_unique<Session>(m_sim->port());
    m_session->setPhoneIPAddress(u"127.0.0.1"_qs);
    m_session->setPhoneConnected(true);
}

void TestOperations::uniqueNames_data()
{
    QTest::addColumn<QStringList>("existing"); // in EncryptedFiles
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("sent"); // the name it is sent under
    const auto row = [](const char* tag, const QStringList& existing, const QString& name,
                         const QString& sent) { QTest::newRow(tag) << existing << name << sent; };
    row("only the .vx twin counts", { u"a.txt"_qs }, u"a.txt"_qs, u"a.txt"_qs);
    row("twice taken", { u"report.pdf.vx"_qs, u"report (1).pdf.vx"_qs }, u"report.pdf"_qs,
        u"report (2).pdf"_qs);
    row("a gap is filled", { u"a.txt.vx"_qs, u"a (2).txt.vx"_qs }, u"a.txt"_qs, u"a (1).txt"_qs);
    row("no extension", { u"README.vx"_qs }, u"README"_qs, u"README (1)"_qs);
    row("two extensions", { u"x.tar.gz.vx"_qs }, u"x.tar.gz"_qs, u"x.tar (1).gz"_qs);
    // At the file system's limit the base gives way to the counter, ".vx" still to come.
    const QString l = QString(248, u'l');
    row("252 bytes with a counter", { l + u".txt.vx" }, l + u".txt", l.left(244) + u" (1).txt");
}

void TestOperations::uniqueNames()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, name);
    for (const QString& e : existing)
        write(m_encrypted + u'/' + e, "x");
    QTEST(UniqueNames::uniqueEncryptedName(m_encrypted, name), "sent");
}

// The archives a phone can send whole are refused end to end in oddReplies; these are the
// ones only a file on disk can play.
void TestOperations::archivesThatFailLeaveNoTrace_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<SafeArchive::Failure>("failure");
    QTest::newRow("escape through a folder") << "escape" << SafeArchive::Failure::BadName;
    QTest::newRow("bomb") << "bomb" << SafeArchive::Failure::NoSpace;
    QTest::newRow("truncated") << "truncated" << SafeArchive::Failure::Broken;
    QTest::newRow("cancelled") << "cancelled" << SafeArchive::Failure::Cancelled;
    QTest::newRow("one entry too many") << "tooMany" << SafeArchive::Failure::TooManyEntries;
}

void TestOperations::archivesThatFailLeaveNoTrace()
{
    QFETCH(QString, kind);
    const QString zip = m_dir.filePath(u"hostile.zip"_qs);
    QFile::remove(zip);
    const ZipWriter::Entry good { u"fine.txt.vx"_qs, {}, "fine" };
    if (kind == u"escape") // a folder entry is skipped, yet ".." in one is still an escape
        QVERIFY(ZipWriter::write(zip, { good, { u"dir/../../x.txt"_qs, {}, "x" } }));
    else if (kind == u"truncated") {
        QVERIFY(ZipWriter::write(zip, { good, { u"big.bin"_qs, {}, randomBytes(200000, 1) } }));
        QVERIFY(QFile::resize(zip, QFileInfo(zip).size() - 120000));
    } else if (kind == u"tooMany")
        QVERIFY(writeOneEntryTooMany(zip));
    else
        QVERIFY(ZipWriter::write(zip, { good, { u"bomb.bin"_qs, {}, {}, 50LL * 1024 * 1024 } }, true));
    const QString staging = m_encrypted + u"/OP/unpack";
    QDir().mkpath(staging);
    const QStringList before = snapshot(m_encrypted);
    // Cancel arrives while the big entry is being written: it stops there, not at its end.
    std::atomic<bool> cancel { false };
    int reportsAfterCancel = 0;
    const auto onProgress = [&](qint64 done, qint64) {
        if (cancel)
            ++reportsAfterCancel;
        else if (kind == u"cancelled" && done > (1 << 20))
            cancel = true;
    };
    const qint64 budget = kind == u"bomb" ? 10LL << 20 : 1LL << 40;
    const auto result = SafeArchive::extract(zip, staging, budget, onProgress, &cancel);
    QVERIFY(!result.ok);
    QTEST(result.failure, "failure");
    QVERIFY2(reportsAfterCancel <= 1, qPrintable(QString::number(reportsAfterCancel)));
    QCOMPARE(snapshot(m_encrypted), before);
}

void TestOperations::cleanupRemovesOnlyMarkedUnlockedFolders()
{
    // Phones name files with upper-case UUIDs too: such names are the user's data.
    const QString userZip = m_decrypted + u"/3F2504E0-4F89-11D3-9A0C-0305E82C3301.zip";
    const QString userFolder = m_decrypted + u"/6B29FC40-CA47-1067-B31D-00DD010662DA";
    write(userZip, "user zip");
    QDir().mkpath(userFolder);
    write(userFolder + u"/notes.txt", "notes");
    // A running operation, of this program or of a second one: its folder is locked.
    auto live = OperationFolder::create(m_decrypted, OperationTask::makeOperationId());
    QVERIFY(live);
    QCOMPARE(modeOf(live->path()), mode_t(0700));
    const QString marker = u'/' + QLatin1String(OperationFolder::markerName);
    // What an interrupted run leaves: the same marker, held by nobody.
    const QString leftover = m_decrypted + u'/' + OperationTask::makeOperationId();
    QDir().mkpath(leftover + u"/unpack");
    write(leftover + u"/unpack/0.part", "half a result");
    QVERIFY(QFile::copy(live->path() + marker, leftover + marker));
    // A marker of that name that we did not write, and a link to a marked folder elsewhere.
    QDir().mkpath(m_decrypted + u"/Mine"_qs);
    write(m_decrypted + u"/Mine"_qs + marker, "my own notes");
    const QString outside = m_dir.filePath(u"outside"_qs);
    QDir().mkpath(outside);
    QVERIFY(QFile::copy(live->path() + marker, outside + marker));
    QVERIFY(QFile::link(outside, m_decrypted + u"/linked"_qs));

    QCOMPARE(OperationFolder::removeLeftovers(m_decrypted), 1);
    QVERIFY(!QFileInfo::exists(leftover));
    QVERIFY(QFileInfo::exists(live->path() + marker));
    QCOMPARE(read(userZip), QByteArray("user zip"));
    QCOMPARE(read(userFolder + u"/notes.txt"), QByteArray("notes"));
    QVERIFY(QFileInfo::exists(m_decrypted + u"/Mine"_qs + marker));
    QVERIFY(QFileInfo::exists(outside + marker));
    // Once the operation ends, its folder goes with it.
    const QString livePath = live->path();
    live.reset();
    QVERIFY(!QFileInfo::exists(livePath));
    QFile::remove(m_decrypted + u"/linked"_qs);
}

void TestOperations::namesAResultMayCarry_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("safe");
    QTest::addColumn<QString>("shown"); // in a dialog; empty: the name itself
    const QString elided = QString(29, u'a') + QChar(0x2026) + QString(25, u'a') + u".txt";
    const QString e29 = QString(29, QChar(0xe9));
    const auto faces
        = [](int n) { return QString::fromUcs4(QList<char32_t>(n, U'\U0001F600').constData(), n); };
    QTest::newRow("plain") << "report.pdf.vx" << true << QString();
    QTest::newRow("quotes and spaces") << "say \"hi\" now.txt" << true << QString();
    QTest::newRow("255 bytes") << QString(251, u'a') + u".txt" << true << elided;
    QTest::newRow("256 bytes") << QString(252, u'a') + u".txt" << false << elided;
    QTest::newRow("127 two-byte letters") << QString(127, QChar(0xe9)) << true << e29 + QChar(0x2026) + e29;
    QTest::newRow("128 two-byte letters") << QString(128, QChar(0xe9)) << false << e29 + QChar(0x2026) + e29;
    QTest::newRow("80 faces, cut between pairs")
        << faces(80) << false << faces(29) + QChar(0x2026) + faces(29);
    QTest::newRow("control character") << "bell\x07.txt" << false << u"bell\uFFFD.txt"_qs;
    QTest::newRow("line feed") << "two\nlines.txt" << false << u"two\uFFFDlines.txt"_qs;
    QTest::newRow("C1 control") << u"x\u0085.txt"_qs << false << u"x\uFFFD.txt"_qs;
    QTest::newRow("right-to-left override") << u"photo\u202Egpj.exe"_qs << false << u"photo\uFFFDgpj.exe"_qs;
    QTest::newRow("isolate") << u"a\u2067b.txt"_qs << false << u"a\uFFFDb.txt"_qs;
    QTest::newRow("line separator") << u"a\u2028b.txt"_qs << false << u"a\uFFFDb.txt"_qs;
    QTest::newRow("zero-width space") << u"a\u200Bb.txt"_qs << false << u"a\uFFFDb.txt"_qs;
    QTest::newRow("byte order mark") << u"\uFEFFa.txt"_qs << false << u"\uFFFDa.txt"_qs;
    // A leading dot passes only on a name the desktop sent ("+" here): the user's own dot-file.
    QTest::newRow("leading dot") << ".bashrc.vx" << false << QString();
    QTest::newRow("leading dot, as sent") << "+.bashrc.vx" << true << QString();
    QTest::newRow("dot dot, as sent") << "+.." << false << QString();
    QTest::newRow("control character, as sent") << "+a\tb.vx" << false << u"a\uFFFDb.vx"_qs;
    QTest::newRow("slash") << "a/b.txt" << false << QString();
    QTest::newRow("backslash") << "a\\b.txt" << false << QString();
    QTest::newRow("empty") << "" << false << QString();
}

void TestOperations::namesAResultMayCarry()
{
    QFETCH(QString, name);
    QFETCH(QString, shown);
    const bool sent = name.startsWith(u'+');
    if (sent)
        name.remove(0, 1);
    QTEST(SafeArchive::isSafeEntryName(name, sent ? QSet<QString> { name } : QSet<QString>()), "safe");
    QCOMPARE(SafeArchive::printableName(name), shown.isEmpty() ? name : shown);
}

void TestOperations::landingIsExclusiveAndLinear_data()
{
    QTest::addColumn<int>("linkError"); // 0: real hard links
    QTest::addColumn<int>("renameError"); // 0: the rename that never replaces works
    QTest::addColumn<QString>("second"); // the second result's name
    QTest::newRow("hard links") << 0 << 0 << "b.txt.vx";
    QTest::newRow("EPERM (FAT, exFAT)") << EPERM << 0 << "b.txt.vx";
    QTest::newRow("EOPNOTSUPP") << EOPNOTSUPP << 0 << "b.txt.vx";
    QTest::newRow("EMLINK") << EMLINK << 0 << "b.txt.vx";
    // Old kernels, network and FUSE file systems: an exclusive copy is left.
    QTest::newRow("no no-replace rename either (EINVAL)") << EPERM << EINVAL << "b.txt.vx";
    QTest::newRow("no no-replace rename either (ENOSYS)") << EPERM << ENOSYS << "b.txt.vx";
    QTest::newRow("second name too long") << 0 << 0 << QString(300, u'n') + u".vx";
}

void TestOperations::landingIsExclusiveAndLinear()
{
    QFETCH(int, linkError);
    QFETCH(int, renameError);
    QFETCH(QString, second);
    static int errors[2];
    errors[0] = linkError;
    errors[1] = renameError;
    using Call = int (*)(const char*, const char*);
    const Call failingLink = [](const char*, const char*) {
        errno = errors[0];
        return -1;
    };
    const Call failingRename = [](const char*, const char*) {
        errno = errors[1];
        return -1;
    };
    SafeArchive::setLinkFunctionsForTesting(
        linkError ? failingLink : nullptr, renameError ? failingRename : nullptr);
    const QString staging = m_encrypted + u"/OP"_qs;
    QDir().mkpath(staging);
    write(staging + u"/0.part"_qs, "new a");
    QVERIFY(QFile::setPermissions(staging + u"/0.part"_qs, QFile::ReadOwner | QFile::WriteOwner));
    write(staging + u"/1.part"_qs, "new b");
    write(m_encrypted + u"/a.txt.vx"_qs, "old a");
    // Two more of the first name, around a gap: the counting goes on from the last name taken,
    // with the names the rule gives when each starts again at 1.
    write(m_encrypted + u"/a.txt (2).vx"_qs, "old a2");
    write(staging + u"/2.part"_qs, "new a, again");
    write(staging + u"/3.part"_qs, "new a, third");
    const auto landed = SafeArchive::landAll(
        { { staging + u"/0.part"_qs, u"a.txt.vx"_qs }, { staging + u"/1.part"_qs, second },
            { staging + u"/2.part"_qs, u"a.txt.vx"_qs }, { staging + u"/3.part"_qs, u"a.txt.vx"_qs } },
        m_encrypted);
    QCOMPARE(read(m_encrypted + u"/a.txt.vx"_qs), QByteArray("old a"));
    const QString b = second.size() > 255 ? QString() : m_encrypted + u"/b.txt.vx"; // each lands on its own
    QCOMPARE(landed.paths,
        QStringList({ m_encrypted + u"/a.txt (1).vx", b, m_encrypted + u"/a.txt (3).vx",
            m_encrypted + u"/a.txt (4).vx" }));
    QCOMPARE(
        landed.errors.at(1), b.isEmpty() ? QString::fromLocal8Bit(std::strerror(ENAMETOOLONG)) : QString());
    QCOMPARE(read(m_encrypted + u"/a.txt (1).vx"_qs), QByteArray("new a"));
    QCOMPARE(read(m_encrypted + u"/a.txt (4).vx"_qs), QByteArray("new a, third"));
    QVERIFY(b.isEmpty() || read(b) == "new b");
    QCOMPARE(modeOf(m_encrypted + u"/a.txt (1).vx"_qs), mode_t(0600)); // a copy keeps it private
}

void TestOperations::onlyRegularFilesAreSent()
{
    const QString fifo = m_files + u"/pipe.txt"_qs;
    QCOMPARE(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QDir().mkpath(m_files + u"/folder.txt"_qs);
    for (const QString& path : QStringList { fifo, m_files + u"/folder.txt", u"/dev/zero"_qs }) {
        // A FIFO without a writer would block the open itself; a device never ends.
        QElapsedTimer clock;
        clock.start();
        std::atomic<bool> cancel { false };
        const auto outcome = MultipartUpload::send(url("/encryptFile/"),
            { { u"f"_qs, {}, path, u"f"_qs, u"text/plain"_qs } }, m_dir.filePath(u"reply.zip"_qs), {},
            cancel);
        QFile::remove(m_dir.filePath(u"reply.zip"_qs));
        QCOMPARE(int(outcome.problem), int(MultipartUpload::Outcome::Problem::FileUnreadable));
        QVERIFY(clock.elapsed() < 5000);
    }
    // (A run leaves such a file out before sending: someFilesCannotBeDone.)

    // A file put in another's place after the request was made is not sent for it.
    write(m_files + u"/swapped.txt"_qs, "first");
    write(m_files + u"/other.txt"_qs, "other");
    std::atomic<bool> cancel { false };
    MultipartUpload::Transfer swapped(url("/encryptFile/"),
        { { u"f"_qs, {}, m_files + u"/swapped.txt", u"f"_qs, u"text/plain"_qs } }, {}, cancel);
    QVERIFY(QFile::remove(m_files + u"/swapped.txt"_qs));
    QVERIFY(QFile::rename(m_files + u"/other.txt"_qs, m_files + u"/swapped.txt"_qs));
    swapped.status();
    QCOMPARE(int(swapped.finish(false).problem), int(MultipartUpload::Outcome::Problem::FileChanged));

    // Files are open only while they are read: a batch far larger than the descriptors this
    // process may hold goes whole.
    QStringList many;
    for (int i = 0; i < 600; ++i) {
        many.append(m_files + u"/many-%1.txt"_qs.arg(i));
        write(many.last(), "x");
    }
    rlimit saved {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit few = saved;
    few.rlim_cur = 256;
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto all = finish(OperationRun::encrypt(*m_session, m_encrypted, many, u"a@x;"_qs, 1));
    ::setrlimit(RLIMIT_NOFILE, &saved);
    QCOMPARE(all.results.size(), 600);
}

namespace {

// Writes a zip by hand, for what no installed writer makes: xz and zstd entries, and names
// without the UTF-8 flag. Run by python3 in a folder holding t.txt.vx; writes out.zip.
const char* handmadeZip = R"(
import lzma, struct, subprocess, sys, zlib
data = open("t.txt.vx", "rb").read()
kind = sys.argv[1]
name, flags, method, packed = b"t.txt.vx", 0, 0, data
if kind == "xz":
    method, packed = 95, lzma.compress(data, format=lzma.FORMAT_XZ)
elif kind == "zstd":
    method, packed = 93, subprocess.run(["zstd", "-q", "-c"], input=data, capture_output=True, check=True).stdout
elif kind == "cp437":
    name = b"caf\x82 \x9a.txt.vx"
elif kind == "lyingFlag":
    name, flags = b"caf\x82.txt.vx", 0x800
crc = zlib.crc32(data)
local = struct.pack("<IHHHHHIIIHH", 0x04034B50, 63, flags, method, 0, 0x21, crc, len(packed), len(data), len(name), 0) + name
central = struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 0x31E, 63, flags, method, 0, 0x21, crc, len(packed),
                      len(data), len(name), 0, 0, 0, 0, 0o100644 << 16, 0) + name
body = local + packed
end = struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, 1, 1, len(central), len(body), 0)
open("out.zip", "wb").write(body + central + end)
)";

// Python's zipfile writing to a stream it cannot seek in: sizes follow the data, zip64 forced.
const char* streamedZip64 = R"(
import io, sys, zipfile
class Pipe(io.RawIOBase):
    def __init__(self, f): self.f = f
    def writable(self): return True
    def write(self, b): return self.f.write(b)
method = getattr(zipfile, "ZIP_" + sys.argv[1])
with open("out.zip", "wb") as f, zipfile.ZipFile(Pipe(f), "w", method) as z:
    for n in ("r.bin.vx", "t.txt.vx"):
        with z.open(n, "w", force_zip64=True) as e:
            e.write(open(n, "rb").read())
)";

} // namespace

// Replies of every kind, and the room they may take: what the simulator sends whole when told
// (true, hostile or broken), and the zips every writer a phone may use makes of r.bin.vx and
// t.txt.vx. Refused whole with their reason, or taken without what no result may be.
void TestOperations::replies_data()
{
    QTest::addColumn<QString>("reply"); // a simulator's archive, or a writer's command run by sh in a
                                        // folder holding r.bin.vx, t.txt.vx and sub/; empty: the true reply
    QTest::addColumn<QList<qint64>>(
        "free"); // each look at the free space, beyond the reserve; none: the disk's
    QTest::addColumn<QStringList>("landed"); // beside an earlier result; empty: refused, with `refusal`
    QTest::addColumn<bool>("keptWhole"); // read from the disk, not in one pass
    QTest::addColumn<QString>("refusal"); // the dialog's text (%1: the result folder)
    const auto sim = [](const char* tag, const char* kind, const QString& refusal, QList<qint64> free = {}) {
        QTest::newRow(tag) << QString::fromLatin1(kind) << free
                           << (refusal.isEmpty() ? QStringList { u"good.txt.vx"_qs } : QStringList()) << false
                           << refusal;
    };
    const QString notSaved = u"The phone's reply could not be saved: "_qs;
    const auto writer = [&notSaved](const QString& tag, const QString& command, const QStringList& landed,
                            bool keptWhole = false, const QString& reason = {}) {
        QTest::newRow(qPrintable(tag)) << command << QList<qint64>() << landed << keptWhole
                                       << (reason.isEmpty() ? reason : notSaved + reason + u'.');
    };
    const QString damaged = notSaved + u"it is damaged or not a zip archive."_qs;
    const QString badName = notSaved + u"it holds a file whose name cannot be used (%1)."_qs;
    const QString noRoom = u"There is not enough free space in %1."_qs;
    const QString longName = QString(29, u'n') + QChar(0x2026) + QString(22, u'n') + u".txt.vx";
    sim("escape", "escape", badName.arg(u"../escape.txt"_qs));
    sim("absolute", "absolute", badName.arg(u"/tmp/varnex-absolute.txt"_qs));
    sim("symlink", "symlink", notSaved + u"it holds a link or a special file (link.vx)."_qs);
    sim("long name", "longName", badName.arg(longName));
    sim("control character", "controlChar", badName.arg(u"bell\uFFFD.txt.vx"_qs));
    sim("leading dot", "leadingDot", badName.arg(u".hidden.vx"_qs));
    sim("corrupt", "corrupt", damaged);
    sim("empty", "empty", notSaved + u"it is empty."_qs);
    sim("connection drops inside an entry", "truncated", u"Connection timeout"_qs);
    sim("damaged inside an entry", "corruptData", damaged);
    sim("one entry too many", "tooMany", notSaved + u"it holds more than 10000 files."_qs);
    sim("a sub-folder", "subfolder", {});
    // More results than files sent: what no file asked for is named in the result, never landed.
    sim("an unmatched entry", "unmatched", {});
    sim("too little room before sending", "", noRoom, { 1000 });
    sim("reply outgrows the room", "", noRoom, { 1LL << 30, 1000 });
    sim("content outgrows the room", "bomb", noRoom, { 1LL << 30, 50LL << 20 });
    // 100 MiB from 100 KB is a thousand-fold: real files (logs, sparse images) do that.
    sim("thousand-fold with room", "bomb", {}, { 1LL << 30 });

    const QStringList both { u"r.bin.vx"_qs, u"t.txt.vx"_qs };
    const QStringList text { u"t.txt.vx"_qs };
    const QString files = u"r.bin.vx t.txt.vx"_qs;
    const QString password = u"it is protected by a password, which Varnex cannot open"_qs;
    const auto python = [](const char* script, const char* arg) -> QString {
        return u"python3 - "_qs + QLatin1String(arg) + u" <<'EOF'\n"_qs + QLatin1String(script)
            + u"\nEOF\n"_qs;
    };
    writer(u"Info-ZIP, deflate"_qs, u"zip -q out.zip "_qs + files, both);
    writer(u"Info-ZIP, stored"_qs, u"zip -q -0 out.zip "_qs + files, both);
    writer(u"Info-ZIP to a pipe, deflate"_qs, u"zip -q - %1 | cat > out.zip"_qs.arg(files), both);
    writer(u"Info-ZIP to a pipe, stored"_qs, u"zip -q -0 - %1 | cat > out.zip"_qs.arg(files), both);
    writer(u"Info-ZIP, folders and a Mac's resource files"_qs,
        u"mkdir -p __MACOSX && cp t.txt.vx __MACOSX/._t.txt.vx && zip -q -r out.zip t.txt.vx sub __MACOSX"_qs,
        text);
    writer(u"Info-ZIP, password"_qs, u"zip -q -P secret out.zip t.txt.vx"_qs, {}, false, password);
    writer(u"bsdtar, deflate"_qs, u"bsdtar -c --format zip -f out.zip "_qs + files, both);
    writer(u"bsdtar, stored"_qs,
        u"bsdtar -c --format zip --options zip:compression=store -f out.zip "_qs + files, both);
    writer(u"bsdtar to a pipe"_qs, u"bsdtar -c --format zip -f - %1 | cat > out.zip"_qs.arg(files), both);
    for (const QString& method : { u"BZip2"_qs, u"LZMA"_qs, u"PPMd"_qs, u"Deflate"_qs })
        writer(u"7z, "_qs + method, u"7z a -tzip -mm=%1 out.zip %2 >/dev/null"_qs.arg(method, files), both);
    writer(u"7z, AES password"_qs, u"7z a -tzip -psecret -mem=AES256 out.zip t.txt.vx >/dev/null"_qs, {},
        false, password);
    for (const QString& method : { u"LZMA"_qs, u"BZIP2"_qs, u"STORED"_qs })
        writer(u"Python, "_qs + method,
            u"python3 -c \"import zipfile as z; a = z.ZipFile('out.zip', 'w', z.ZIP_%1); a.write('r.bin.vx'); a.write('t.txt.vx'); a.close()\""_qs
                .arg(method),
            both);
    writer(u"Python to a pipe, zip64, stored"_qs, python(streamedZip64, "STORED"), both, true);
    writer(u"Python to a pipe, zip64, deflate"_qs, python(streamedZip64, "DEFLATED"), both);
    // Of unknown length, only deflate ends by itself in one pass.
    writer(u"Python to a pipe, zip64, LZMA"_qs, python(streamedZip64, "LZMA"), both, true);
    writer(u"Python to a pipe, zip64, bzip2"_qs, python(streamedZip64, "BZIP2"), both, true);
    writer(u"xz"_qs, python(handmadeZip, "xz"), text);
    writer(u"zstd"_qs, python(handmadeZip, "zstd"), text);
    writer(u"legacy name, code page 437"_qs, python(handmadeZip, "cp437"), { u"caf\u00e9 \u00dc.txt.vx"_qs });
    writer(u"UTF-8 flag on a name that is not UTF-8"_qs, python(handmadeZip, "lyingFlag"), {}, false,
        u"it holds a file whose name cannot be used (\ufffd)"_qs);
}

void TestOperations::replies()
{
    QFETCH(QString, reply);
    QFETCH(QList<qint64>, free);
    QFETCH(QStringList, landed);
    QFETCH(bool, keptWhole);
    QFETCH(QString, refusal);
    const QString folder = m_dir.filePath(u"writers"_qs);
    QJsonObject fault { { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, reply } };
    if (reply.contains(u' ')) { // a writer's zip
        QDir(folder).removeRecursively();
        QDir().mkpath(folder + u"/sub"_qs);
        write(folder + u"/r.bin.vx"_qs, randomBytes(300000, 7));
        QByteArray text;
        for (int i = 0; i < 20000; ++i)
            text += QByteArray::number(i) + '\n';
        write(folder + u"/t.txt.vx"_qs, text);
        write(folder + u"/sub/inner.txt.vx"_qs, "inside a folder");
        QProcess writer;
        writer.setWorkingDirectory(folder);
        writer.start(u"sh"_qs, { u"-c"_qs, reply });
        QVERIFY(writer.waitForFinished(60000));
        QVERIFY2(writer.exitCode() == 0 && QFileInfo::exists(folder + u"/out.zip"_qs),
            writer.readAllStandardError().constData());
        fault = { { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, u"file"_qs },
            { u"file"_qs, QString(folder + u"/out.zip") } };
    } else if (reply == u"tooMany") {
        QVERIFY(writeOneEntryTooMany(folder + u".zip"));
        fault = { { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, u"file"_qs },
            { u"file"_qs, QString(folder + u".zip") } };
    }
    QVERIFY(reply.isEmpty() || m_sim->setFault(fault));
    if (!free.isEmpty())
        playFreeSpace(free);
    // The files whose results the reply holds are sent (a writer's reply is the same whatever they hold).
    QStringList sent;
    for (const QString& name : landed.isEmpty() ? QStringList { u"t.txt.vx"_qs } : landed) {
        sent.append(m_files + u'/' + name.chopped(3));
        write(sent.last(), randomBytes(100000, 9));
    }
    write(m_encrypted + u"/earlier.txt"_qs, "earlier");
    const QStringList before = snapshot(m_encrypted);
    // The row's own recipient tells its request from a late one of an earlier test.
    const QString recipient = QString::fromLatin1(QTest::currentDataTag()).remove(u' ') + u"@x;";
    const LogCapture log;
    EncryptTask encrypt(sent, recipient, m_encrypted, url("/encryptFile/"));
    QList<Stage> stages;
    connect(&encrypt, &OperationTask::progress, this, [&stages](Stage s) {
        if (s != Stage::MovingIn && (stages.isEmpty() || stages.last() != s))
            stages.append(s);
    });
    const auto result = runTask(encrypt);
    const QJsonArray requests = m_sim->requests();
    QCOMPARE(std::count_if(requests.begin(), requests.end(),
                 [&](const QJsonValue& r) {
                     return PhoneSimProcess::partsOf(r).value(0) == u"emails=" + recipient;
                 }),
        free == QList<qint64> { 1000 } ? 0 : 1); // nothing goes without room for its reply
    // Receiving and unpacking are one stage, unless the reply had to be kept whole first.
    QVERIFY(landed.isEmpty() || stages.contains(Stage::Receiving));
    QCOMPARE(stages.contains(Stage::Unpacking), keptWhole && !landed.isEmpty());
    const QStringList lines = log.lines();
    const bool spilled = std::any_of(lines.begin(), lines.end(),
        [](const QString& l) { return l.contains(u"cannot be read in one pass"); });
    QCOMPARE(spilled, keptWhole);
    if (!landed.isEmpty()) {
        QCOMPARE(int(result.outcome), int(Outcome::Succeeded));
        QVERIFY(result.title.isEmpty());
        // No folder, nothing from inside one, no operation folder left behind.
        landed << u"earlier.txt"_qs;
        landed.sort();
        QCOMPARE(entriesIn(m_encrypted), landed);
        QCOMPARE(
            result.ignored, reply == u"unmatched" ? QStringList { u"not-uploaded.bin"_qs } : QStringList());
        QVERIFY(reply != u"bomb" || QFileInfo(m_encrypted + u"/good.txt.vx"_qs).size() == 100LL << 20);
        for (const QString& path : result.written) {
            const QString source = path.endsWith(u"r.bin.vx") ? u"/r.bin.vx"_qs : u"/t.txt.vx"_qs;
            QVERIFY(!reply.contains(u' ') || read(path) == read(folder + source));
        }
        return;
    }
    QCOMPARE(int(result.outcome), int(Outcome::Failed));
    QCOMPARE(result.title, u"Encryption failed"_qs);
    QCOMPARE(result.message, QString(refusal).replace(u"%1"_qs, m_encrypted));
    // The phone's names can neither garble the dialog, nor run past its edge, nor forge log lines.
    const auto control = [](QChar c) { return c.unicode() < 0x20; };
    for (const QString& line : lines)
        QVERIFY2(std::none_of(line.begin(), line.end(), control), qPrintable(line));
    QVERIFY(result.written.isEmpty());
    QCOMPARE(snapshot(m_encrypted), before); // nothing partial, no operation folder
    QVERIFY(!QFileInfo::exists(u"/tmp/varnex-absolute.txt"_qs));
    QVERIFY(!QFileInfo::exists(m_encrypted + u"/../escape.txt"_qs));
}

void TestOperations::encryptThenDecrypt_data()
{
    QTest::addColumn<QStringList>("names"); // sent in this order; the first one holds 3 MiB
    QTest::addColumn<QStringList>("taken"); // earlier results: E/ encrypted, D/ decrypted
    QTest::addColumn<int>("audience");
    QTest::addColumn<QStringList>("encrypted"); // the summary and the note
    QTest::addColumn<QStringList>("sent"); // the file parts of the request, as the phone read them
    QTest::addColumn<QStringList>("decrypted");
    QTest::addColumn<QStringList>("returned");
    const auto row = [](const char* tag, const QStringList& names, const QStringList& taken, int audience,
                         const QStringList& encrypted, const QStringList& sent, const QStringList& decrypted,
                         const QStringList& returned) {
        QTest::newRow(tag) << names << taken << audience << encrypted << sent << decrypted << returned;
    };
    // One file, a dot-file: its result, named as sent, lands both ways.
    row("a dot-file for one person", { u".env"_qs }, {}, 1,
        { u"1 file encrypted for 1 person"_qs, u".env.vx"_qs },
        { u" | .env | application/octet-stream | 3145735"_qs }, { u"1 file decrypted"_qs, u".env"_qs },
        { u".env | .env.vx | application/octet-stream | 3146970"_qs });
    // No extension, quotes, 252 bytes (".vx" fits within 255), and earlier results of the same
    // names in both folders: the counters must fit as well, both ways.
    const QString l = QString(248, u'l');
    const QString l1 = l.left(244) + u" (1)";
    row("four files for three people, their names taken",
        { u"report.pdf"_qs, u"notes"_qs, u"say \"hi\".txt"_qs, l + u".txt" },
        { u"E/report.pdf.vx"_qs, u"E/"_qs + l + u".txt.vx", u"D/report (1).pdf"_qs, u"D/"_qs + l1 + u".txt" },
        3, { u"4 files encrypted for 3 people"_qs, u"report (1).pdf.vx, notes.vx, say \"hi\".txt.vx, …"_qs },
        { u"report (1) | report (1).pdf | application/pdf | 3145735"_qs,
            u" | notes | application/octet-stream | 14"_qs,
            u"say %22hi%22 | say %22hi%22.txt | text/plain | 21"_qs,
            l1 + u" | " + l1 + u".txt | text/plain | 261" },
        { u"4 files decrypted"_qs, u"report (1) (1).pdf, notes, say \"hi\".txt, …"_qs },
        { u"report (1).pdf | report (1).pdf.vx | application/octet-stream | 3146970"_qs,
            u"notes | notes.vx | application/octet-stream | 433"_qs,
            u"say %22hi%22.txt | say %22hi%22.txt.vx | application/octet-stream | 440"_qs,
            l1 + u".txt | " + l1 + u".txt.vx | application/octet-stream | 680" });
}

void TestOperations::encryptThenDecrypt()
{
    QFETCH(QStringList, names);
    QFETCH(QStringList, taken);
    QFETCH(int, audience);
    QFETCH(QStringList, encrypted);
    QFETCH(QStringList, decrypted);
    QStringList sources;
    QList<QByteArray> contents;
    for (const QString& name : names) {
        contents.append(
            sources.isEmpty() ? randomBytes(3 * 1024 * 1024 + 7, 3) : "words of " + name.toUtf8());
        sources.append(m_files + u'/' + name);
        write(sources.last(), contents.last());
    }
    QList<DecryptTask::Intake> intake;
    for (const QString& earlier : taken) {
        const QString path = (earlier.startsWith(u'E') ? m_encrypted : m_decrypted) + earlier.mid(1);
        write(path, "earlier");
        if (earlier.startsWith(u'E'))
            intake.append({ path, false }); // listed, not marked: not sent
    }

    OperationRun* encrypt
        = OperationRun::encrypt(*m_session, m_encrypted, sources, u"a@x.org;b@y.org;c@z.org;"_qs, audience);
    QSignalSpy progress(encrypt->task(), &OperationTask::progress);
    QSignalSpy bar(encrypt, &OperationRun::stageChanged);
    const auto sealed = finish(encrypt);
    for (const auto& args : bar) {
        // While the phone works nothing is measured (a busy bar); the reply's length is known.
        const QString text = args.at(0).toString();
        const qint64 done = args.at(1).toLongLong(), total = args.at(2).toLongLong();
        QVERIFY(!text.startsWith(u"Waiting") || (done == 0 && total == 0));
        QVERIFY2(!text.startsWith(u"Receiving") || (total > 0 && done <= total && text.contains(u" of ")),
            qPrintable(text));
    }
    QCOMPARE(QStringList({ sealed.summary, sealed.note.body }), encrypted);
    QVERIFY(sealed.dialogTitle.isEmpty());
    QCOMPARE(sealed.note.summary, sealed.summary);
    QCOMPARE(sealed.note.folder, m_encrypted);
    QCOMPARE(sealed.note.files, sealed.results);
    QCOMPARE(sealed.results.size(), names.size());
    for (const auto& args : progress) // no figures before the transfer has measured its size
        QVERIFY(args.at(0).value<OperationTask::Stage>() != OperationTask::Stage::Sending
            || args.at(2).toLongLong() > contents.at(0).size());
    // On the wire: one multipart POST of known length, the boundary unquoted, nothing chunked.
    const QJsonObject request = m_sim->requests().at(0).toObject();
    QCOMPARE(request.value(u"method").toString(), u"POST"_qs);
    QCOMPARE(request.value(u"path").toString(), u"/encryptFile/"_qs);
    const QJsonObject headers = request.value(u"headers").toObject();
    const QString contentType = headers.value(u"content-type").toString();
    QVERIFY(contentType.startsWith(u"multipart/form-data; boundary=") && !contentType.contains(u'"'));
    QVERIFY(headers.contains(u"content-length"));
    QVERIFY(!headers.contains(u"expect") && !headers.contains(u"transfer-encoding"));
    const QString type = u"type=MacOS(v1.0.0)"_qs;
    QFETCH(QStringList, sent);
    QCOMPARE(PhoneSimProcess::partsOf(request),
        QStringList({ u"emails=a@x.org;b@y.org;c@z.org;"_qs, type }) + sent);

    m_sim->clearRequests();
    for (const QString& path : sealed.results)
        intake.append({ path, true });
    const auto opened = finish(OperationRun::decrypt(*m_session, m_decrypted, intake));
    QCOMPARE(QStringList({ opened.summary, opened.note.body }), decrypted);
    QVERIFY(opened.dialogTitle.isEmpty());
    QCOMPARE(opened.results.size(), names.size());
    for (int i = 0; i < names.size(); ++i) {
        QCOMPARE(read(opened.results.at(i)), contents.at(i));
        QCOMPARE(modeOf(opened.results.at(i)), mode_t(0600)); // plaintext is the user's alone
    }
    QFETCH(QStringList, returned);
    QCOMPARE(PhoneSimProcess::partsOf(m_sim->requests().at(0)), QStringList { type } + returned);
    // Earlier results untouched, and no operation folder left behind.
    for (const QString& earlier : taken)
        QCOMPARE(read((earlier.startsWith(u'E') ? m_encrypted : m_decrypted) + earlier.mid(1)),
            QByteArray("earlier"));
    QCOMPARE(entriesIn(m_encrypted).size() + entriesIn(m_decrypted).size(), 2 * names.size() + taken.size());
}

// A batch of which some files cannot be done: what became of each, what the user is told, and
// what it took to find out. One letter per file f<i>.txt (f<i>.txt.vx to decrypt), in list
// order: g the phone can do it, b encrypted for someone else, u no longer there to be read,
// p a pipe (only a regular file is sent).
void TestOperations::someFilesCannotBeDone_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QString>("files");
    QTest::addColumn<QString>("told"); // summary | dialog title | dialog text
    QTest::addColumn<int>("requests"); // sent in all
    const auto row = [](const char* tag, bool encrypt, const char* files, const QString& told, int requests) {
        QTest::newRow(tag) << encrypt << QString::fromLatin1(files) << told << requests;
    };
    const QString refused
        = u"f%1.txt.vx: the phone refused it: f%1.txt.vx is not readable by alex.morgan@example.com"_qs;
    const QString unreadable = u"f%1.txt.vx: it could not be read"_qs;
    const QString partly = u"%1 files decrypted, 1 could not be | Some files could not be decrypted | "_qs;
    const QString failed = u"Decryption failed | Decryption failed | "_qs;
    // Refused whole; the first half lands, so the other one holds the refusal and is halved
    // without being sent whole again.
    row("one of five for someone else", false, "gggbg", partly.arg(4) + refused.arg(3), 5);
    row("unreadable, left out", false, "gug", partly.arg(2) + unreadable.arg(1), 1);
    row("every file refused", false, "bb", failed + u"Some of the files are encrypted for other users", 3);
    row("none for their own reasons", false, "ub", failed + unreadable.arg(0) + u'\n' + refused.arg(1), 1);
    row("a pipe among the files to encrypt", true, "pg",
        u"1 file encrypted for 1 person, 1 could not be | Some files could not be encrypted | "
        "f0.txt: it could not be read"_qs,
        1);
}

void TestOperations::someFilesCannotBeDone()
{
    QFETCH(bool, encrypt);
    QFETCH(QString, files);
    QFETCH(int, requests);
    QVERIFY(VxCrypto::initialize());
    const VxCrypto::KeyPair someoneElse = VxCrypto::makeKeyPair();
    QStringList sources;
    QStringList mine;
    QList<DecryptTask::Intake> intake;
    for (int i = 0; i < files.size(); ++i) {
        const QString plain = m_files + u"/f%1.txt"_qs.arg(i);
        sources.append(encrypt ? plain : plain + u".vx");
        intake.append({ sources.last(), true });
        if (files.at(i) == u'p')
            QCOMPARE(::mkfifo(QFile::encodeName(sources.last()).constData(), 0600), 0);
        else if (files.at(i) != u'u')
            write(plain, QByteArray(4000, char('a' + i))); // more than a part's head, as files are
        if (files.at(i) == u'g')
            mine.append(plain);
        else if (files.at(i) == u'b')
            QVERIFY(
                VxCrypto::encryptFile(plain, plain + u".vx", { { u"b@x.org"_qs, someoneElse.publicKey } }));
    }
    EncryptTask seal(mine, u"alex.morgan@example.com;"_qs, m_files, url("/encryptFile/"));
    QVERIFY(encrypt || mine.isEmpty() || runTask(seal).outcome == Outcome::Succeeded);
    m_sim->clearRequests();

    const QString folder = encrypt ? m_encrypted : m_decrypted;
    OperationRun* run = encrypt ? OperationRun::encrypt(*m_session, folder, sources, u"a@x;"_qs, 1)
                                : OperationRun::decrypt(*m_session, folder, intake);
    QSignalSpy bar(run, &OperationRun::stageChanged);
    const LogCapture log;
    const auto outcome = finish(run);
    QTEST(told(outcome), "told");
    QCOMPARE(outcome.note.body, outcome.dialogText);
    QCOMPARE(outcome.files.size(), files.size());
    QStringList unreadable;
    for (int i = 0; i < files.size(); ++i) {
        const auto& f = outcome.files.at(i);
        QCOMPARE(f.source, sources.at(i));
        const bool landed = files.at(i) == u'g';
        QCOMPARE(f.result, landed ? folder + u"/f%1.txt"_qs.arg(i) + (encrypt ? u".vx" : u"") : QString());
        QCOMPARE(f.problem.isEmpty(), landed);
        QVERIFY(!landed || encrypt || read(f.result) == QByteArray(4000, char('a' + i)));
        if (files.at(i) == u'u' || files.at(i) == u'p')
            unreadable.append(u"Cannot read a file to send: " + sources.at(i));
    }
    QCOMPARE(entriesIn(folder).size(), files.count(u'g')); // and no operation folder
    QCOMPARE(log.lines().filter(u"Cannot read"_qs), unreadable);
    // What it sent in all, and how it said so: the files checked of those sent. A file that
    // cannot be read is in no request.
    const QJsonArray sent = m_sim->requests();
    QCOMPARE(sent.size(), requests);
    qint64 bytes = 0;
    for (const QJsonValue& r : sent) {
        bytes += r[u"headers"_qs][u"content-length"_qs].toString().toLongLong();
        for (const QString& part : PhoneSimProcess::partsOf(r))
            QVERIFY2(std::none_of(unreadable.begin(), unreadable.end(),
                         [&](const QString& line) { return part.contains(line.section(u'/', -1)); }),
                qPrintable(part));
    }
    QVERIFY(bytes <= 3 * sent.at(0)[u"headers"_qs][u"content-length"_qs].toString().toLongLong());
    const auto checking = std::find_if(bar.begin(), bar.end(),
        [](const QList<QVariant>& a) { return a.at(0) == u"Checking which files the phone can open…"_qs; });
    QCOMPARE(checking != bar.end(), requests > 1);
    QVERIFY(checking == bar.end() || checking->at(2).toInt() == files.count(u'g') + files.count(u'b'));
}

// Every way a run ends without results: the phone fails, refuses or is lost; a file changes
// while it is sent; the user cancels at each stage; the run is dropped. Nothing is left behind,
// a cancel tells nothing and comes at once, and a failure is told alike in the summary, the
// dialog and the notification.
void TestOperations::endingWithoutResults_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QJsonObject>("fault"); // empty: nothing listens
    QTest::addColumn<Stage>("stage"); // reached, then:
    QTest::addColumn<QString>(
        "act"); // "cancel", "lose" the phone, "grow" or "shrink" the file, "drop" the run
    QTest::addColumn<QString>("text"); // the dialog's; empty: nothing is told
    const auto row = [](const char* tag, bool encrypt, const QJsonObject& fault, const QString& text,
                         Stage stage = Stage::Sending, const char* act = "") {
        QTest::newRow(tag) << encrypt << fault << stage << QString::fromLatin1(act) << text;
    };
    QJsonObject droppedRefusal = onEveryPath("status", 400);
    droppedRefusal.insert(u"closeAfterBytes", 3);
    const QJsonObject silent = onEveryPath("noAnswer", true);
    // "hold": the phone reads nothing until told, so the upload stalls part-way.
    const QJsonObject held = onEveryPath("hold", true);
    const QString timeout = u"Connection timeout"_qs;
    const QString lost
        = u"Contact with the phone was lost, so the operation was stopped. Nothing was changed: "
          "your files and the result folder are as they were."_qs;
    const QString changed
        = u"big.bin.vx changed while it was being sent. Nothing was saved; please try again."_qs;
    row("encrypt 500", true, onEveryPath("status", 500), timeout);
    row("encrypt 400", true, onEveryPath("status", 400), timeout);
    row("encrypt reply cut off", true, onEveryPath("closeAfterBytes", 10), timeout);
    row("encrypt refused", true, {}, timeout);
    row("decrypt 400, connection dropped", false, droppedRefusal,
        u"Some of the files are encrypted for other users"_qs);
    row("decrypt 500", false, onEveryPath("status", 500), timeout);
    row("decrypt refused", false, {}, timeout);
    row("phone lost while encrypting", true, silent, lost, Stage::Waiting, "lose");
    row("phone lost while decrypting", false, silent, lost, Stage::Waiting, "lose");
    row("file grows while sent", true, held, changed, Stage::Sending, "grow");
    row("file shrinks while sent", true, held, changed, Stage::Sending, "shrink");
    row("cancel while sending", true, held, {}, Stage::Sending, "cancel");
    row("cancel while waiting", true, silent, {}, Stage::Waiting, "cancel");
    row("cancel while receiving", true, onEveryPath("stallAfterBytes", 100000), {}, Stage::Receiving,
        "cancel");
    // Held inside the move of its result: what had landed goes again, and no success is told.
    row("cancel while moving in", true, onEveryPath("delayMs", 0), {}, Stage::MovingIn, "cancel");
    row("run dropped while waiting", true, silent, {}, Stage::Waiting, "drop");
}

void TestOperations::endingWithoutResults()
{
    QFETCH(bool, encrypt);
    QFETCH(QJsonObject, fault);
    QFETCH(Stage, stage);
    QFETCH(QString, act);
    QFETCH(QString, text);
    Session nobody(1); // nothing listens on port 1
    nobody.setPhoneIPAddress(u"127.0.0.1"_qs);
    nobody.setPhoneConnected(true);
    QVERIFY(fault.isEmpty() || m_sim->setFault(fault));
    const QString file = m_files + u"/big.bin.vx"_qs;
    write(file, randomBytes(stage == Stage::Sending && !act.isEmpty() ? 64 << 20 : 1000, 5));
    const Session& session = fault.isEmpty() ? nobody : *m_session;
    const QString folder = encrypt ? m_encrypted : m_decrypted;
    std::unique_ptr<OperationRun> run(encrypt
            ? OperationRun::encrypt(session, folder, { file }, u"a@x.org;"_qs, 1)
            : OperationRun::decrypt(session, folder, { { file, true } }));
    QCOMPARE(run->stageText(), u"Connecting to the phone..."_qs); // no figures before the transfer measures
    bool reached = false;
    connect(run->task(), &OperationTask::progress, this, [&reached, stage](Stage s, qint64 done) {
        reached |= s == stage && (done > 0 || s != Stage::Sending);
    });
    static std::atomic<bool> holdLink, linkReached, linkReleased;
    holdLink = stage == Stage::MovingIn;
    linkReached = linkReleased = false;
    SafeArchive::setLinkFunctionsForTesting([](const char* from, const char* to) {
        if (holdLink.exchange(false)) {
            linkReached = true;
            while (!linkReleased)
                std::this_thread::yield();
        }
        return ::link(from, to);
    });
    QSignalSpy finished(run.get(), &OperationRun::finished);
    run->start();
    QTRY_VERIFY_WITH_TIMEOUT(
        act.isEmpty() || (stage == Stage::MovingIn ? linkReached.load() : reached), 10000);
    QElapsedTimer clock;
    clock.start();
    if (act == u"drop") {
        QVERIFY(!QDir(folder).isEmpty()); // the operation's folder
        // The worker is stopped before the members it reads go (AddressSanitizer would see it).
        run.reset();
        QVERIFY(clock.elapsed() < 1000);
        QVERIFY(QDir(folder).isEmpty());
        // The worker has ended, so all it queued is queued: delivering it must reach no gone task.
        QCoreApplication::sendPostedEvents();
        return;
    }
    if (act == u"cancel") {
        if (stage == Stage::Waiting) {
            QCOMPARE(run->stageText(), u"Waiting for the phone..."_qs);
            QCOMPARE(run->detailText(), u"Waiting for 0:00"_qs);
            // Counted on while the phone is silent (a busy machine may skip a second).
            static const QRegularExpression later(u"^Waiting for 0:(0[1-9]|[1-5]\\d)$"_qs);
            QTRY_VERIFY_WITH_TIMEOUT(later.match(run->detailText()).hasMatch(), 10000);
            clock.start();
        }
        run->cancel();
        linkReleased = true;
        QCOMPARE(run->stageText(), u"Cancelling..."_qs);
        QCOMPARE(run->detailText(), QString());
        m_session->setPhoneConnected(false); // a loss after a cancel is still a cancel
    } else if (act == u"lose") {
        m_session->setPhoneConnected(false);
    } else if (!act.isEmpty()) {
        QVERIFY(QFile::resize(file, act == u"grow" ? 65LL << 20 : 1LL << 20));
        m_sim->clearFaults(); // the phone reads on
    }
    QVERIFY(finished.wait(30000));
    const auto outcome = finished.at(0).at(0).value<OperationRun::Outcome>();
    QCOMPARE(entriesIn(m_encrypted) + entriesIn(m_decrypted), QStringList()); // nothing partial
    if (text.isEmpty()) {
        QVERIFY(outcome.cancelled() && outcome.stopped);
        QVERIFY(outcome.summary.isEmpty() && outcome.dialogTitle.isEmpty() && outcome.note.summary.isEmpty());
        // 200 ms is what the transfer loop promises; the margin is for a busy machine.
        QVERIFY2(clock.elapsed() < 700, qPrintable(QString::number(clock.elapsed())));
        return;
    }
    const QString title = encrypt ? u"Encryption failed"_qs : u"Decryption failed"_qs;
    QCOMPARE(told(outcome), QStringList({ title, title, text }).join(u" | "));
    QCOMPARE(outcome.outcome, text.startsWith(u"Some of the files") ? Outcome::Refused : Outcome::Failed);
    QCOMPARE(outcome.stopped, act == u"lose"); // a lost phone leaves the user's choices for another try
    QCOMPARE(outcome.note.summary, outcome.dialogTitle);
    QCOMPARE(outcome.note.body, outcome.dialogText);
    QVERIFY(outcome.note.folder.isEmpty() && outcome.results.isEmpty());
    QVERIFY(outcome.files.size() == 1 && outcome.files[0].result.isEmpty()
        && !outcome.files[0].problem.isEmpty());
}

void TestOperations::transferFigures_data()
{
    // Samples as (done, msecs), at a steady 1 MB/s unless said otherwise.
    QTest::addColumn<Samples>("samples");
    QTest::addColumn<qint64>("total"); // 0: unknown
    QTest::addColumn<double>("rate"); // expected bytes per second; < 0: none yet
    QTest::addColumn<QString>("shown"); // under the stage
    const auto row = [](const char* tag, const Samples& samples, qint64 total, double rate,
                         const QString& shown) { QTest::newRow(tag) << samples << total << rate << shown; };
    const Samples second { { 0, 0 }, { 1'000'000, 1000 } };
    row("nothing before a second", { { 0, 0 }, { 500'000, 500 } }, 10'000'000, -1, {});
    row("steady", { { 0, 0 }, { 1'000'000, 1000 }, { 2'000'000, 2000 }, { 4'000'000, 4000 } }, 10'000'000,
        1e6, u"1.0 MB/s · 0:06 left"_qs);
    row("total unknown: speed only", second, 0, 1e6, u"1.0 MB/s"_qs);
    row("stalled: no time left", { { 0, 0 }, { 0, 1000 }, { 0, 2000 } }, 10'000'000, 0, u"0 B/s"_qs);
    row("count goes back: a new start", { { 0, 0 }, { 5'000'000, 1000 }, { 100, 1500 }, { 200, 1800 } },
        10'000'000, -1, {});
    row("close samples gather", { { 0, 0 }, { 10, 1 }, { 20, 2 }, { 1'000'000, 1000 } }, 10'000'000, 1e6,
        u"1.0 MB/s · 0:09 left"_qs);
    row("done", second, 1'000'000, 1e6, u"1.0 MB/s · 0:00 left"_qs);
    row("minutes left", second, 751'000'000, 1e6, u"1.0 MB/s · 12:30 left"_qs);
    row("hours left", second, 3'724'000'000, 1e6, u"1.0 MB/s · 1:02:03 left"_qs);
    row("one and a half", { { 0, 0 }, { 1'500'000, 1000 } }, 0, 1.5e6, u"1.5 MB/s"_qs);
}

void TestOperations::transferFigures()
{
    QFETCH(Samples, samples);
    QFETCH(qint64, total);
    QFETCH(double, rate);
    TransferRate r;
    for (const auto& [done, ms] : samples)
        r.sample(done, total, ms);
    QVERIFY(qAbs(r.bytesPerSecond().value_or(-1) - rate) < 1.0);
    QTEST(r.describe(), "shown");
}

void TestOperations::transferBurstsDoNotMakeItJump()
{
    // 1 MB/s on average, arriving as a 2 MB burst then a pause, over and over.
    TransferRate r;
    qint64 done = 0;
    r.sample(0, 0, 0);
    double lowest = 1e12, highest = 0;
    for (int ms = 500; ms <= 30'000; ms += 500) {
        if (ms % 2000 == 0)
            done += 2'000'000;
        r.sample(done, 0, ms);
        if (ms > 10'000 && r.bytesPerSecond()) {
            lowest = std::min(lowest, *r.bytesPerSecond());
            highest = std::max(highest, *r.bytesPerSecond());
        }
    }
    // Raw half-second rates swing between 0 and 4 MB/s; the figure shown stays near 1 MB/s.
    QVERIFY2(lowest > 0.6e6 && highest < 1.6e6, qPrintable(u"%1 .. %2"_qs.arg(lowest).arg(highest)));
}

QTEST_GUILESS_MAIN(TestOperations)
#include "tst_operations.moc"
