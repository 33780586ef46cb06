#include "app/Session.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "common/TestFiles.h"
#include "operations/OperationRun.h"

#include <QDir>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<int>("audience");
    QTest::addColumn<QString>("encrypted");
    QTest::addColumn<QString>("encryptedNote");
    QTest::addColumn<QString>("decrypted");
    QTest::addColumn<QString>("decryptedNote");
    QTest::newRow("one file for one person")
        << QStringList { u"minutes.txt"_qs } << 1 << u"1 file encrypted for 1 person"_qs
        << u"minutes.txt.vx"_qs << u"1 file decrypted"_qs << u"minutes.txt"_qs;
    QTest::newRow("four files for three people")
        << QStringList { u"a.txt"_qs, u"b.txt"_qs, u"c.txt"_qs, u"d.txt"_qs } << 3
        << u"4 files encrypted for 3 people"_qs << u"a.txt.vx, b.txt.vx, c.txt.vx, …"_qs
        << u"4 files decrypted"_qs << u"a.txt, b.txt, c.txt, …"_qs;
}

void TestOperationRun::encryptThenDecrypt()
{
    QFETCH(QStringList, names);
    QFETCH(int, audience);
    QStringList sources;
    for (const QString& name : names) {
        TestFiles::write(m_files + u'/' + name, "words of " + name.toUtf8());
        sources.append(m_files + u'/' + name);
    }
    const auto encrypted = finish(OperationRun::encrypt(
        *m_session, m_encrypted, sources, u"ben.ortiz@example.com;a@x.org;c@y.org;"_qs, audience));
    QTEST(encrypted.summary, "encrypted");
    QVERIFY(encrypted.dialogTitle.isEmpty());
    QTEST(encrypted.note.body, "encryptedNote");
    QCOMPARE(encrypted.note.summary, encrypted.summary);
    QCOMPARE(encrypted.note.folder, m_encrypted);
    QCOMPARE(encrypted.note.files, encrypted.results);
    QCOMPARE(encrypted.results.size(), names.size());
    QCOMPARE(leftIn(m_encrypted).size(), names.size()); // the results and no operation folder

    QList<DecryptTask::Intake> intake;
    for (const QString& path : encrypted.results)
        intake.append({ path, true });
    const auto decrypted = finish(OperationRun::decrypt(*m_session, m_decrypted, intake));
    QTEST(decrypted.summary, "decrypted");
    QTEST(decrypted.note.body, "decryptedNote");
    QVERIFY(decrypted.dialogTitle.isEmpty());
    for (const QString& name : names)
        QCOMPARE(TestFiles::read(m_decrypted + u'/' + name), "words of " + name.toUtf8());
    QCOMPARE(leftIn(m_decrypted).size(), names.size());
}

void TestOperationRun::failuresAreTold_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<bool>("phoneLost"); // the phone goes away once the run is waiting
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    const QJsonObject noAnswer { { u"path"_qs, u"*"_qs }, { u"noAnswer"_qs, true } };
    const QString lost
        = u"Contact with the phone was lost, so the operation was stopped. Nothing was changed: "
          "your files and the result folder are as they were."_qs;
    QTest::newRow("error status") << true << QJsonObject { { u"path"_qs, u"*"_qs }, { u"status"_qs, 500 } }
                                  << false << u"Encryption failed"_qs << u"Connection timeout"_qs;
    QTest::newRow("phone lost while encrypting")
        << true << noAnswer << true << u"Encryption failed"_qs << lost;
    QTest::newRow("phone lost while decrypting")
        << false << noAnswer << true << u"Decryption failed"_qs << lost;
}

void TestOperationRun::failuresAreTold()
{
    QFETCH(bool, encrypt);
    QFETCH(QJsonObject, fault);
    QFETCH(bool, phoneLost);
    QVERIFY(m_sim->setFault(fault));
    const QString file = m_files + u"/a.txt.vx"_qs;
    TestFiles::write(file, "sealed");
    const QString folder = encrypt ? m_encrypted : m_decrypted;
    OperationRun* run = encrypt ? OperationRun::encrypt(*m_session, folder, { file }, u"a@x.org;"_qs, 1)
                                : OperationRun::decrypt(*m_session, folder, { { file, true } });
    if (phoneLost) {
        run->start();
        QTRY_COMPARE_WITH_TIMEOUT(run->stageText(), u"Waiting for the phone..."_qs, 10000);
        m_session->setPhoneConnected(false);
    }
    const auto outcome = finish(run);
    QCOMPARE(outcome.outcome, OperationTask::Outcome::Failed);
    QCOMPARE(outcome.stopped, phoneLost); // a lost phone leaves the user's choices for another try
    QTEST(outcome.dialogTitle, "title");
    QTEST(outcome.dialogText, "text");
    // The summary line and the notification say what the dialog says (its texts are the task's,
    // tested with it); a failure has nothing to show.
    QCOMPARE(outcome.summary, outcome.dialogTitle);
    QCOMPARE(outcome.note.summary, outcome.dialogTitle);
    QCOMPARE(outcome.note.body, outcome.dialogText);
    QVERIFY(outcome.note.folder.isEmpty() && outcome.results.isEmpty());
    QCOMPARE(leftIn(folder), QStringList());
}

void TestOperationRun::waitingIsCountedUntilTheUserCancels()
{
    TestFiles::write(m_files + u"/slow.txt"_qs, QByteArray(200'000, 's'));
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
