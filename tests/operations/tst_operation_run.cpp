#include "app/Session.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "operations/OperationRun.h"
#include "operations/OperationTask.h"

#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace TestFiles;

// An operation as a command line would drive it: no widget, only the run, the phone simulator
// and the folders on disk.
class TestOperationRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void encryptThenDecrypt_data();
    void encryptThenDecrypt();
    void failuresAreTold_data();
    void failuresAreTold();
    void waitingIsCountedUntilTheUserCancels();

private:
    OperationRun::Outcome finish(OperationRun* run);
    QStringList leftIn(const QString& folder) const
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    }

    QTemporaryDir m_dir;
    QString m_files;
    QString m_encrypted;
    QString m_decrypted;
    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<Session> m_session;
};

void TestOperationRun::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestOperationRun::init()
{
    m_files = m_dir.filePath(u"files"_qs);
    m_encrypted = m_dir.filePath(u"EncryptedFiles"_qs);
    m_decrypted = m_dir.filePath(u"DecryptedFiles"_qs);
    for (const QString& folder : { m_files, m_encrypted, m_decrypted }) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
    }
    m_sim->clearFaults();
    m_session = std::make_unique<Session>(m_sim->port());
    m_session->setPhoneIPAddress(u"127.0.0.1"_qs);
    m_session->setPhoneConnected(true);
}

OperationRun::Outcome TestOperationRun::finish(OperationRun* run)
{
    std::unique_ptr<OperationRun> owned(run);
    QSignalSpy finished(run, &OperationRun::finished);
    if (!run->isRunning())
        run->start();
    if (!finished.wait(20000))
        return { OperationTask::Outcome::Failed, u"timed out"_qs, {}, {}, {}, {}, false };
    return finished.at(0).at(0).value<OperationRun::Outcome>();
}

void TestOperationRun::encryptThenDecrypt_data()
{
    QTest::addColumn<QStringList>("names"); // sent in this order; the first one holds 3 MiB
    QTest::addColumn<QStringList>("taken"); // earlier results: E/ encrypted, D/ decrypted
    QTest::addColumn<int>("audience");
    QTest::addColumn<QStringList>("encrypted"); // the summary and the note
    QTest::addColumn<QStringList>("sent"); // the parts of the request, as the phone read them
    QTest::addColumn<QStringList>("decrypted");
    QTest::addColumn<QStringList>("returned");
    const QString type = u"type=MacOS(v1.0.0)"_qs;
    QTest::newRow("one file for one person")
        << QStringList { u"minutes.txt"_qs } << QStringList() << 1
        << QStringList { u"1 file encrypted for 1 person"_qs, u"minutes.txt.vx"_qs }
        << QStringList { u"emails=a@x.org;b@y.org;c@z.org;"_qs, type,
               u"minutes | minutes.txt | text/plain | 3145735"_qs }
        << QStringList { u"1 file decrypted"_qs, u"minutes.txt"_qs }
        << QStringList { type, u"minutes.txt | minutes.txt.vx | application/octet-stream | 3146970"_qs };
    // No extension, quotes, 252 bytes (".vx" fits within 255), and earlier results of the same
    // names in both folders: the counters must fit as well, both ways.
    const QString l = QString(248, u'l');
    const QString l1 = l.left(244) + u" (1)";
    QTest::newRow("four files for three people, their names taken")
        << QStringList { u"report.pdf"_qs, u"notes"_qs, u"say \"hi\".txt"_qs, l + u".txt" }
        << QStringList { u"E/report.pdf.vx"_qs, u"E/"_qs + l + u".txt.vx", u"D/report (1).pdf"_qs,
               u"D/"_qs + l1 + u".txt" }
        << 3
        << QStringList { u"4 files encrypted for 3 people"_qs,
               u"report (1).pdf.vx, notes.vx, say \"hi\".txt.vx, …"_qs }
        << QStringList { u"emails=a@x.org;b@y.org;c@z.org;"_qs, type,
               u"report (1) | report (1).pdf | application/pdf | 3145735"_qs,
               u" | notes | application/octet-stream | 14"_qs,
               u"say %22hi%22 | say %22hi%22.txt | text/plain | 21"_qs,
               l1 + u" | " + l1 + u".txt | text/plain | 261" }
        << QStringList { u"4 files decrypted"_qs, u"report (1) (1).pdf, notes, say \"hi\".txt, …"_qs }
        << QStringList { type, u"report (1).pdf | report (1).pdf.vx | application/octet-stream | 3146970"_qs,
               u"notes | notes.vx | application/octet-stream | 433"_qs,
               u"say %22hi%22.txt | say %22hi%22.txt.vx | application/octet-stream | 440"_qs,
               l1 + u".txt | " + l1 + u".txt.vx | application/octet-stream | 680" };
}

void TestOperationRun::encryptThenDecrypt()
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

    m_sim->clearRequests();
    OperationRun* encrypt
        = OperationRun::encrypt(*m_session, m_encrypted, sources, u"a@x.org;b@y.org;c@z.org;"_qs, audience);
    QSignalSpy progress(encrypt->task(), &OperationTask::progress);
    const auto sealed = finish(encrypt);
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
    QTEST(PhoneSimProcess::partsOf(request), "sent");

    m_sim->clearRequests();
    for (const QString& path : sealed.results)
        intake.append({ path, true });
    const auto opened = finish(OperationRun::decrypt(*m_session, m_decrypted, intake));
    QCOMPARE(QStringList({ opened.summary, opened.note.body }), decrypted);
    QVERIFY(opened.dialogTitle.isEmpty());
    QCOMPARE(opened.results.size(), names.size());
    for (int i = 0; i < names.size(); ++i) {
        QCOMPARE(read(opened.results.at(i)), contents.at(i));
        QCOMPARE(QFile::permissions(opened.results.at(i)),
            QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser
                | QFile::WriteUser); // plaintext is the user's alone
    }
    QTEST(PhoneSimProcess::partsOf(m_sim->requests().at(0)), "returned");
    // Earlier results untouched, and no operation folder left behind.
    for (const QString& earlier : taken)
        QCOMPARE(read((earlier.startsWith(u'E') ? m_encrypted : m_decrypted) + earlier.mid(1)),
            QByteArray("earlier"));
    QCOMPARE(leftIn(m_encrypted).size() + leftIn(m_decrypted).size(), 2 * names.size() + taken.size());
}

void TestOperationRun::failuresAreTold_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QJsonObject>("fault"); // empty: nothing listens
    QTest::addColumn<bool>("phoneLost"); // the phone goes away once the run is waiting
    QTest::addColumn<QString>("text"); // the title names the operation
    const auto fault = [](const char* key, const QJsonValue& value) {
        return QJsonObject { { u"path"_qs, u"*"_qs }, { QLatin1String(key), value } };
    };
    QJsonObject droppedRefusal = fault("status", 400);
    droppedRefusal.insert(u"closeAfterBytes", 3);
    const QString timeout = u"Connection timeout"_qs;
    const QString others = u"Some of the files are encrypted for other users"_qs;
    const QString lost
        = u"Contact with the phone was lost, so the operation was stopped. Nothing was changed: "
          "your files and the result folder are as they were."_qs;
    QTest::newRow("encrypt 500") << true << fault("status", 500) << false << timeout;
    QTest::newRow("encrypt 400") << true << fault("status", 400) << false << timeout;
    QTest::newRow("encrypt reply cut off") << true << fault("closeAfterBytes", 10) << false << timeout;
    QTest::newRow("encrypt refused") << true << QJsonObject() << false << timeout;
    QTest::newRow("decrypt 400") << false << fault("status", 400) << false << others;
    QTest::newRow("decrypt 400, connection dropped") << false << droppedRefusal << false << others;
    QTest::newRow("decrypt 500") << false << fault("status", 500) << false << timeout;
    QTest::newRow("decrypt refused") << false << QJsonObject() << false << timeout;
    QTest::newRow("phone lost while encrypting") << true << fault("noAnswer", true) << true << lost;
    QTest::newRow("phone lost while decrypting") << false << fault("noAnswer", true) << true << lost;
}

void TestOperationRun::failuresAreTold()
{
    QFETCH(bool, encrypt);
    QFETCH(QJsonObject, fault);
    QFETCH(bool, phoneLost);
    QFETCH(QString, text);
    Session nobody(1); // nothing listens on port 1
    nobody.setPhoneIPAddress(u"127.0.0.1"_qs);
    nobody.setPhoneConnected(true);
    const Session& session = fault.isEmpty() ? nobody : *m_session;
    QVERIFY(fault.isEmpty() || m_sim->setFault(fault));
    const QString file = m_files + u"/a.txt.vx"_qs;
    write(file, "sealed");
    const QString folder = encrypt ? m_encrypted : m_decrypted;
    OperationRun* run = encrypt ? OperationRun::encrypt(session, folder, { file }, u"a@x.org;"_qs, 1)
                                : OperationRun::decrypt(session, folder, { { file, true } });
    if (phoneLost) {
        run->start();
        QTRY_COMPARE_WITH_TIMEOUT(run->stageText(), u"Waiting for the phone..."_qs, 10000);
        m_session->setPhoneConnected(false);
    }
    const auto outcome = finish(run);
    QCOMPARE(outcome.outcome,
        text == u"Some of the files are encrypted for other users" ? OperationTask::Outcome::Refused
                                                                   : OperationTask::Outcome::Failed);
    QCOMPARE(outcome.stopped, phoneLost); // a lost phone leaves the user's choices for another try
    QCOMPARE(outcome.dialogTitle, encrypt ? u"Encryption failed"_qs : u"Decryption failed"_qs);
    QCOMPARE(outcome.dialogText, text);
    // The summary line and the notification say what the dialog says; a failure has nothing to
    // show, and leaves nothing behind.
    QCOMPARE(outcome.summary, outcome.dialogTitle);
    QCOMPARE(outcome.note.summary, outcome.dialogTitle);
    QCOMPARE(outcome.note.body, outcome.dialogText);
    QVERIFY(outcome.note.folder.isEmpty() && outcome.results.isEmpty());
    QCOMPARE(leftIn(m_encrypted) + leftIn(m_decrypted), QStringList());
}

void TestOperationRun::waitingIsCountedUntilTheUserCancels()
{
    write(m_files + u"/slow.txt"_qs, QByteArray(200'000, 's'));
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    OperationRun* run
        = OperationRun::encrypt(*m_session, m_encrypted, { m_files + u"/slow.txt"_qs }, u"a@x;"_qs, 1);
    QCOMPARE(run->stageText(), u"Connecting to the phone..."_qs); // no figures before the transfer measures
    run->start();
    QTRY_COMPARE_WITH_TIMEOUT(run->detailText(), u"Waiting for 0:00"_qs, 10000);
    QCOMPARE(run->stageText(), u"Waiting for the phone..."_qs);
    // Counted on while the phone is silent (a busy machine may skip a second).
    static const QRegularExpression later(u"^Waiting for 0:(0[1-9]|[1-5]\\d)$"_qs);
    QTRY_VERIFY_WITH_TIMEOUT(later.match(run->detailText()).hasMatch(), 10000);
    run->cancel();
    QCOMPARE(run->stageText(), u"Cancelling..."_qs);
    QCOMPARE(run->detailText(), QString());
    m_session->setPhoneConnected(false); // a loss after a cancel is still a cancel
    const auto outcome = finish(run);
    QVERIFY(outcome.cancelled() && outcome.stopped);
    QVERIFY(outcome.summary.isEmpty() && outcome.dialogTitle.isEmpty() && outcome.note.summary.isEmpty());
    QCOMPARE(leftIn(m_encrypted), QStringList());
}

QTEST_GUILESS_MAIN(TestOperationRun)
#include "tst_operation_run.moc"
