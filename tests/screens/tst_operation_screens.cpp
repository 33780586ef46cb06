#include "PairedPhone.h"
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "operations/OperationRun.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"
#include "widgets/ProgressOverlay.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

QStringList entries(const std::optional<QString>& folder, QDir::Filters filters = QDir::AllEntries)
{
    return QDir(*folder).entryList(filters | QDir::NoDotAndDotDot);
}

} // namespace

class TestOperationScreens : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_phone->pair(); }
    void encryptChecksRecipientsThenFiles();
    void operationsThatEndClearTheChoice_data();
    void operationsThatEndClearTheChoice();
    void cancelKeepsTheChoice();
    void mainThreadStaysResponsive();
    void screenDestroyedMidOperation();

private:
    PhoneServiceClient m_phoneService { Session::instance() };
    // Shows the screen with its recipients from the phone; with a `file` written and marked
    // and Ben Ortiz checked, ENCRYPT is on.
    void prepare(EncryptViewController& screen, const QString& file = {}, const QByteArray& data = "a");
    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PairedPhone> m_phone;
};

void TestOperationScreens::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_files = m_home.filePath(u"files"_qs);
    QDir().mkpath(m_files);
    m_phone = std::make_unique<PairedPhone>();
    QVERIFY(m_phone->isRunning());
}

void TestOperationScreens::prepare(EncryptViewController& screen, const QString& file, const QByteArray& data)
{
    screen.resize(1100, 650);
    screen.show();
    QTRY_VERIFY_WITH_TIMEOUT(screen.recipients()->store()->groups().size() >= 2, 5000);
    if (file.isEmpty())
        return;
    TestFiles::write(m_files + u'/' + file, data);
    RecipientsModel* recipients = screen.recipients()->model();
    recipients->clickRow(PairedPhone::userRow(recipients, u"ben.ortiz@example.com"_qs));
    screen.addFiles({ m_files + u'/' + file });
    screen.intakeList()->flip(0);
    QVERIFY(screen.encryptButton()->isEnabled());
}

void TestOperationScreens::encryptChecksRecipientsThenFiles()
{
    FakeDialogs dialogs;
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    prepare(screen);
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, u"No recipients selected"_qs);
    QCOMPARE(
        dialogs.shown.at(0).message, u"Please select at least one user or group to encrypt files for."_qs);
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Warning);
    AssociationsStore* store = screen.recipients()->store();
    store->toggleGroupChecked(PairedPhone::groupId(store, u"Family"_qs));
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.at(1).title, u"No files selected"_qs);
    QCOMPARE(dialogs.shown.at(1).message, u"Please select at least one file to encrypt."_qs);
    QVERIFY(!screen.overlay());
    QCOMPARE(m_phone->requests().size(), 2); // users and groups only: nothing was sent
}

void TestOperationScreens::operationsThatEndClearTheChoice_data()
{
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("dialog"); // the failure dialog's title, if any
    QTest::newRow("encrypted") << QJsonObject() << QString();
    QTest::newRow("failed") << QJsonObject { { u"path"_qs, u"*"_qs }, { u"status"_qs, 500 } }
                            << u"Encryption failed"_qs;
}

void TestOperationScreens::operationsThatEndClearTheChoice()
{
    QFETCH(QJsonObject, fault);
    QFETCH(QString, dialog);
    FakeDialogs dialogs;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    prepare(encrypt, u"report.pdf"_qs);
    AssociationsStore* store = encrypt.recipients()->store();
    store->toggleGroupChecked(PairedPhone::groupId(store, u"Family"_qs));
    const QString recipients = store->recipientsString();
    if (!fault.isEmpty())
        QVERIFY(m_phone->setFault(fault));
    QTest::mouseClick(encrypt.encryptButton(), Qt::LeftButton);
    QVERIFY(encrypt.overlay());
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 15000);
    QCOMPARE(dialogs.shown.size(), int(!dialog.isEmpty()));
    if (!dialog.isEmpty()) {
        QCOMPARE(dialogs.shown.at(0).title, dialog);
        QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Critical);
    }
    // Marks and user checks are cleared; checked groups stay for the next files.
    QVERIFY(!encrypt.filesToEncrypt().at(0)->isChecked);
    QVERIFY(!encrypt.isEncryptFilesEnabled());
    QCOMPARE(store->selectedRecipientEmails(),
        (QStringList { u"elena.rossi@example.it"_qs, u"julia.santos@example.br"_qs }));
    QCOMPARE(encrypt.lastResults().size(), int(dialog.isEmpty()));
    if (!dialog.isEmpty())
        return;
    QCOMPARE(m_phone->requests().last().toObject().value(u"parts").toArray().at(0).toObject().value(u"value"),
        recipients);
    // The result goes on to the Decrypt screen, which clears its marks in turn.
    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.show();
    decrypt.addFiles(encrypt.lastResults());
    decrypt.intakeList()->flip(0);
    QTest::mouseClick(decrypt.decryptButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!decrypt.overlay(), 15000);
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(!decrypt.filesToDecrypt().at(0)->isChecked);
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 1);
}

void TestOperationScreens::cancelKeepsTheChoice()
{
    FakeDialogs dialogs;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    prepare(encrypt, u"slow.txt"_qs);
    QVERIFY(m_phone->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QTRY_COMPARE_WITH_TIMEOUT(encrypt.overlay()->stageLabel()->text(), u"Waiting for the phone..."_qs, 10000);
    QVERIFY(encrypt.overlay()->accessibleDescription().contains(encrypt.overlay()->detailLabel()->text()));
    // The user gives up: the overlay goes, nothing is shown, the marks and the recipients stay.
    QTest::mouseClick(encrypt.overlay()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(encrypt.filesToEncrypt().at(0)->isChecked);
    QCOMPARE(encrypt.recipients()->store()->selectedRecipientEmails(),
        QStringList { u"ben.ortiz@example.com"_qs });
    QVERIFY(encrypt.isEncryptFilesEnabled());
}

void TestOperationScreens::mainThreadStaysResponsive()
{
    FakeDialogs dialogs;
    // 48 MiB in the suite; VARNEX_STALL_PROBE_MIB=1024 runs the full-size measurement.
    const int full = qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB");
    const qsizetype mib = full > 0 ? full : 48;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    prepare(encrypt, u"big.bin"_qs, TestFiles::randomBytes(mib * 1024 * 1024, 5));
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
    QObject::connect(encrypt.runningOperation(), &OperationRun::stageChanged, &probe,
        [&stage](const QString& text) { stage = text; });
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 600000);
    probe.stop();
    qInfo("longest main-thread stall during a %lld MiB encryption: %lld ms", qint64(mib), worst);
    // The full-size benchmark holds the 150 ms goal; the suite runs beside other work on a
    // loaded machine (or sanitized), so it allows scheduling noise but still fails when work
    // that takes seconds lands on this thread.
#ifdef VARNEX_SANITIZED
    const qint64 limit = 1500; // every step on this thread runs several times slower
#else
    const qint64 limit = full > 0 ? 150 : 500;
#endif
    QVERIFY2(worst < limit, qPrintable(QStringLiteral("stalled %1 ms").arg(worst)));
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(!stage.isEmpty());
}

void TestOperationScreens::screenDestroyedMidOperation()
{
    FakeDialogs dialogs;
    TestFiles::write(m_files + u"/a.txt.vx"_qs, "a");
    QVERIFY(m_phone->setFault({ { u"path"_qs, u"/decryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    auto* decrypt = new DecryptViewController(Session::instance(), DesktopNotifier::instance());
    decrypt->addFiles({ m_files + u"/a.txt.vx"_qs });
    decrypt->intakeList()->flip(0);
    decrypt->uploadForDecryption();
    QPointer<OperationTask> task = decrypt->runningOperation()->task();
    QVERIFY(task);
    QSignalSpy progress(task.data(), &OperationTask::progress);
    QTRY_VERIFY_WITH_TIMEOUT(progress.size() >= 2, 5000);
    // The window swapping back to pairing deletes the screen with its running task, whose
    // worker is joined on the way: whatever it posted is queued by now, and must go nowhere.
    delete decrypt;
    QVERIFY(!task);
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(entries(WorkingFolders::decryptedFilesFolder(), QDir::Dirs), QStringList());
}

QTEST_MAIN(TestOperationScreens)
#include "tst_operation_screens.moc"
