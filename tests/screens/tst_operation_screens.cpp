#include "PairedPhone.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "files/ResultOrderModel.h"
#include "operations/OperationRun.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileTableView.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"
#include "widgets/ProgressOverlay.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QJsonArray>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

namespace {

// Saved to VARNEX_SCREENSHOT_DIR when it is set (docs/screenshots).
void keep(const QPixmap& picture, const QString& name)
{
    const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR");
    if (!out.isEmpty())
        QVERIFY(picture.save(out + u'/' + name + u".png"_qs));
}

// A notification as a desktop draws one, from what the service received: our icon and name
// (the desktop-entry hint), the summary, the body and the actions' labels.
QPixmap drawNotification(const QString& summary, const QString& body, const QStringList& actions)
{
    QFrame card;
    card.setStyleSheet(u"QFrame#card { background: #2b2b2b; border-radius: 10px; }"
                       "QLabel { color: #f0f0f0; } QPushButton { color: #f0f0f0; background: #3d3d3d;"
                       " border: none; border-radius: 6px; padding: 6px 14px; }"_qs);
    card.setObjectName(u"card"_qs);
    auto* layout = new QVBoxLayout(&card);
    auto* head = new QHBoxLayout;
    auto* icon = new QLabel;
    icon->setPixmap(QIcon(u":/images/varnex.svg"_qs).pixmap(20, 20));
    head->addWidget(icon);
    head->addWidget(new QLabel(u"Varnex Desktop"_qs));
    head->addStretch();
    layout->addLayout(head);
    auto* title = new QLabel(summary);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    layout->addWidget(title);
    layout->addWidget(new QLabel(body));
    auto* buttons = new QHBoxLayout;
    for (qsizetype i = 1; i < actions.size(); i += 2)
        buttons->addWidget(new QPushButton(actions.at(i)));
    buttons->addStretch();
    layout->addLayout(buttons);
    card.resize(380, card.sizeHint().height());
    card.setAttribute(Qt::WA_TranslucentBackground);
    return card.grab();
}

} // namespace

// The desktop's notification service, as the test plays it on its own session bus.
class FakeNotifications : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Shown
    {
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        uint id;
    };
    QList<Shown> shown;

public Q_SLOTS:
    uint Notify(const QString&, uint, const QString&, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap& hints, int)
    {
        const uint id = 40 + uint(shown.size());
        shown.append({ summary, body, actions, hints, id });
        return id;
    }
    QStringList GetCapabilities() { return { u"actions"_qs, u"body"_qs }; }
    void CloseNotification(uint) { }
};

// A file manager that can select items (org.freedesktop.FileManager1).
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shownItems;

public Q_SLOTS:
    void ShowItems(const QStringList& uris, const QString&) { shownItems.append(uris); }
};

// Operations driven through their screens against the simulator: what the screen checks first,
// what an ended operation leaves of the user's choice, the summary under the result list, the
// newest results first, and a desktop notification when the window was in the background,
// whose actions reach the file manager. Run on a private session bus (dbus-run-session).
class TestOperationScreens : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init()
    {
        m_phone->pair();
        m_notifications.shown.clear();
        m_fileManager.shownItems.clear();
    }
    void encryptChecksRecipientsThenFiles();
    void anOperationEndedInFront();
    void anOperationEndedInTheBackgroundIsNotified();
    void withoutAServiceTheWindowIsAlerted();
    void cancelKeepsTheChoice();
    void mainThreadStaysResponsive();
    void screenDestroyedMidOperation();

private:
    // Shows the screen with its recipients from the phone.
    void show(EncryptViewController& screen);
    // Writes `names` with `data`, lists and marks them and checks Ben Ortiz: ENCRYPT is on.
    void choose(
        EncryptViewController& screen, const QStringList& names, const QByteArray& data = "some words");
    // Chooses `names` and encrypts them through the button, until the operation ends.
    void encrypt(EncryptViewController& screen, const QStringList& names);
    void invoke(uint id, const QString& action);

    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PairedPhone> m_phone;
    QDBusConnection m_desktop { QString() };
    FakeNotifications m_notifications;
    FakeFileManager m_fileManager;
};

void TestOperationScreens::initTestCase()
{
    QCoreApplication::setApplicationVersion(u"1.0.0"_qs);
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_files = m_home.filePath(u"files"_qs);
    QDir().mkpath(m_files);
    m_phone = std::make_unique<PairedPhone>();
    QVERIFY(m_phone->isRunning());
    // The desktop's side on a connection of its own, as another process would be.
    m_desktop = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"desktop"_qs);
    QVERIFY2(m_desktop.isConnected(), "no session bus: run under dbus-run-session");
    QVERIFY(m_desktop.registerObject(
        u"/org/freedesktop/Notifications"_qs, &m_notifications, QDBusConnection::ExportAllSlots));
    QVERIFY(m_desktop.registerService(u"org.freedesktop.Notifications"_qs));
    QVERIFY(m_desktop.registerObject(
        u"/org/freedesktop/FileManager1"_qs, &m_fileManager, QDBusConnection::ExportAllSlots));
    QVERIFY(m_desktop.registerService(u"org.freedesktop.FileManager1"_qs));
}

void TestOperationScreens::show(EncryptViewController& screen)
{
    screen.resize(1100, 650);
    screen.show();
    QTRY_VERIFY_WITH_TIMEOUT(screen.recipients->store()->groups.size() >= 2, 5000);
}

void TestOperationScreens::choose(
    EncryptViewController& screen, const QStringList& names, const QByteArray& data)
{
    show(screen);
    AssociationsStore* store = screen.recipients->store();
    store->clickRow(PairedPhone::userRow(store, u"ben.ortiz@example.com"_qs));
    QStringList paths;
    for (const QString& name : names) {
        TestFiles::write(m_files + u'/' + name, data);
        paths.append(m_files + u'/' + name);
    }
    screen.addFiles(paths);
    screen.selectDeselectAll();
    QVERIFY(screen.encryptButton()->isEnabled());
}

void TestOperationScreens::encrypt(EncryptViewController& screen, const QStringList& names)
{
    choose(screen, names);
    QTest::mouseClick(screen.encryptButton(), Qt::LeftButton);
    QVERIFY(screen.overlay());
    // Until it ends, the last summary is gone.
    QVERIFY(!screen.widgets().resultSummary->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(!screen.overlay(), 15000);
}

void TestOperationScreens::invoke(uint id, const QString& action)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        u"/org/freedesktop/Notifications"_qs, u"org.freedesktop.Notifications"_qs, u"ActionInvoked"_qs);
    signal << id << action;
    QVERIFY(m_desktop.send(signal));
}

void TestOperationScreens::encryptChecksRecipientsThenFiles()
{
    FakeDialogs dialogs;
    EncryptViewController screen(Session::instance(), DesktopNotifier::instance());
    show(screen);
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, u"No recipients selected"_qs);
    QCOMPARE(
        dialogs.shown.at(0).message, u"Please select at least one user or group to encrypt files for."_qs);
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Warning);
    AssociationsStore* store = screen.recipients->store();
    store->toggleGroupChecked(PairedPhone::groupId(store, u"Family"_qs));
    screen.encryptFiles();
    QCOMPARE(dialogs.shown.at(1).title, u"No files selected"_qs);
    QCOMPARE(dialogs.shown.at(1).message, u"Please select at least one file to encrypt."_qs);
    QVERIFY(!screen.overlay());
    QCOMPARE(m_phone->requests().size(), 2); // users and groups only: nothing was sent
}

void TestOperationScreens::anOperationEndedInFront()
{
    FakeDialogs dialogs;
    EncryptViewController screen(Session::instance(), DesktopNotifier::instance());
    show(screen);
    screen.activateWindow();
    QTRY_VERIFY(screen.isActiveWindow());
    AssociationsStore* store = screen.recipients->store();
    store->toggleGroupChecked(PairedPhone::groupId(store, u"Family"_qs));
    choose(screen, { u"a.txt"_qs, u"b.txt"_qs, u"c.txt"_qs });
    const QString recipients = store->recipientsString();
    QTest::mouseClick(screen.encryptButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!screen.overlay(), 15000);
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(m_phone->requests().last()[u"parts"].toArray().at(0)[u"value"].toString(), recipients);
    // Marks and user checks are cleared; checked groups stay for the next files.
    QCOMPARE(screen.intakeList()->markedCount(), 0);
    QVERIFY(!screen.isEncryptFilesEnabled());
    QCOMPARE(store->selectedRecipientEmails(),
        (QStringList { u"elena.rossi@example.it"_qs, u"julia.santos@example.br"_qs }));
    // Seen by the user: no notification.
    QCOMPARE(m_notifications.shown.size(), 0);
    QVERIFY(screen.widgets().resultSummary->isVisible());
    QVERIFY(screen.widgets().showResultsButton->isVisible());
    QCOMPARE(screen.widgets().showResultsButton->accessibleName(), u"Show in folder"_qs);
    keep(screen.grab(), u"result-summary@1x-light"_qs);

    // The new results come first and highlighted, whatever the folder's order.
    FileTableView* table = screen.encryptedFilesTable();
    QAbstractItemModel* shown = table->model();
    QTRY_VERIFY(shown->rowCount() >= 3);
    QStringList first;
    for (int row = 0; row < 3; ++row) {
        const QModelIndex index = shown->index(row, 0);
        first.append(index.data(FileListModel::NameRole).toString());
        QVERIFY(index.data(ResultOrderModel::NewResultRole).toBool());
        QCOMPARE(index.data(Qt::AccessibleDescriptionRole).toString(), u"New"_qs);
    }
    QCOMPARE(first, (QStringList { u"a.txt"_qs, u"b.txt"_qs, u"c.txt"_qs }));
    // A dragged result carries its file, as other programs take it.
    const QString folder = *WorkingFolders::encryptedFilesFolder();
    std::unique_ptr<QMimeData> dragged(shown->mimeData({ shown->index(1, 0) }));
    QVERIFY(dragged);
    QCOMPARE(dragged->urls(), QList<QUrl> { QUrl::fromLocalFile(folder + u"/b.txt.vx"_qs) });
    QVERIFY(dragged->hasFormat(u"text/uri-list"_qs));

    // Show in folder: all three selected in the file manager.
    QTest::mouseClick(screen.widgets().showResultsButton, Qt::LeftButton);
    QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
    QCOMPARE(m_fileManager.shownItems.at(0).size(), 3);

    // The menu of a result row: Open, Show in folder, Copy path.
    const QRect row = table->visualRect(shown->index(2, 0));
    QContextMenuEvent menuEvent(
        QContextMenuEvent::Mouse, row.center(), table->viewport()->mapToGlobal(row.center()));
    QApplication::sendEvent(table->viewport(), &menuEvent);
    QMenu* menu = nullptr;
    QTRY_VERIFY(menu = table->findChild<QMenu*>(u"resultMenu"_qs));
    QStringList texts;
    for (QAction* action : menu->actions())
        texts.append(action->text());
    QCOMPARE(texts, (QStringList { u"Open"_qs, u"Show in folder"_qs, u"Copy path"_qs }));
    QTRY_VERIFY(menu->isVisible());
    QPixmap withMenu = screen.grab();
    {
        QPainter painter(&withMenu);
        painter.drawPixmap(screen.mapFromGlobal(menu->pos()), menu->grab());
    }
    keep(withMenu, u"result-menu@1x-light"_qs);
    menu->actions().at(2)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), folder + u"/c.txt.vx"_qs);
    menu->actions().at(1)->trigger();
    QTRY_COMPARE(m_fileManager.shownItems.size(), 2);
    QCOMPARE(m_fileManager.shownItems.at(1),
        QStringList { QUrl::fromLocalFile(folder + u"/c.txt.vx"_qs).toString() });
    menu->actions().at(0)->trigger();
    QCOMPARE(dialogs.opened, QStringList { folder + u"/c.txt.vx"_qs });
    menu->close();
    QTRY_VERIFY(!table->findChild<QMenu*>(u"resultMenu"_qs));
    // From the keyboard: the menu key opens the menu of the current row (the window system
    // turns the key into this event, at the current row, as offscreen does not).
    table->setFocus();
    table->setCurrentIndex(shown->index(1, 0));
    const QPoint at = table->inputMethodQuery(Qt::ImCursorRectangle).toRect().center();
    QContextMenuEvent key(QContextMenuEvent::Keyboard, at, table->mapToGlobal(at));
    QApplication::sendEvent(table, &key);
    QTRY_VERIFY(menu = table->findChild<QMenu*>(u"resultMenu"_qs));
    menu->actions().at(2)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), folder + u"/b.txt.vx"_qs);
    menu->close();
    // A double-click opens, as the eye does.
    QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, table->visualRect(shown->index(0, 0)).center());
    QCOMPARE(dialogs.opened.last(), folder + u"/a.txt.vx"_qs);

    // The results go on to the Decrypt screen, which clears its marks in turn.
    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.show();
    decrypt.addFiles(screen.lastResults());
    decrypt.selectDeselectAll();
    QTest::mouseClick(decrypt.decryptButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!decrypt.overlay(), 15000);
    QVERIFY(dialogs.shown.isEmpty());
    QCOMPARE(decrypt.intakeList()->markedCount(), 0);
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 3);

    // The next operation clears the summary and the highlight until it ends.
    screen.selectDeselectAll();
    screen.removeMarkedFiles();
    encrypt(screen, { u"d.txt"_qs });
    QCOMPARE(shown->index(0, 0).data(FileListModel::NameRole).toString(), u"d.txt"_qs);
    QVERIFY(!shown->index(1, 0).data(ResultOrderModel::NewResultRole).toBool());
}

void TestOperationScreens::anOperationEndedInTheBackgroundIsNotified()
{
    FakeDialogs dialogs;
    EncryptViewController screen(Session::instance(), DesktopNotifier::instance());
    show(screen);
    // The user turns to another window while the phone works.
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    QTRY_VERIFY(!screen.isActiveWindow());
    encrypt(screen, { u"minutes.txt"_qs });

    QTRY_COMPARE(m_notifications.shown.size(), 1);
    const FakeNotifications::Shown note = m_notifications.shown.at(0);
    QCOMPARE(note.body, u"minutes.txt.vx"_qs);
    QCOMPARE(note.hints.value(u"desktop-entry"_qs).toString(), u"org.varnex.Desktop"_qs);
    QCOMPARE(note.actions, (QStringList { u"show-folder"_qs, u"Show in folder"_qs, u"open"_qs, u"Open"_qs }));
    keep(drawNotification(note.summary, note.body, note.actions), u"notification@1x-light"_qs);

    // Another program's notification is none of ours; ours shows the file in the file manager.
    const QString result = *WorkingFolders::encryptedFilesFolder() + u"/minutes.txt.vx"_qs;
    QSignalSpy taken(&DesktopNotifier::instance(), &DesktopNotifier::actionTaken);
    invoke(note.id + 1000, u"show-folder"_qs);
    invoke(note.id, u"show-folder"_qs);
    QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
    QCOMPARE(m_fileManager.shownItems.at(0), QStringList { QUrl::fromLocalFile(result).toString() });
    QCOMPARE(taken.size(), 1);
    invoke(note.id, u"open"_qs);
    QTRY_COMPARE(dialogs.opened, QStringList { result });
    QCOMPARE(m_notifications.shown.size(), 1);
}

void TestOperationScreens::withoutAServiceTheWindowIsAlerted()
{
    // A note without a folder (a failure) offers nothing to show.
    DesktopNotifier::instance().notify({ u"Decryption failed"_qs, u"why"_qs, {}, {} });
    QTRY_COMPARE(m_notifications.shown.size(), 1);
    QCOMPARE(m_notifications.shown.at(0).actions, QStringList());
    QVERIFY(m_desktop.unregisterService(u"org.freedesktop.Notifications"_qs));
    int alerted = 0;
    DesktopNotifier::instance().notify({ u"1 file decrypted"_qs, {}, {}, {} }, [&alerted] { ++alerted; });
    QTRY_COMPARE(alerted, 1);
    QVERIFY(m_desktop.registerService(u"org.freedesktop.Notifications"_qs));
}

void TestOperationScreens::cancelKeepsTheChoice()
{
    FakeDialogs dialogs;
    EncryptViewController encrypt(Session::instance(), DesktopNotifier::instance());
    choose(encrypt, { u"slow.txt"_qs });
    QVERIFY(m_phone->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QTRY_COMPARE_WITH_TIMEOUT(encrypt.overlay()->stageLabel()->text(), u"Waiting for the phone..."_qs, 10000);
    // The user gives up: the overlay goes, nothing is shown, the marks and the recipients stay.
    QTest::mouseClick(encrypt.overlay()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(encrypt.filesToEncrypt().at(0)->isChecked);
    QCOMPARE(
        encrypt.recipients->store()->selectedRecipientEmails(), QStringList { u"ben.ortiz@example.com"_qs });
    QVERIFY(encrypt.isEncryptFilesEnabled());
}

void TestOperationScreens::mainThreadStaysResponsive()
{
    FakeDialogs dialogs;
    // 48 MiB in the suite; VARNEX_STALL_PROBE_MIB=1024 runs the full-size measurement.
    const int full = qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB");
    const qsizetype mib = full > 0 ? full : 48;
    EncryptViewController encrypt(Session::instance(), DesktopNotifier::instance());
    choose(encrypt, { u"big.bin"_qs }, TestFiles::randomBytes(mib * 1024 * 1024, 5));
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
    QVERIFY2(worst < limit, qPrintable(u"stalled %1 ms"_qs.arg(worst)));
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
    QCOMPARE(QDir(*WorkingFolders::decryptedFilesFolder()).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
        QStringList());
}

QTEST_MAIN(TestOperationScreens)
#include "tst_operation_screens.moc"
