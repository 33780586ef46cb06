#include "app/Session.h"
#include "ZipWriter.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "operations/DecryptTask.h"
#include "operations/EncryptTask.h"
#include "operations/SafeArchive.h"
#include "operations/UniqueNames.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

void write(const QString& path, const QByteArray& data)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(data);
}

QByteArray read(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

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

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    generator.fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
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
    void leftoverOperationFoldersOnly();
    void roundTripThroughThePhone();
    void encryptWireFormat();
    void failuresBecomeTheirDialogs_data();
    void failuresBecomeTheirDialogs();
    void hostileRepliesLeaveTheResultsAlone_data();
    void hostileRepliesLeaveTheResultsAlone();
    void cancelMidUploadLeavesNoTrace();

private:
    QTemporaryDir m_dir;
    QString m_encrypted;
    QString m_decrypted;
    QString m_files;
    std::unique_ptr<PhoneSimProcess> m_sim;
    QString url(const char* path) const { return QStringLiteral("http://127.0.0.1:%1%2").arg(m_sim->port()).arg(QLatin1String(path)); }
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
    for (const char* kind : { "escape", "absolute", "symlink", "nested", "corrupt", "bomb", "truncated" })
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
    else if (kind == u"bomb")
        QVERIFY(ZipWriter::write(zip, { good, { u"bomb.bin"_qs, {}, {}, 50LL * 1024 * 1024 } }, true));
    else {
        QVERIFY(ZipWriter::write(zip, { good, { u"big.bin"_qs, {}, randomBytes(200000, 1) } }));
        QFile f(zip);
        QVERIFY(f.resize(f.size() - 120000));
    }
    const QString staging = m_encrypted + u"/OP/unpack";
    QDir().mkpath(staging);
    const QStringList before = snapshot(m_encrypted);
    const SafeArchive::Result result = SafeArchive::extract(zip, staging, 1LL << 40);
    QVERIFY(!result.ok);
    QVERIFY(!result.failure.isEmpty());
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

void TestOperations::leftoverOperationFoldersOnly()
{
    const QString id = OperationTask::makeOperationId();
    QCOMPARE(id, id.toUpper());
    QDir().mkpath(m_encrypted + u'/' + id + u"/unpack");
    write(m_encrypted + u'/' + OperationTask::makeOperationId() + u".zip", "z");
    QDir().mkpath(m_encrypted + u'/' + id.toLower()); // not one of ours
    write(m_encrypted + u"/report.pdf.vx"_qs, "keep");
    QDir().mkpath(m_encrypted + u"/My Folder"_qs);
    QCOMPARE(removeLeftoverOperationFolders(m_encrypted), 2);
    QCOMPARE(QDir(m_encrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3);
}

void TestOperations::roundTripThroughThePhone()
{
    const QByteArray report = randomBytes(3 * 1024 * 1024 + 7, 3);
    write(m_files + u"/report.pdf"_qs, report);
    write(m_files + u"/notes"_qs, "no extension here\n");
    write(m_encrypted + u"/report.pdf.vx"_qs, "an earlier result");

    EncryptTask encrypt({ m_files + u"/report.pdf"_qs, m_files + u"/notes"_qs }, u"amelia.clarke@example.com;"_qs, m_encrypted,
                        url("/encryptFile/"));
    QSignalSpy progress(&encrypt, &OperationTask::progress);
    const auto encrypted = runTask(encrypt);
    QCOMPARE(int(encrypted.outcome), int(OperationTask::Outcome::Succeeded));
    QVERIFY(encrypted.title.isEmpty());
    QVERIFY(progress.size() >= 2);
    QCOMPARE(QDir(m_encrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             (QStringList { u"notes.vx"_qs, u"report (1).pdf.vx"_qs, u"report.pdf.vx"_qs }));
    QCOMPARE(read(m_encrypted + u"/report.pdf.vx"_qs), QByteArray("an earlier result"));

    write(m_decrypted + u"/report (1).pdf"_qs, "an earlier result");
    const QList<DecryptTask::Intake> intake { { m_encrypted + u"/report (1).pdf.vx"_qs, true },
                                              { m_encrypted + u"/notes.vx"_qs, true },
                                              { m_encrypted + u"/report.pdf.vx"_qs, false } };
    DecryptTask decrypt(intake, m_decrypted, url("/decryptFile/"));
    const auto decrypted = runTask(decrypt);
    QCOMPARE(int(decrypted.outcome), int(OperationTask::Outcome::Succeeded));
    QCOMPARE(read(m_decrypted + u"/report (1) (1).pdf"_qs), report);
    QCOMPARE(read(m_decrypted + u"/notes"_qs), QByteArray("no extension here\n"));
    QCOMPARE(QDir(m_decrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3);
    QCOMPARE(QDir(m_encrypted).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 3); // no operation folder left
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

void TestOperations::hostileRepliesLeaveTheResultsAlone_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : { "escape", "absolute", "symlink", "corrupt", "empty", "bomb" })
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestOperations::hostileRepliesLeaveTheResultsAlone()
{
    QFETCH(QString, kind);
    write(m_files + u"/a.txt"_qs, "bytes");
    write(m_encrypted + u"/earlier.pdf.vx"_qs, "earlier");
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, kind } }));
    const QStringList before = snapshot(m_encrypted);
    EncryptTask encrypt({ m_files + u"/a.txt"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    const auto result = runTask(encrypt);
    QVERIFY(result.written.isEmpty());
    QCOMPARE(snapshot(m_encrypted), before);
    QVERIFY(!QFileInfo::exists(u"/tmp/varnex-absolute.txt"_qs));
    QVERIFY(!QFileInfo::exists(m_encrypted + u"/../escape.txt"_qs));
}

void TestOperations::cancelMidUploadLeavesNoTrace()
{
    write(m_files + u"/big.bin"_qs, randomBytes(64 * 1024 * 1024, 4));
    write(m_encrypted + u"/earlier.pdf.vx"_qs, "earlier");
    const QStringList before = snapshot(m_encrypted);
    // The phone takes its time before reading: the upload stalls part-way.
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"delayMs"_qs, 4000 } }));
    EncryptTask encrypt({ m_files + u"/big.bin"_qs }, u"a@x;"_qs, m_encrypted, url("/encryptFile/"));
    QSignalSpy progress(&encrypt, &OperationTask::progress);
    QSignalSpy finished(&encrypt, &OperationTask::finished);
    encrypt.start();
    QTRY_VERIFY_WITH_TIMEOUT(!progress.isEmpty(), 3000);
    encrypt.cancel();
    QVERIFY(finished.wait(5000));
    const auto result = finished.at(0).at(0).value<OperationTask::Result>();
    QCOMPARE(int(result.outcome), int(OperationTask::Outcome::Cancelled));
    QVERIFY(result.title.isEmpty()); // a cancel tells nothing
    QCOMPARE(snapshot(m_encrypted), before);
}

QTEST_GUILESS_MAIN(TestOperations)
#include "tst_operations.moc"
