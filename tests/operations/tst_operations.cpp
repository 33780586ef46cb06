#include "app/Session.h"
#include "ZipWriter.h"
#include "app/Translations.h"
#include "common/LogCapture.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "operations/DecryptTask.h"
#include "operations/EncryptTask.h"
#include "operations/OperationFolder.h"
#include "operations/SafeArchive.h"
#include "operations/UniqueNames.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace TestFiles;

// Every name and content hash under a folder: to prove a folder is exactly as it was.
QStringList snapshot(const QString& folder)
{
    QStringList result;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        result.append(path.mid(folder.size()) + u' '
                      + QString::fromLatin1(QCryptographicHash::hash(read(path), QCryptographicHash::Sha1).toHex()));
    }
    result.sort();
    return result;
}

mode_t modeOf(const QString& path)
{
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
}

OperationTask::Result runTask(OperationTask& task, int timeoutMs = 20000)
{
    QSignalSpy finished(&task, &OperationTask::finished);
    task.start();
    if (!finished.wait(timeoutMs))
        return { OperationTask::Outcome::Failed, u"timed out"_qs, {}, {} };
    return finished.at(0).at(0).value<OperationTask::Result>();
}

} // namespace

class TestOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void uniqueNames_data();
    void uniqueNames();
    void hostileArchivesLeaveNoTrace_data();
    void hostileArchivesLeaveNoTrace();
    void goodArchiveNeverOverwrites();
    void cleanupRemovesOnlyMarkedUnlockedFolders();
    void roundTripThroughThePhone();
    void encryptWireFormat();
    void failuresBecomeTheirDialogs_data();
    void failuresBecomeTheirDialogs();
    void namesAResultMayCarry_data();
    void namesAResultMayCarry();
    void subFolderEntriesAreSkipped();
    void landingIsAllOrNothing();
    void landingWithoutHardLinks_data();
    void landingWithoutHardLinks();
    void hostileRepliesAreRefusedWholeAndTold_data();
    void hostileRepliesAreRefusedWholeAndTold();
    void harmlessExtrasOfAReply_data();
    void harmlessExtrasOfAReply();
    void freeSpaceLimits_data();
    void freeSpaceLimits();
    void filesThatChangeWhileSentEndTheOperation_data();
    void filesThatChangeWhileSentEndTheOperation();
    void onlyRegularFilesAreSent();
    void cancelReachesEveryStage_data();
    void cancelReachesEveryStage();
    void taskDestroyedWhileRunning();
    void refusalSurvivesADroppedConnection();

private:
    QTemporaryDir m_dir;
    QString m_encrypted;
    QString m_decrypted;
    QString m_files;
    std::unique_ptr<PhoneSimProcess> m_sim;
    QString url(const char* path) const { return QStringLiteral("http://127.0.0.1:%1%2").arg(m_sim->port()).arg(QLatin1String(path)); }
    std::unique_ptr<OperationTask> goodFileTask(bool encrypt, QString* results);
};

// An operation on one good file ("good bytes"): encrypting it, or decrypting it once it was
// encrypted for the simulator's own user. `results` is where its results land; nothing when
// the encryption a decryption needs failed.
std::unique_ptr<OperationTask> TestOperations::goodFileTask(bool encrypt, QString* results)
{
    write(m_files + u"/good.txt"_qs, "good bytes");
    *results = encrypt ? m_encrypted : m_decrypted;
    if (encrypt)
        return std::make_unique<EncryptTask>(QStringList { m_files + u"/good.txt"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    EncryptTask first({ m_files + u"/good.txt"_qs }, u"alex.morgan@example.com;"_qs, m_files, url("/encryptFile/"));
    if (runTask(first).outcome != OperationTask::Outcome::Succeeded)
        return nullptr;
    return std::make_unique<DecryptTask>(QList<DecryptTask::Intake> { { m_files + u"/good.txt.vx"_qs, true } }, m_decrypted,
                                         url("/decryptFile/"));
}

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
}

void TestOperations::uniqueNames_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("encrypted"); // against EncryptedFiles (".vx" twins)
    QTest::addColumn<QString>("decrypted"); // against DecryptedFiles (the name itself)
    QTest::newRow("free") << QStringList {} << "report.pdf" << "report.pdf" << "report.pdf";
    QTest::newRow("twice taken") << QStringList { u"report.pdf.vx"_qs, u"report (1).pdf.vx"_qs, u"report.pdf"_qs, u"report (1).pdf"_qs }
                                 << "report.pdf" << "report (2).pdf" << "report (2).pdf";
    QTest::newRow("gap is not filled past") << QStringList { u"a.txt.vx"_qs, u"a (2).txt.vx"_qs } << "a.txt" << "a (1).txt" << "a.txt";
    QTest::newRow("no extension") << QStringList { u"README.vx"_qs, u"README"_qs } << "README" << "README (1)" << "README (1)";
    QTest::newRow("two extensions") << QStringList { u"x.tar.gz.vx"_qs } << "x.tar.gz" << "x.tar (1).gz" << "x.tar.gz";
}

void TestOperations::uniqueNames()
{
    QFETCH(QStringList, existing);
    QFETCH(QString, name);
    for (const QString& e : existing) {
        write(m_encrypted + u'/' + e, "x");
        write(m_decrypted + u'/' + e, "x");
    }
    QTEST(UniqueNames::uniqueEncryptedName(m_encrypted, name), "encrypted");
    QTEST(UniqueNames::uniqueDecryptedName(m_decrypted, name), "decrypted");
}

void TestOperations::hostileArchivesLeaveNoTrace_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : { "escape", "absolute", "symlink", "corrupt", "bomb", "truncated", "cancelled" })
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestOperations::hostileArchivesLeaveNoTrace()
{
    QFETCH(QString, kind);
    const QString zip = m_dir.filePath(u"hostile.zip"_qs);
    QFile::remove(zip);
    const ZipWriter::Entry good { u"fine.txt.vx"_qs, {}, "fine" };
    if (kind == u"escape")
        QVERIFY(ZipWriter::write(zip, { good, { u"../escape.txt"_qs, {}, "x" } }));
    else if (kind == u"absolute")
        QVERIFY(ZipWriter::write(zip, { good, { m_dir.filePath(u"abs.txt"_qs), {}, "x" } }));
    else if (kind == u"symlink")
        QVERIFY(ZipWriter::write(zip, { good, { u"link.vx"_qs, {}, {}, 0, u"/etc/passwd"_qs } }));
    else if (kind == u"nested")
        QVERIFY(ZipWriter::write(zip, { good, { u"sub/inner.txt"_qs, {}, "x" } }));
    else if (kind == u"corrupt")
        write(zip, "PK\x03\x04 definitely not a zip");
    else if (kind == u"bomb" || kind == u"cancelled")
        QVERIFY(ZipWriter::write(zip, { good, { u"bomb.bin"_qs, {}, {}, 50LL * 1024 * 1024 } }, true));
    else {
        QVERIFY(ZipWriter::write(zip, { good, { u"big.bin"_qs, {}, randomBytes(200000, 1) } }));
        QFile f(zip);
        QVERIFY(f.resize(f.size() - 120000));
    }
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
    const SafeArchive::Result result
        = SafeArchive::extract(zip, staging, kind == u"bomb" ? 10LL << 20 : 1LL << 40, onProgress, &cancel);
    QVERIFY(!result.ok);
    QVERIFY(result.failure != SafeArchive::Failure::None);
    if (kind == u"cancelled") {
        QCOMPARE(int(result.failure), int(SafeArchive::Failure::Cancelled));
        QVERIFY2(reportsAfterCancel <= 1, qPrintable(QString::number(reportsAfterCancel)));
    }
    QCOMPARE(snapshot(m_encrypted), before);
    QVERIFY(!QFileInfo::exists(m_dir.filePath(u"escape.txt"_qs)) && !QFileInfo::exists(m_dir.filePath(u"abs.txt"_qs)));
}

void TestOperations::goodArchiveNeverOverwrites()
{
    const QString zip = m_dir.filePath(u"good.zip"_qs);
    QFile::remove(zip);
    QVERIFY(ZipWriter::write(zip, { { u"a.txt.vx"_qs, {}, "new a" }, { u"b.txt.vx"_qs, {}, randomBytes(300000, 2) } }));
    write(m_encrypted + u"/a.txt.vx"_qs, "old a");
    const QString staging = m_encrypted + u"/OP2"_qs;
    QDir().mkpath(staging);
    const auto result = SafeArchive::extract(zip, staging, 1LL << 40);
    QVERIFY(result.ok);
    QCOMPARE(result.entries.size(), 2);
    QCOMPARE(result.entries.at(1).size, 300000);
    for (const auto& entry : result.entries) {
        SafeArchive::moveIn(entry.tempPath, m_encrypted,
                            [&entry](int n) { return n == 0 ? entry.name : UniqueNames::withCounter(entry.name, n); });
    }
    QCOMPARE(read(m_encrypted + u"/a.txt.vx"_qs), QByteArray("old a"));
    QCOMPARE(read(m_encrypted + u"/a.txt (1).vx"_qs), QByteArray("new a"));
    QCOMPARE(read(m_encrypted + u"/b.txt.vx"_qs), randomBytes(300000, 2));
    // Too little free space: refused before anything lands.
    QDir(staging).removeRecursively();
    QDir().mkpath(staging);
    QVERIFY(!SafeArchive::extract(zip, staging, 1000).ok);
    QVERIFY(QDir(staging).isEmpty());
}

void TestOperations::roundTripThroughThePhone()
{
    const QByteArray report = randomBytes(3 * 1024 * 1024 + 7, 3);
    write(m_files + u"/report.pdf"_qs, report);
    write(m_files + u"/notes"_qs, "no extension here\n");
    const QString quoted = u"say \"hi\".txt"_qs;
    write(m_files + u'/' + quoted, "quoted");
    write(m_encrypted + u"/report.pdf.vx"_qs, "an earlier result");

    EncryptTask encrypt({ m_files + u"/report.pdf"_qs, m_files + u"/notes"_qs, m_files + u'/' + quoted },
                        u"amelia.clarke@example.com;"_qs, m_encrypted, url("/encryptFile/"));
    QSignalSpy progress(&encrypt, &OperationTask::progress);
    const auto encrypted = runTask(encrypt);
    QCOMPARE(int(encrypted.outcome), int(OperationTask::Outcome::Succeeded));
    QVERIFY(encrypted.title.isEmpty());
    QVERIFY(progress.size() >= 2);
    QCOMPARE(QDir(m_encrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             (QStringList { u"notes.vx"_qs, u"report (1).pdf.vx"_qs, u"report.pdf.vx"_qs, quoted + u".vx" }));
    QCOMPARE(read(m_encrypted + u"/report.pdf.vx"_qs), QByteArray("an earlier result"));

    write(m_decrypted + u"/report (1).pdf"_qs, "an earlier result");
    const QList<DecryptTask::Intake> intake { { m_encrypted + u"/report (1).pdf.vx"_qs, true },
                                              { m_encrypted + u"/notes.vx"_qs, true },
                                              { m_encrypted + u'/' + quoted + u".vx", true },
                                              { m_encrypted + u"/report.pdf.vx"_qs, false } };
    DecryptTask decrypt(intake, m_decrypted, url("/decryptFile/"));
    const auto decrypted = runTask(decrypt);
    QCOMPARE(int(decrypted.outcome), int(OperationTask::Outcome::Succeeded));
    QCOMPARE(read(m_decrypted + u"/report (1) (1).pdf"_qs), report);
    QCOMPARE(read(m_decrypted + u"/notes"_qs), QByteArray("no extension here\n"));
    QCOMPARE(read(m_decrypted + u'/' + quoted), QByteArray("quoted"));
    QCOMPARE(decrypted.written.size(), 3);
    QCOMPARE(modeOf(m_decrypted + u'/' + quoted), mode_t(0600)); // plaintext is the user's alone
    QCOMPARE(QDir(m_decrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 4);
    QCOMPARE(QDir(m_encrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 4); // no operation folder left
}

void TestOperations::encryptWireFormat()
{
    write(m_files + u"/report.pdf"_qs, "pdf bytes");
    write(m_files + u"/photo.jpg"_qs, "jpg bytes");
    write(m_encrypted + u"/report.pdf.vx"_qs, "old");
    EncryptTask encrypt({ m_files + u"/report.pdf"_qs, m_files + u"/photo.jpg"_qs }, u"a@x.org;b@x.org;"_qs, m_encrypted,
                        url("/encryptFile/"));
    QCOMPARE(int(runTask(encrypt).outcome), int(OperationTask::Outcome::Succeeded));
    const QJsonObject request = m_sim->requests().at(0).toObject();
    QCOMPARE(request.value(u"method").toString(), QStringLiteral("POST"));
    QCOMPARE(request.value(u"path").toString(), QStringLiteral("/encryptFile/"));
    const QJsonObject headers = request.value(u"headers").toObject();
    const QString contentType = headers.value(u"content-type").toString();
    QVERIFY(contentType.startsWith(u"multipart/form-data; boundary="));
    QVERIFY(!contentType.contains(u'"')); // the boundary goes unquoted
    QVERIFY(headers.contains(u"content-length"));
    QVERIFY(!headers.contains(u"expect"));
    QVERIFY(!headers.contains(u"transfer-encoding"));
    const QJsonArray parts = request.value(u"parts").toArray();
    QCOMPARE(parts.size(), 4);
    QCOMPARE(parts.at(0).toObject().value(u"name").toString(), QStringLiteral("emails"));
    QCOMPARE(parts.at(0).toObject().value(u"value").toString(), QStringLiteral("a@x.org;b@x.org;"));
    QCOMPARE(parts.at(1).toObject().value(u"name").toString(), QStringLiteral("type"));
    QCOMPARE(parts.at(1).toObject().value(u"value").toString(), QStringLiteral("MacOS(v1.0.0)"));
    QCOMPARE(parts.at(2).toObject().value(u"name").toString(), QStringLiteral("report (1)"));
    QCOMPARE(parts.at(2).toObject().value(u"filename").toString(), QStringLiteral("report (1).pdf"));
    QCOMPARE(parts.at(2).toObject().value(u"contentType").toString(), QStringLiteral("application/pdf"));
    QCOMPARE(parts.at(2).toObject().value(u"size").toInt(), 9);
    QCOMPARE(parts.at(3).toObject().value(u"name").toString(), QStringLiteral("photo"));
    QCOMPARE(parts.at(3).toObject().value(u"filename").toString(), QStringLiteral("photo.jpg"));

    m_sim->clearRequests();
    DecryptTask decrypt({ { m_encrypted + u"/photo.jpg.vx"_qs, true } }, m_decrypted, url("/decryptFile/"));
    QCOMPARE(int(runTask(decrypt).outcome), int(OperationTask::Outcome::Succeeded));
    const QJsonArray decryptParts = m_sim->requests().at(0).toObject().value(u"parts").toArray();
    QCOMPARE(decryptParts.size(), 2);
    QCOMPARE(decryptParts.at(0).toObject().value(u"name").toString(), QStringLiteral("type"));
    QCOMPARE(decryptParts.at(1).toObject().value(u"name").toString(), QStringLiteral("photo.jpg"));
    QCOMPARE(decryptParts.at(1).toObject().value(u"filename").toString(), QStringLiteral("photo.jpg.vx"));
    QCOMPARE(read(m_decrypted + u"/photo.jpg"_qs), QByteArray("jpg bytes"));
}

void TestOperations::failuresBecomeTheirDialogs_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QJsonObject>("fault"); // empty: nothing listens
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("message");
    const QJsonObject status500 { { u"path"_qs, u"*"_qs }, { u"status"_qs, 500 } };
    const QJsonObject status400 { { u"path"_qs, u"*"_qs }, { u"status"_qs, 400 } };
    const QJsonObject dropped { { u"path"_qs, u"*"_qs }, { u"closeAfterBytes"_qs, 10 } };
    QTest::newRow("encrypt 500") << true << status500 << "Encryption failed" << "Connection timeout";
    QTest::newRow("encrypt 400") << true << status400 << "Encryption failed" << "Connection timeout";
    QTest::newRow("encrypt reply cut off") << true << dropped << "Encryption failed" << "Connection timeout";
    QTest::newRow("encrypt refused") << true << QJsonObject() << "Encryption failed" << "Connection timeout";
    QTest::newRow("decrypt 400") << false << status400 << "Decryption failed" << "Some of the files are encrypted for other users";
    QTest::newRow("decrypt 500") << false << status500 << "Decryption failed" << "Connection timeout";
    QTest::newRow("decrypt refused") << false << QJsonObject() << "Decryption failed" << "Connection timeout";
}

void TestOperations::failuresBecomeTheirDialogs()
{
    QFETCH(bool, encrypt);
    QFETCH(QJsonObject, fault);
    write(m_files + u"/a.txt.vx"_qs, "bytes");
    QString target = url(encrypt ? "/encryptFile/" : "/decryptFile/");
    if (fault.isEmpty())
        target = QStringLiteral("http://127.0.0.1:1/encryptFile/");
    else
        QVERIFY(m_sim->setFault(fault));
    std::unique_ptr<OperationTask> task;
    if (encrypt)
        task = std::make_unique<EncryptTask>(QStringList { m_files + u"/a.txt.vx"_qs }, u"a@x;"_qs, m_encrypted, target);
    else
        task = std::make_unique<DecryptTask>(QList<DecryptTask::Intake> { { m_files + u"/a.txt.vx"_qs, true } }, m_decrypted, target);
    const auto result = runTask(*task);
    QTEST(result.title, "title");
    QTEST(result.message, "message");
    QVERIFY(QDir(m_encrypted).isEmpty() && QDir(m_decrypted).isEmpty());
}

namespace {

int linkErrno = 0;
int failingLink(const char*, const char*)
{
    errno = linkErrno;
    return -1;
}
int renameErrno = 0; // 0: the real one
int failingRename(const char*, const char*)
{
    errno = renameErrno;
    return -1;
}

const QString prefixReplyNotSaved = QStringLiteral("The phone's reply could not be saved: ");

} // namespace

void TestOperations::cleanupRemovesOnlyMarkedUnlockedFolders()
{
    // Phones name files with upper-case UUIDs too: such names are the user's data.
    write(m_decrypted + u"/3F2504E0-4F89-11D3-9A0C-0305E82C3301.zip"_qs, "user zip");
    QDir().mkpath(m_decrypted + u"/6B29FC40-CA47-1067-B31D-00DD010662DA"_qs);
    write(m_decrypted + u"/6B29FC40-CA47-1067-B31D-00DD010662DA/notes.txt"_qs, "notes");
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
    QCOMPARE(read(m_decrypted + u"/3F2504E0-4F89-11D3-9A0C-0305E82C3301.zip"_qs), QByteArray("user zip"));
    QCOMPARE(read(m_decrypted + u"/6B29FC40-CA47-1067-B31D-00DD010662DA/notes.txt"_qs), QByteArray("notes"));
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
    const auto faces = [](int n) { return QString::fromUcs4(QList<char32_t>(n, U'\U0001F600').constData(), n); };
    QTest::newRow("plain") << "report.pdf.vx" << true << QString();
    QTest::newRow("quotes and spaces") << "say \"hi\" now.txt" << true << QString();
    QTest::newRow("255 bytes") << QString(251, u'a') + u".txt" << true << elided;
    QTest::newRow("256 bytes") << QString(252, u'a') + u".txt" << false << elided;
    QTest::newRow("127 two-byte letters") << QString(127, QChar(0xe9)) << true << e29 + QChar(0x2026) + e29;
    QTest::newRow("128 two-byte letters") << QString(128, QChar(0xe9)) << false << e29 + QChar(0x2026) + e29;
    QTest::newRow("80 faces, cut between pairs") << faces(80) << false << faces(29) + QChar(0x2026) + faces(29);
    QTest::newRow("control character") << "bell\x07.txt" << false << u"bell\uFFFD.txt"_qs;
    QTest::newRow("line feed") << "two\nlines.txt" << false << u"two\uFFFDlines.txt"_qs;
    QTest::newRow("C1 control") << u"x\u0085.txt"_qs << false << u"x\uFFFD.txt"_qs;
    QTest::newRow("right-to-left override") << u"photo\u202Egpj.exe"_qs << false << u"photo\uFFFDgpj.exe"_qs;
    QTest::newRow("isolate") << u"a\u2067b.txt"_qs << false << u"a\uFFFDb.txt"_qs;
    QTest::newRow("leading dot") << ".bashrc" << false << QString();
    QTest::newRow("dot dot") << ".." << false << QString();
    QTest::newRow("slash") << "a/b.txt" << false << QString();
    QTest::newRow("backslash") << "a\\b.txt" << false << QString();
    QTest::newRow("empty") << "" << false << QString();
}

void TestOperations::namesAResultMayCarry()
{
    QFETCH(QString, name);
    QFETCH(QString, shown);
    QTEST(SafeArchive::isSafeEntryName(name), "safe");
    QCOMPARE(SafeArchive::printableName(name), shown.isEmpty() ? name : shown);
}

void TestOperations::subFolderEntriesAreSkipped()
{
    const QString zip = m_dir.filePath(u"folders.zip"_qs);
    QFile::remove(zip);
    QVERIFY(ZipWriter::write(zip, { { u"a.txt.vx"_qs, {}, "a" }, { u"dir/"_qs, {}, {} }, { u"dir/inner.txt.vx"_qs, {}, "inner" },
                                    { u"dir/sub/.deep"_qs, {}, "deep" }, { u"b.txt.vx"_qs, {}, "b" } }));
    const QString staging = m_encrypted + u"/OP/unpack"_qs;
    QDir().mkpath(staging);
    const auto result = SafeArchive::extract(zip, staging, 1LL << 30);
    QVERIFY(result.ok);
    QCOMPARE(result.entries.size(), 2);
    QCOMPARE(result.entries.at(0).name, QStringLiteral("a.txt.vx"));
    QCOMPARE(result.entries.at(1).name, QStringLiteral("b.txt.vx"));
    QCOMPARE(QDir(staging).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size(), 2);
    // ".." inside a folder entry is still an escape.
    QDir(staging).removeRecursively();
    QDir().mkpath(staging);
    QVERIFY(ZipWriter::write(zip, { { u"a.txt.vx"_qs, {}, "a" }, { u"dir/../../x.txt"_qs, {}, "x" } }));
    QCOMPARE(int(SafeArchive::extract(zip, staging, 1LL << 30).failure), int(SafeArchive::Failure::BadName));
    QVERIFY(QDir(staging).isEmpty());
}

void TestOperations::landingIsAllOrNothing()
{
    const QString staging = m_encrypted + u"/OP"_qs;
    QDir().mkpath(staging);
    write(staging + u"/0.part"_qs, "good");
    write(staging + u"/1.part"_qs, "too long");
    write(m_encrypted + u"/earlier.vx"_qs, "earlier");
    const QStringList before = snapshot(m_encrypted).filter(u"earlier"_qs);
    QString error;
    const auto landed = SafeArchive::landAll({ { staging + u"/0.part"_qs, u"good.txt.vx"_qs },
                                               { staging + u"/1.part"_qs, QString(300, u'n') + u".vx" } },
                                             m_encrypted, &error);
    QVERIFY(!landed);
    QVERIFY2(error.startsWith(QString(29, u'n') + QChar(0x2026) + QString(26, u'n') + u".vx: "), qPrintable(error));
    QVERIFY(!QFileInfo::exists(m_encrypted + u"/good.txt.vx"_qs));
    QCOMPARE(QDir(m_encrypted).entryList(QDir::Files), QStringList { u"earlier.vx"_qs });
    QCOMPARE(snapshot(m_encrypted).filter(u"earlier"_qs), before);
}

void TestOperations::landingWithoutHardLinks_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<int>("renameError"); // 0: the rename that never replaces works
    QTest::newRow("EPERM (FAT, exFAT)") << EPERM << 0;
    QTest::newRow("EOPNOTSUPP") << EOPNOTSUPP << 0;
    QTest::newRow("EMLINK") << EMLINK << 0;
    // Old kernels, network and FUSE file systems: an exclusive copy is left.
    QTest::newRow("no no-replace rename either (EINVAL)") << EPERM << EINVAL;
    QTest::newRow("no no-replace rename either (ENOSYS)") << EPERM << ENOSYS;
}

void TestOperations::landingWithoutHardLinks()
{
    QFETCH(int, error);
    QFETCH(int, renameError);
    linkErrno = error;
    renameErrno = renameError;
    SafeArchive::setLinkFunctionsForTesting(&failingLink, renameError ? &failingRename : nullptr);
    const QString staging = m_encrypted + u"/OP"_qs;
    QDir().mkpath(staging);
    write(staging + u"/0.part"_qs, "new a");
    QVERIFY(QFile::setPermissions(staging + u"/0.part"_qs, QFile::ReadOwner | QFile::WriteOwner));
    write(staging + u"/1.part"_qs, "new b");
    write(m_encrypted + u"/a.txt.vx"_qs, "old a");
    QString why;
    const auto landed = SafeArchive::landAll({ { staging + u"/0.part"_qs, u"a.txt.vx"_qs }, { staging + u"/1.part"_qs, u"b.txt.vx"_qs } },
                                             m_encrypted, &why);
    QVERIFY2(landed, qPrintable(why));
    QCOMPARE(*landed, (QStringList { m_encrypted + u"/a.txt (1).vx", m_encrypted + u"/b.txt.vx" }));
    QCOMPARE(read(m_encrypted + u"/a.txt.vx"_qs), QByteArray("old a"));
    QCOMPARE(read(m_encrypted + u"/a.txt (1).vx"_qs), QByteArray("new a"));
    QCOMPARE(read(m_encrypted + u"/b.txt.vx"_qs), QByteArray("new b"));
    QCOMPARE(modeOf(m_encrypted + u"/a.txt (1).vx"_qs), mode_t(0600)); // a copy keeps it private
    QVERIFY(QDir(staging).isEmpty());
}

void TestOperations::hostileRepliesAreRefusedWholeAndTold_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QString>("kind");
    for (const char* kind : { "escape", "absolute", "symlink", "corrupt", "empty", "longName", "controlChar", "leadingDot" })
        QTest::newRow(kind) << true << QString::fromLatin1(kind);
    QTest::newRow("decrypt longName") << false << "longName";
    QTest::newRow("decrypt symlink") << false << "symlink";
}

void TestOperations::hostileRepliesAreRefusedWholeAndTold()
{
    QFETCH(bool, encrypt);
    QFETCH(QString, kind);
    QString results;
    const auto task = goodFileTask(encrypt, &results);
    QVERIFY(task);
    write(results + u"/earlier.txt"_qs, "earlier");
    QVERIFY(m_sim->setFault({ { u"path"_qs, encrypt ? u"/encryptFile/"_qs : u"/decryptFile/"_qs }, { u"archive"_qs, kind } }));
    const QStringList before = snapshot(results);
    const LogCapture log;
    const auto result = runTask(*task);
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Failed));
    QCOMPARE(result.title, encrypt ? QStringLiteral("Encryption failed") : QStringLiteral("Decryption failed"));
    QVERIFY2(result.message.startsWith(prefixReplyNotSaved) && result.message.endsWith(u'.'), qPrintable(result.message));
    // The phone's names cannot garble the dialog or run past its edge.
    QVERIFY(result.message.size() < 200);
    const auto control = [](QChar c) { return c.unicode() < 0x20; };
    QVERIFY(std::none_of(result.message.begin(), result.message.end(), control));
    for (const QString& line : log.lines()) // nor forge log lines
        QVERIFY2(std::none_of(line.begin(), line.end(), control), qPrintable(line));
    QVERIFY(result.written.isEmpty());
    QCOMPARE(snapshot(results), before); // nothing partial, no operation folder
    QVERIFY(!QFileInfo::exists(u"/tmp/varnex-absolute.txt"_qs));
    QVERIFY(!QFileInfo::exists(results + u"/../escape.txt"_qs));
}

void TestOperations::harmlessExtrasOfAReply_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("landed"); // besides good.txt(.vx)
    QTest::newRow("encrypt, a sub-folder") << true << "subfolder" << QStringList {};
    QTest::newRow("decrypt, a sub-folder") << false << "subfolder" << QStringList {};
    // The encrypted-results folder takes the whole archive; decrypted results only match uploads.
    QTest::newRow("encrypt, an unmatched entry") << true << "unmatched" << QStringList { u"not-uploaded.bin"_qs };
    QTest::newRow("decrypt, an unmatched entry") << false << "unmatched" << QStringList {};
}

void TestOperations::harmlessExtrasOfAReply()
{
    QFETCH(bool, encrypt);
    QFETCH(QString, kind);
    QFETCH(QStringList, landed);
    QString results;
    const auto task = goodFileTask(encrypt, &results);
    QVERIFY(task);
    QVERIFY(m_sim->setFault({ { u"path"_qs, encrypt ? u"/encryptFile/"_qs : u"/decryptFile/"_qs }, { u"archive"_qs, kind } }));
    const auto result = runTask(*task);
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Succeeded));
    QVERIFY(result.title.isEmpty());
    landed.append(encrypt ? u"good.txt.vx"_qs : u"good.txt"_qs);
    landed.sort();
    // No folder, nothing from inside one, no operation folder left behind.
    QCOMPARE(QDir(results).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), landed);
    if (!encrypt)
        QCOMPARE(read(m_decrypted + u"/good.txt"_qs), QByteArray("good bytes"));
}

void TestOperations::freeSpaceLimits_data()
{
    QTest::addColumn<QString>("archive");
    QTest::addColumn<QList<qint64>>("free"); // what each look at the free space finds, beyond the reserve
    QTest::addColumn<bool>("sent");
    QTest::addColumn<QString>("message"); // empty: success
    const QString full = QStringLiteral("There is not enough free space in %1.");
    QTest::newRow("too little before sending") << QString() << QList<qint64> { 1000 } << false << full;
    QTest::newRow("reply outgrows the room") << QString() << QList<qint64> { 1LL << 30, 1000 } << true << full;
    QTest::newRow("content outgrows the room") << u"bomb"_qs << QList<qint64> { 1LL << 30, 1LL << 30, 50LL << 20 } << true << full;
    // 100 MiB from 100 KB is a thousand-fold: real files (logs, sparse images) do that.
    QTest::newRow("thousand-fold with room") << u"bomb"_qs << QList<qint64> { 1LL << 30 } << true << QString();
}

void TestOperations::freeSpaceLimits()
{
    QFETCH(QString, archive);
    QFETCH(QList<qint64>, free);
    QFETCH(bool, sent);
    QFETCH(QString, message);
    write(m_files + u"/a.txt"_qs, randomBytes(100000, 9));
    auto looks = std::make_shared<int>(0);
    OperationTask::setFreeSpaceProbeForTesting([free, looks](const QString&) {
        return OperationTask::reserveBytes + free.at(qMin<qsizetype>((*looks)++, free.size() - 1));
    });
    if (!archive.isEmpty())
        QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, archive } }));
    const QStringList before = snapshot(m_encrypted);
    // The row's own recipient tells its request from a late one of an earlier test.
    const QString recipient = QString::fromLatin1(QTest::currentDataTag()).remove(u' ') + u"@x;";
    EncryptTask encrypt({ m_files + u"/a.txt"_qs }, recipient, m_encrypted, url("/encryptFile/"));
    const auto result = runTask(encrypt);
    int requests = 0;
    for (const QJsonValue& request : m_sim->requests()) {
        const QJsonArray parts = request.toObject().value(u"parts").toArray();
        requests += !parts.isEmpty() && parts.at(0).toObject().value(u"value").toString() == recipient;
    }
    QCOMPARE(requests, sent ? 1 : 0);
    if (message.isEmpty()) {
        QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Succeeded));
        QCOMPARE(QFileInfo(m_encrypted + u"/bomb.bin"_qs).size(), 100LL * 1024 * 1024);
        return;
    }
    QCOMPARE(result.title, QStringLiteral("Encryption failed"));
    QCOMPARE(result.message, message.arg(m_encrypted));
    QCOMPARE(snapshot(m_encrypted), before);
}

void TestOperations::filesThatChangeWhileSentEndTheOperation_data()
{
    QTest::addColumn<qint64>("newSize");
    QTest::newRow("grows") << qint64(65 * 1024 * 1024);
    QTest::newRow("shrinks") << qint64(1024 * 1024);
}

void TestOperations::filesThatChangeWhileSentEndTheOperation()
{
    QFETCH(qint64, newSize);
    write(m_files + u"/big.bin"_qs, randomBytes(64 * 1024 * 1024, 5));
    const QStringList before = snapshot(m_encrypted);
    // The phone reads nothing until told: the upload stalls part-way, the file changes, then
    // the phone reads on.
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"hold"_qs, true } }));
    EncryptTask encrypt({ m_files + u"/big.bin"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    qint64 sent = 0;
    connect(&encrypt, &OperationTask::progress, this, [&sent](OperationTask::Stage, qint64 done) { sent = done; });
    QSignalSpy finished(&encrypt, &OperationTask::finished);
    encrypt.start();
    QTRY_VERIFY_WITH_TIMEOUT(sent > 0, 10000);
    QVERIFY(QFile::resize(m_files + u"/big.bin"_qs, newSize));
    m_sim->clearFaults();
    QVERIFY(finished.wait(30000));
    const auto result = finished.at(0).at(0).value<OperationTask::Result>();
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Failed));
    QCOMPARE(result.message, QStringLiteral("big.bin changed while it was being sent. Nothing was saved; please try again."));
    QCOMPARE(snapshot(m_encrypted), before);
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
        const auto outcome = MultipartUpload::send(url("/encryptFile/"), { { u"f"_qs, {}, path, u"f"_qs, u"text/plain"_qs } },
                                                   m_dir.filePath(u"reply.zip"_qs), {}, cancel);
        QFile::remove(m_dir.filePath(u"reply.zip"_qs));
        QCOMPARE(int(outcome.problem), int(MultipartUpload::Outcome::Problem::FileUnreadable));
        QVERIFY(clock.elapsed() < 5000);
    }
    EncryptTask encrypt({ fifo }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    QCOMPARE(runTask(encrypt).message, QStringLiteral("Connection timeout"));
    QVERIFY(QDir(m_encrypted).isEmpty());
    // Nothing malformed went out. (An earlier test's stalled request may still be logged late.)
    for (const QJsonValue& request : m_sim->requests()) {
        for (const QJsonValue& part : request.toObject().value(u"parts").toArray())
            QVERIFY(part.toObject().value(u"name").toString() != u"f" && part.toObject().value(u"name").toString() != u"pipe");
    }
}

void TestOperations::cancelReachesEveryStage_data()
{
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<int>("megabytes");
    QTest::addColumn<OperationTask::Stage>("stage");
    QTest::newRow("sending") << QJsonObject { { u"path"_qs, u"/encryptFile/"_qs }, { u"hold"_qs, true } } << 64
                             << OperationTask::Stage::Sending;
    QTest::newRow("waiting for the phone") << QJsonObject { { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } } << 0
                                           << OperationTask::Stage::Waiting;
    QTest::newRow("receiving") << QJsonObject { { u"path"_qs, u"/encryptFile/"_qs }, { u"stallAfterBytes"_qs, 100000 } } << 0
                               << OperationTask::Stage::Receiving;
}

void TestOperations::cancelReachesEveryStage()
{
    QFETCH(QJsonObject, fault);
    QFETCH(int, megabytes);
    QFETCH(OperationTask::Stage, stage);
    write(m_files + u"/f.bin"_qs, randomBytes(qMax(megabytes * 1024 * 1024, 1000), 6));
    const QStringList before = snapshot(m_encrypted);
    QVERIFY(m_sim->setFault(fault));
    EncryptTask encrypt({ m_files + u"/f.bin"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    QSignalSpy finished(&encrypt, &OperationTask::finished);
    bool reached = false;
    connect(&encrypt, &OperationTask::progress, this, [&reached, stage](OperationTask::Stage s) { reached |= s == stage; });
    encrypt.start();
    QTRY_VERIFY_WITH_TIMEOUT(reached, 5000);
    QElapsedTimer clock;
    clock.start();
    encrypt.cancel();
    QVERIFY(finished.wait(5000));
    // 200 ms is what the transfer loop promises; the margin is for a busy machine.
    QVERIFY2(clock.elapsed() < 700, qPrintable(QString::number(clock.elapsed())));
    const auto result = finished.at(0).at(0).value<OperationTask::Result>();
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Cancelled));
    QVERIFY(result.title.isEmpty()); // a cancel tells nothing
    QCOMPARE(snapshot(m_encrypted), before); // and leaves nothing
    m_sim->clearFaults();
}

void TestOperations::taskDestroyedWhileRunning()
{
    write(m_files + u"/f.txt"_qs, "bytes");
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    auto* encrypt = new EncryptTask({ m_files + u"/f.txt"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    QSignalSpy progress(encrypt, &OperationTask::progress);
    encrypt->start();
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty(), 5000);
    QVERIFY(!QDir(m_encrypted).isEmpty()); // the operation's folder
    // The worker is stopped before the members it reads go (AddressSanitizer would see it).
    QElapsedTimer clock;
    clock.start();
    delete encrypt;
    QVERIFY(clock.elapsed() < 1000);
    QVERIFY(QDir(m_encrypted).isEmpty());
    QTest::qWait(50); // a queued "finished" of the gone task must not arrive anywhere
    m_sim->clearFaults();
}

void TestOperations::refusalSurvivesADroppedConnection()
{
    write(m_files + u"/a.txt.vx"_qs, "bytes");
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"status"_qs, 400 }, { u"closeAfterBytes"_qs, 3 } }));
    DecryptTask decrypt({ { m_files + u"/a.txt.vx"_qs, true } }, m_decrypted, url("/decryptFile/"));
    const auto result = runTask(decrypt);
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Refused));
    QCOMPARE(result.message, QStringLiteral("Some of the files are encrypted for other users"));
}

QTEST_GUILESS_MAIN(TestOperations)
#include "tst_operations.moc"
