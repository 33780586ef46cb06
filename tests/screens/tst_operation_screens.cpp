#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/PhoneSimProcess.h"
#include "common/Settle.h"
#include "operations/OperationTask.h"
#include "recipients/AssociationsStore.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"
#include "widgets/ProgressOverlay.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QLabel>
#include <QPushButton>
#include <QPointer>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

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

qint64 groupIdByName(AssociationsStore* store, const QString& name)
{
    for (const auto& g : store->groups) {
        if (g->name == name)
            return g->id;
    }
    return -1;
}

int userRow(AssociationsStore* store, const QString& email)
{
    for (int row = 0; row < store->associatedRowCount(); ++row) {
        const auto type = store->rowType(row);
        if (type && type->user && type->user->email == email)
            return row;
    }
    return -1;
}

} // namespace

class TestOperationScreens : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void encryptChecksRecipientsThenFiles();
    void roundTripThroughTheScreens();
    void failedEncryptionTellsAndFinishes();
    void overlayCountsTheWaitAndCancelsOnEscape();
    void mainThreadStaysResponsive();
    void cancelKeepsMarksAndRecipients();
    void hostileReplyIsToldNotSwallowed();
    void screenDestroyedMidOperation();

private:
    void waitForRecipients(EncryptViewController& screen);
    void readyToEncrypt(EncryptViewController& screen);
    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PhoneSimProcess> m_sim;
};

void TestOperationScreens::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_files = m_home.filePath(u"files"_qs);
    QDir().mkpath(m_files);
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestOperationScreens::init()
{
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, u"alex.morgan@example.com"_qs);
    Session::instance().setPhoneIPAddress(u"127.0.0.1"_qs);
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneConnected(true);
    m_sim->clearFaults();
    m_sim->clearRequests();
}

void TestOperationScreens::waitForRecipients(EncryptViewController& screen)
{
    screen.resize(1100, 650);
    screen.show();
    QTRY_VERIFY_WITH_TIMEOUT(screen.recipients->store()->groups.size() >= 2, 5000);
}

// One marked file, a.txt, and one recipient: ENCRYPT is on.
void TestOperationScreens::readyToEncrypt(EncryptViewController& screen)
{
    write(m_files + u"/a.txt"_qs, "a");
    waitForRecipients(screen);
    screen.recipients->store()->clickRow(userRow(screen.recipients->store(), u"ben.ortiz@example.com"_qs));
    screen.addFiles({ m_files + u"/a.txt"_qs });
    screen.intakeList()->flip(0);
}

void TestOperationScreens::encryptChecksRecipientsThenFiles()
{
    FakeDialogs dialogs;
    EncryptViewController screen;
    waitForRecipients(screen);
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("No recipients selected"));
    QCOMPARE(dialogs.shown.at(0).message, QStringLiteral("Please select at least one user or group to encrypt files for."));
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Warning);
    screen.recipients->store()->toggleGroupChecked(groupIdByName(screen.recipients->store(), u"Family"_qs));
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.at(1).title, QStringLiteral("No files selected"));
    QCOMPARE(dialogs.shown.at(1).message, QStringLiteral("Please select at least one file to encrypt."));
    QVERIFY(!screen.overlay());
    QCOMPARE(m_sim->requests().size(), 2); // users and groups only: nothing was sent
}

void TestOperationScreens::roundTripThroughTheScreens()
{
    FakeDialogs dialogs;
    const QByteArray report = QByteArray("quarterly numbers\n").repeated(50000);
    write(m_files + u"/report.pdf"_qs, report);
    write(*WorkingFolders::encryptedFilesFolder() + u"/report.pdf.vx"_qs, "an earlier result");
    EncryptViewController encrypt;
    waitForRecipients(encrypt);
    AssociationsStore* store = encrypt.recipients->store();
    store->toggleGroupChecked(groupIdByName(store, u"Family"_qs));
    store->clickRow(userRow(store, u"amelia.clarke@example.com"_qs));
    encrypt.addFiles({ m_files + u"/report.pdf"_qs });
    encrypt.intakeList()->flip(0);
    QVERIFY(encrypt.encryptButton()->isEnabled());
    QTest::mouseClick(encrypt.encryptButton(), Qt::LeftButton);
    QVERIFY(encrypt.overlay());
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 15000);
    QVERIFY(dialogs.shown.isEmpty());

    // What the phone received, and what the screen looks like afterwards.
    QJsonObject upload;
    for (const auto& r : m_sim->requests()) {
        if (r.toObject().value(u"path").toString() == u"/encryptFile/")
            upload = r.toObject();
    }
    const QJsonArray parts = upload.value(u"parts").toArray();
    QCOMPARE(parts.at(0).toObject().value(u"value").toString(),
             QStringLiteral("amelia.clarke@example.com;elena.rossi@example.it;julia.santos@example.br;"));
    QCOMPARE(parts.at(2).toObject().value(u"name").toString(), QStringLiteral("report (1)"));
    QVERIFY(QFileInfo::exists(*WorkingFolders::encryptedFilesFolder() + u"/report (1).pdf.vx"_qs));
    QTRY_VERIFY(std::any_of(encrypt.encryptedFiles().begin(), encrypt.encryptedFiles().end(),
                            [](const FilePtr& f) { return f->filePath->endsWith(u"report (1).pdf.vx"); }));
    QCOMPARE(encrypt.filesToEncrypt().size(), 1);
    QVERIFY(!encrypt.filesToEncrypt().at(0)->isChecked);
    QVERIFY(!encrypt.encryptButton()->isEnabled() && !encrypt.removeFilesButton->isEnabled());
    QCOMPARE(store->selectedRecipientEmails(), (QStringList { u"elena.rossi@example.it"_qs, u"julia.santos@example.br"_qs }));

    // Back again on the Decrypt screen.
    DecryptViewController decrypt;
    decrypt.show();
    decrypt.addFiles({ *WorkingFolders::encryptedFilesFolder() + u"/report (1).pdf.vx"_qs });
    decrypt.intakeList()->flip(0);
    QTest::mouseClick(decrypt.decryptButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!decrypt.overlay(), 15000);
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(read(*WorkingFolders::decryptedFilesFolder() + u"/report (1).pdf"_qs), report);
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 1);

    // The earlier result was never touched, and no operation folder is left.
    QCOMPARE(read(*WorkingFolders::encryptedFilesFolder() + u"/report.pdf.vx"_qs), QByteArray("an earlier result"));
    QCOMPARE(QDir(*WorkingFolders::decryptedFilesFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 1);
}

void TestOperationScreens::failedEncryptionTellsAndFinishes()
{
    FakeDialogs dialogs;
    write(m_files + u"/a.txt"_qs, "a");
    EncryptViewController encrypt;
    waitForRecipients(encrypt);
    AssociationsStore* store = encrypt.recipients->store();
    store->clickRow(userRow(store, u"ben.ortiz@example.com"_qs));
    encrypt.addFiles({ m_files + u"/a.txt"_qs });
    encrypt.intakeList()->flip(0);
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"status"_qs, 500 } }));
    encrypt.encryptFiles();
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Encryption failed"));
    QCOMPARE(dialogs.shown.at(0).message, QStringLiteral("Connection timeout"));
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Critical);
    QVERIFY(!encrypt.filesToEncrypt().at(0)->isChecked);
    QVERIFY(store->selectedRecipientEmails().isEmpty());
}

void TestOperationScreens::overlayCountsTheWaitAndCancelsOnEscape()
{
    FakeDialogs dialogs;
    write(m_files + u"/slow.txt"_qs, QByteArray(200'000, 's'));
    EncryptViewController encrypt;
    waitForRecipients(encrypt);
    AssociationsStore* store = encrypt.recipients->store();
    store->clickRow(userRow(store, u"ben.ortiz@example.com"_qs));
    encrypt.addFiles({ m_files + u"/slow.txt"_qs });
    encrypt.intakeList()->flip(0);
    // The phone takes its time: the overlay says how long it has been waiting, second by second.
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QLabel* detail = encrypt.overlay()->detailLabel();
    QTRY_VERIFY_WITH_TIMEOUT(detail->text().contains(u"0:01"_qs), 10000);
    QTRY_VERIFY_WITH_TIMEOUT(detail->text().contains(u"0:02"_qs), 5000);
    QVERIFY(encrypt.overlay()->accessibleDescription().contains(detail->text()));
    // Escape cancels: the overlay goes, nothing is shown, nothing is left behind.
    QTest::keyClick(encrypt.overlay()->cancelButton(), Qt::Key_Escape);
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    m_sim->clearFaults();
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(QDir(*WorkingFolders::encryptedFilesFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList());
}

void TestOperationScreens::mainThreadStaysResponsive()
{
    FakeDialogs dialogs;
    // 48 MiB in the suite; VARNEX_STALL_PROBE_MIB=1024 runs the full-size measurement.
    const qsizetype mib = qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB") > 0
        ? qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB") : 48;
    QByteArray big(mib * 1024 * 1024, Qt::Uninitialized);
    QRandomGenerator(5).fillRange(reinterpret_cast<quint32*>(big.data()), big.size() / 4);
    write(m_files + u"/big.bin"_qs, big);
    big.clear();
    EncryptViewController encrypt;
    waitForRecipients(encrypt);
    AssociationsStore* store = encrypt.recipients->store();
    store->clickRow(userRow(store, u"ben.ortiz@example.com"_qs));
    encrypt.addFiles({ m_files + u"/big.bin"_qs });
    encrypt.intakeList()->flip(0);
    // A probe timer: the longest gap between its ticks is the longest stall of this thread.
    QTimer probe;
    QElapsedTimer clock;
    qint64 last = 0;
    qint64 worst = 0;
    probe.setInterval(5);
    QObject::connect(&probe, &QTimer::timeout, &probe, [&] {
        const qint64 now = clock.elapsed();
        worst = qMax(worst, now - last);
        last = now;
    });
    QString stage;
    clock.start();
    probe.start();
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QObject::connect(encrypt.runningTask(), &OperationTask::progress, &probe,
                     [&encrypt, &stage] { stage = encrypt.overlay()->stageLabel()->text(); });
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 600000);
    probe.stop();
    qInfo("longest main-thread stall during a %lld MiB encryption: %lld ms", qint64(mib), worst);
    // The full-size benchmark holds the 150 ms goal; the suite runs beside other work on a
    // loaded machine (or sanitized), so it allows scheduling noise but still fails when work
    // that takes seconds lands on this thread.
    const qint64 limit = qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB") > 0 ? 150 : 500;
    QVERIFY2(worst < limit, qPrintable(QStringLiteral("stalled %1 ms").arg(worst)));
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(!stage.isEmpty());
}

void TestOperationScreens::cancelKeepsMarksAndRecipients()
{
    FakeDialogs dialogs;
    EncryptViewController encrypt;
    readyToEncrypt(encrypt);
    // The phone takes its time: the user gives up waiting.
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QTest::mouseClick(encrypt.overlay()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 5000);
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(encrypt.filesToEncrypt().at(0)->isChecked);
    QCOMPARE(encrypt.recipients->store()->selectedRecipientEmails(), QStringList { u"ben.ortiz@example.com"_qs });
    QVERIFY(encrypt.isOperationEnabled);
    m_sim->clearFaults();
}

void TestOperationScreens::hostileReplyIsToldNotSwallowed()
{
    FakeDialogs dialogs;
    EncryptViewController encrypt;
    readyToEncrypt(encrypt);
    const QStringList before = QDir(*WorkingFolders::encryptedFilesFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"archive"_qs, u"longName"_qs } }));
    encrypt.encryptFiles();
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Encryption failed"));
    QVERIFY(dialogs.shown.at(0).message.startsWith(u"The phone's reply could not be saved: "));
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Critical);
    QCOMPARE(QDir(*WorkingFolders::encryptedFilesFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), before);
}

void TestOperationScreens::screenDestroyedMidOperation()
{
    FakeDialogs dialogs;
    write(m_files + u"/a.txt.vx"_qs, "a");
    QVERIFY(m_sim->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    auto* decrypt = new DecryptViewController;
    decrypt->addFiles({ m_files + u"/a.txt.vx"_qs });
    decrypt->intakeList()->flip(0);
    decrypt->uploadForDecryption();
    QPointer<OperationTask> task = decrypt->runningTask();
    QVERIFY(task);
    QSignalSpy progress(task.data(), &OperationTask::progress);
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() >= 2, 5000);
    // The window swapping back to pairing deletes the screen with its running task.
    delete decrypt;
    QVERIFY(!task);
    QTest::qWait(50); // nothing of the gone task may arrive
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(QDir(*WorkingFolders::decryptedFilesFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot), QStringList());
    m_sim->clearFaults();
}

QTEST_MAIN(TestOperationScreens)
#include "tst_operation_screens.moc"
