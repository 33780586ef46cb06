#include "PairedPhone.h"
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "files/ResultOrderModel.h"
#include "operations/OperationRun.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileTableView.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"
#include "widgets/AnnouncedLabel.h"
#include "widgets/ProgressOverlay.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

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
bool dropOn(QWidget* target, const QStringList& paths, QPoint position)
{
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& p : paths)
        urls.append(QUrl::fromLocalFile(p));
    data.setUrls(urls);
    QDragEnterEvent enter(position, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDragMoveEvent move(position, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &move);
    if (!move.isAccepted())
        return false;
    QDropEvent dropEvent(
        QPointF(position), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &dropEvent);
    return dropEvent.isAccepted();
}

bool drop(FileTableView* table, const QStringList& paths, QPoint position)
{
    return dropOn(table->viewport(), paths, position);
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

// The Encrypt and Decrypt screens with the simulator as their phone: files dropped and chosen,
// what opens where, and operations driven through the screens: what the screen checks first,
// what an ended operation leaves of the user's choice, the summary under the result list, the
// newest results first, and a desktop notification when the window was in the background,
// whose actions reach the file manager. Run on a private session bus (dbus-run-session).
class TestFileScreens : public QObject
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
    void dropsAnywhereOnTheList();
    void oneDialogForSeveralRefusals();
    void pathsTheScreensOpen();
    void keyboardFocusIsVisible();
    void encryptChecksRecipientsThenFiles();
    void anOperationEndedInFront();
    void anOperationEndedInTheBackgroundIsNotified();
    void withoutAServiceTheWindowIsAlerted();
    void waitIsCountedAndCancelKeepsTheChoice();
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

    PhoneServiceClient m_phoneService { Session::instance() };
    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PairedPhone> m_phone;
    QDBusConnection m_desktop { QString() };
    FakeNotifications m_notifications;
    FakeFileManager m_fileManager;
};

void TestFileScreens::initTestCase()
{
    QCoreApplication::setApplicationVersion(u"1.0.0"_qs);
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_files = m_home.filePath(u"files"_qs);
    QDir().mkpath(m_files);
    for (const char* name : { "report.pdf", "photo.vx", "notes.txt", "budget.xlsx", "report.pdf.vx" })
        TestFiles::write(m_files + u'/' + QString::fromLatin1(name), QByteArray(2048, 'x'));
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

void TestFileScreens::show(EncryptViewController& screen)
{
    screen.resize(1100, 650);
    screen.show();
    QTRY_VERIFY_WITH_TIMEOUT(screen.recipients()->store()->groups().size() >= 2, 5000);
}

void TestFileScreens::choose(EncryptViewController& screen, const QStringList& names, const QByteArray& data)
{
    show(screen);
    RecipientsModel* recipients = screen.recipients()->model();
    recipients->clickRow(PairedPhone::userRow(recipients, u"ben.ortiz@example.com"_qs));
    QStringList paths;
    for (const QString& name : names) {
        TestFiles::write(m_files + u'/' + name, data);
        paths.append(m_files + u'/' + name);
    }
    screen.addFiles(paths);
    screen.selectDeselectAll();
    QVERIFY(screen.encryptButton()->isEnabled());
}

void TestFileScreens::encrypt(EncryptViewController& screen, const QStringList& names)
{
    choose(screen, names);
    QTest::mouseClick(screen.encryptButton(), Qt::LeftButton);
    QVERIFY(screen.overlay());
    // Until it ends, the last summary is gone.
    QVERIFY(!screen.widgets().resultSummary->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(!screen.overlay(), 15000);
}

void TestFileScreens::invoke(uint id, const QString& action)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        u"/org/freedesktop/Notifications"_qs, u"org.freedesktop.Notifications"_qs, u"ActionInvoked"_qs);
    signal << id << action;
    QVERIFY(m_desktop.send(signal));
}

void TestFileScreens::dropsAnywhereOnTheList()
{
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    FileTableView* table = screen.filesToEncryptTable();
    FakeDialogs dialogs;
    QVERIFY(drop(table, { m_files + u"/report.pdf"_qs }, QPoint(50, 5)));
    QCOMPARE(screen.filesToEncrypt().size(), 1);
    // Onto the middle of a row, and below the last one.
    const QRect row = table->visualRect(table->model()->index(0, 0));
    QVERIFY(drop(table, { m_files + u"/notes.txt"_qs }, row.center()));
    QVERIFY(drop(table, { m_files + u"/budget.xlsx"_qs }, QPoint(50, table->viewport()->height() - 5)));
    QCOMPARE(screen.filesToEncrypt().size(), 3);
    // On the panel around the list (its margin), as on the list.
    QWidget* panel = table->parentWidget();
    TestFiles::write(m_files + u"/extra.txt"_qs, "x");
    QVERIFY(dropOn(panel, { m_files + u"/report.pdf.vx"_qs, m_files + u"/extra.txt"_qs }, QPoint(2, 2)));
    QCOMPARE(TestFiles::fileNames(screen.filesToEncrypt()).last(), u"extra.txt"_qs);
    QTRY_COMPARE(dialogs.shown.size(), 1); // the encrypted one was refused
    // Never on a result table.
    QVERIFY(!drop(screen.encryptedFilesTable(), { m_files + u"/budget.xlsx"_qs }, QPoint(50, 5)));
    QVERIFY(screen.widgets().selectDeselectAllButton->isEnabled());
    // REMOVE takes the marked file, and goes off with the last mark.
    screen.intakeList()->flip(0);
    QCOMPARE(screen.widgets().removeFilesButton->property("state").toInt(), 1);
    QTest::mouseClick(screen.widgets().removeFilesButton, Qt::LeftButton);
    QCOMPARE(screen.filesToEncrypt().size(), 3);
    QCOMPARE(screen.widgets().removeFilesButton->property("state").toInt(), 0);
}

void TestFileScreens::oneDialogForSeveralRefusals()
{
    // Each refused file is named with its reason after the screen's sentence (a hand-over's
    // folder and missing file: tst_shell).
    FakeDialogs dialogs;
    // The Encrypt screen's sentence; a name that cannot take ".vx" within 255 bytes is
    // shortened in the middle.
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    const QString tooLong = QString(249, u'L') + u".txt";
    TestFiles::write(m_files + u'/' + tooLong, "x");
    encrypt.addFiles({ m_files + u'/' + tooLong, m_files + u"/photo.vx"_qs, m_files });
    QTRY_COMPARE(dialogs.shown.size(), 1);
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Some of the files cannot be added"));
    QCOMPARE(dialogs.shown.at(0).style, Dialogs::Style::Informational);
    QCOMPARE(dialogs.shown.at(0).message,
        u"You can only add files that aren't encrypted or uploaded\n\n"_qs + tooLong.left(36) + u'…'
            + tooLong.right(20)
            + u": name too long to add \".vx\" (255 bytes at most)\nphoto.vx: already encrypted\n"
            + QDir(m_files).dirName() + u": a folder");
    // A long list ends after 20 files with how many more there are.
    QStringList many;
    for (int i = 0; i < 25; ++i)
        many.append(m_files + u"/many" + QString::number(i) + u".vx");
    encrypt.addFiles(many);
    QTRY_COMPARE(dialogs.shown.size(), 2);
    const QStringList lines = dialogs.shown.at(1).message.split(u'\n');
    QCOMPARE(lines.size(), 2 + 20 + 1);
    QCOMPARE(lines.at(21), u"many19.vx: does not exist"_qs);
    QCOMPARE(lines.last(), u"and 5 more"_qs);
}

// Where the screens start the file chooser, and what the eye and the folder buttons open.
void TestFileScreens::pathsTheScreensOpen()
{
    const QString result = *WorkingFolders::decryptedFilesFolder() + u"/result.txt"_qs;
    TestFiles::write(result, "x");
    FakeDialogs dialogs;
    dialogs.filesToChoose = { m_files + u"/report.pdf"_qs };
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    encrypt.resize(1100, 650);
    encrypt.show();
    QVERIFY(QTest::qWaitForWindowExposed(&encrypt));
    QTest::mouseClick(encrypt.widgets().chooseFilesButton, Qt::LeftButton);
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::documentsFolder());
    FileTableView* table = encrypt.filesToEncryptTable();
    const QRect row = table->visualRect(table->model()->index(0, 0));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->cell()->previewRect(row).center());
    QTest::mouseClick(encrypt.widgets().openFolderButton, Qt::LeftButton);

    dialogs.filesToChoose = {}; // cancelled
    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.resize(1100, 650);
    decrypt.show();
    QVERIFY(QTest::qWaitForWindowExposed(&decrypt));
    decrypt.chooseFiles();
    QCOMPARE(dialogs.chooseFilesFolder, *WorkingFolders::encryptedFilesFolder());
    QVERIFY(decrypt.filesToDecrypt().isEmpty());
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 1);
    FileTableView* results = decrypt.decryptedFilesTable();
    const QRect resultRow = results->visualRect(results->model()->index(0, 0));
    QTest::mouseClick(
        results->viewport(), Qt::LeftButton, {}, results->cell()->previewRect(resultRow).center());
    decrypt.openVarnexFolder();
    QCOMPARE(dialogs.opened,
        (QStringList { m_files + u"/report.pdf"_qs, *WorkingFolders::encryptedFilesFolder(), result,
            *WorkingFolders::decryptedFilesFolder() }));
    QCOMPARE(encrypt.filesToEncrypt().at(0)->isChecked, false); // the eye does not mark
    QVERIFY(QFile::remove(result));
}

void TestFileScreens::keyboardFocusIsVisible()
{
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowActive(&screen));
    FileTableView* table = screen.filesToEncryptTable();
    QCOMPARE(table->focusPolicy(), Qt::NoFocus); // empty: no row to show the focus on
    screen.addFiles({ m_files + u"/report.pdf"_qs });
    QCOMPARE(table->focusPolicy(), Qt::StrongFocus);
    table->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(table->hasFocus());
    const QPoint frame = table->visualRect(table->currentIndex()).topLeft() + QPoint(3, 20);
    const auto colourAtFrame = [&] { return table->viewport()->grab().toImage().pixelColor(frame); };
    QCOMPARE(colourAtFrame(), FileCellDelegate::focusColor);
    screen.widgets().chooseFilesButton->setFocus();
    QTRY_VERIFY(!table->hasFocus());
    QCOMPARE(colourAtFrame(), QColor(Qt::white));
}

void TestFileScreens::encryptChecksRecipientsThenFiles()
{
    FakeDialogs dialogs;
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    show(screen);
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

void TestFileScreens::anOperationEndedInFront()
{
    FakeDialogs dialogs;
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    show(screen);
    screen.activateWindow();
    QTRY_VERIFY(screen.isActiveWindow());
    AssociationsStore* store = screen.recipients()->store();
    store->toggleGroupChecked(PairedPhone::groupId(store, u"Family"_qs));
    choose(screen, { u"a.txt"_qs, u"b.txt"_qs, u"c.txt"_qs });
    const QString recipients = store->recipientsString();
    // Beside the button, what it will do; Ctrl+Return does it, as its tool tip says.
    QCOMPARE(
        screen.widgets().operationLine->text(), u"3 of 3 files for Benjamin Ortiz and Family (3 people)"_qs);
    QCOMPARE(screen.encryptButton()->toolTip(), u"ENCRYPT (Ctrl+Return)"_qs);
    QSignalSpy requested(&screen, &FileScreen::operationRequested);
    QTest::keyClick(&screen, Qt::Key_Return, Qt::ControlModifier);
    QTRY_COMPARE(requested.size(), 1); // a shortcut presses its button after a short animation
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

    const auto menuOf = [](FileTableView* list, int row) {
        qDeleteAll(list->findChildren<QMenu*>()); // closed menus still waiting to go
        const QPoint at = list->visualRect(list->model()->index(row, 0)).center();
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, list->viewport()->mapToGlobal(at));
        QApplication::sendEvent(list->viewport(), &event);
        return list->findChild<QMenu*>(u"resultMenu"_qs);
    };
    // The menu of a result row: Open, Show in folder, Copy path, Send to Decrypt.
    QMenu* menu = nullptr;
    QVERIFY(menu = menuOf(table, 2));
    QStringList texts;
    for (QAction* action : menu->actions())
        texts.append(action->text());
    QCOMPARE(texts,
        (QStringList {
            u"Open"_qs, u"Show in folder"_qs, u"Copy path"_qs, QString(), u"Send to Decrypt"_qs }));
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

    // The results go on to the Decrypt screen from their menu, marked, with a damaged file: the
    // good ones land, their marks are cleared, and the damaged one is named with why and stays marked.
    const QString broken = m_files + u"/broken.txt.vx"_qs;
    TestFiles::write(broken, "not an encrypted file");
    DecryptViewController decrypt(Session::instance(), DesktopNotifier::instance());
    decrypt.resize(1100, 650);
    decrypt.show();
    decrypt.addFiles({ broken }, { broken });
    connect(&screen, &FileScreen::decryptRequested, &decrypt,
        [&](const QStringList& p) { decrypt.addFiles(p, p); });
    for (int row = 0; row < 3; ++row) {
        QVERIFY(menu = menuOf(table, row));
        menu->actions().last()->trigger();
    }
    QTRY_COMPARE(decrypt.intakeList()->markedCount(), 4);
    QTest::mouseClick(decrypt.decryptButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!decrypt.overlay(), 15000);
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 3);
    keep(decrypt.grab(), u"result-problems@1x-light"_qs);
    QCOMPARE(decrypt.lastFailed(), QStringList { broken });
    QCOMPARE(dialogs.shown.size(), 1); // the list of what did not land, as the run tells it
    const QString why = dialogs.shown.at(0).message.section(u": "_qs, 1);
    QVERIFY(!why.isEmpty());
    QCOMPARE(decrypt.widgets().resultSummary->text(), u"3 files decrypted, 1 could not be"_qs);
    QCOMPARE(TestFiles::fileNames(decrypt.filesToDecrypt()).at(0), u"broken.txt.vx"_qs);
    QVERIFY(decrypt.filesToDecrypt().at(0)->isChecked);
    QCOMPARE(decrypt.intakeList()->markedCount(), 1);
    QCOMPARE(decrypt.intakeModel()->index(0, 0).data(Qt::AccessibleDescriptionRole).toString(), why);
    QVERIFY(decrypt.widgets().detailsButton->isVisible());
    decrypt.widgets().detailsButton->setFocus();
    QTest::keyClick(decrypt.widgets().detailsButton, Qt::Key_Space);
    QCOMPARE(dialogs.shown.size(), 2);
    QCOMPARE(dialogs.shown.at(1).message, u"broken.txt.vx: "_qs + why);
    // Try again sends the damaged file alone, even after the user changed the marks.
    decrypt.selectDeselectAll();
    const qsizetype sent = m_phone->requests().size();
    QTest::mouseClick(decrypt.widgets().tryAgainButton, Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!decrypt.overlay(), 15000);
    QCOMPARE(m_phone->requests().size(), sent + 1);
    const QJsonArray parts = m_phone->requests().last()[u"parts"].toArray();
    QCOMPARE(parts.size(), 2); // the type and the one file
    QVERIFY(parts.at(1)[u"filename"].toString().startsWith(u"broken"));

    // A decrypted result goes to the desktop's trash once the user says so, and only then.
    FileTableView* decrypted = decrypt.decryptedFilesTable();
    const QString trashed = decrypted->model()->index(0, 0).data(FileListModel::PathRole).toString();
    for (int answer : { 1, 0 }) {
        dialogs.answers.enqueue(answer);
        QVERIFY(menu = menuOf(decrypted, 0));
        QCOMPARE(menu->actions().last()->text(), u"Move to Trash…"_qs);
        menu->actions().last()->trigger();
        QTRY_COMPARE(dialogs.ofKind(u"ask"_qs).size(), answer ? 1 : 2);
        QCOMPARE(dialogs.shown.last().options, (QStringList { u"Move to Trash"_qs, Dialogs::cancelText() }));
        QTRY_COMPARE(QFile::exists(trashed), bool(answer));
    }
    QVERIFY(QFile::exists(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + u"/Trash/files/"_qs + trashed.section(u'/', -1)));
    QTRY_COMPARE(decrypt.decryptedFiles().size(), 2);

    // The next operation clears the summary and the highlight until it ends.
    screen.selectDeselectAll();
    screen.removeMarkedFiles();
    encrypt(screen, { u"d.txt"_qs });
    QCOMPARE(shown->index(0, 0).data(FileListModel::NameRole).toString(), u"d.txt"_qs);
    QVERIFY(!shown->index(1, 0).data(ResultOrderModel::NewResultRole).toBool());
}

void TestFileScreens::anOperationEndedInTheBackgroundIsNotified()
{
    FakeDialogs dialogs;
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    show(screen);
    // The user turns to another window while the phone works.
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    QTRY_VERIFY(!screen.isActiveWindow());
    encrypt(screen, { u"minutes.txt"_qs });

    // Ours, once (an earlier test's may still come in over the bus on a slow machine).
    const auto ours = [this] {
        QList<FakeNotifications::Shown> found;
        for (const FakeNotifications::Shown& shown : std::as_const(m_notifications.shown)) {
            if (shown.body == u"minutes.txt.vx")
                found.append(shown);
        }
        return found;
    };
    QTRY_COMPARE(ours().size(), 1);
    const FakeNotifications::Shown note = ours().at(0);
    const qsizetype before = m_notifications.shown.size();
    QCOMPARE(note.hints.value(u"desktop-entry"_qs).toString(), u"org.varnex.Desktop"_qs);
    QCOMPARE(note.actions, (QStringList { u"show-folder"_qs, u"Show in folder"_qs, u"open"_qs, u"Open"_qs }));

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
    QCOMPARE(m_notifications.shown.size(), before);
}

void TestFileScreens::withoutAServiceTheWindowIsAlerted()
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

void TestFileScreens::waitIsCountedAndCancelKeepsTheChoice()
{
    FakeDialogs dialogs;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    choose(encrypt, { u"slow.txt"_qs });
    QVERIFY(m_phone->setFault({ { u"path"_qs, u"/encryptFile/"_qs }, { u"noAnswer"_qs, true } }));
    encrypt.encryptFiles();
    QVERIFY(encrypt.overlay());
    QTRY_COMPARE_WITH_TIMEOUT(encrypt.overlay()->stageLabel()->text(), u"Waiting for the phone..."_qs, 10000);
    // While the phone works the bar slides. (The time waited counting on is the run's:
    // tst_operations::endingWithoutResults, "cancel while waiting".)
    QProgressBar* bar = encrypt.overlay()->progressBar();
    QCOMPARE(bar->maximum(), 0);
    const QImage drawn = bar->grab().toImage();
    QTRY_VERIFY(bar->grab().toImage() != drawn);
    // The user gives up: the overlay goes, nothing is shown, the marks and the recipients stay.
    QTest::mouseClick(encrypt.overlay()->cancelButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(!encrypt.overlay(), 10000);
    QVERIFY(dialogs.shown.isEmpty());
    QVERIFY(encrypt.filesToEncrypt().at(0)->isChecked);
    QCOMPARE(encrypt.recipients()->store()->selectedRecipientEmails(),
        QStringList { u"ben.ortiz@example.com"_qs });
    QVERIFY(encrypt.isEncryptFilesEnabled());
}

void TestFileScreens::mainThreadStaysResponsive()
{
    FakeDialogs dialogs;
    // 48 MiB in the suite; VARNEX_STALL_PROBE_MIB=1024 runs the full-size measurement.
    const int full = qEnvironmentVariableIntValue("VARNEX_STALL_PROBE_MIB");
    const qsizetype mib = full > 0 ? full : 48;
    EncryptViewController encrypt(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
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

void TestFileScreens::screenDestroyedMidOperation()
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

QTEST_MAIN(TestFileScreens)
#include "tst_file_screens.moc"
