#include "PairedPhone.h"
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "files/ResultOrderModel.h"
#include "screens/EncryptViewController.h"
#include "screens/FileTableView.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>

namespace {

// Saved to VARNEX_SCREENSHOT_DIR when it is set (docs/screenshots).
void keep(const QPixmap& picture, const QString& name)
{
    const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR");
    if (!out.isEmpty())
        QVERIFY(picture.save(out + u'/' + name + QStringLiteral(".png")));
}

// A notification as a desktop draws one, from what the service received: our icon and name
// (the desktop-entry hint), the summary, the body and the actions' labels.
QPixmap drawNotification(const QString& summary, const QString& body, const QStringList& actions)
{
    QFrame card;
    card.setStyleSheet(
        QStringLiteral("QFrame#card { background: #2b2b2b; border-radius: 10px; }"
                       "QLabel { color: #f0f0f0; } QPushButton { color: #f0f0f0; background: #3d3d3d;"
                       " border: none; border-radius: 6px; padding: 6px 14px; }"));
    card.setObjectName(QStringLiteral("card"));
    auto* layout = new QVBoxLayout(&card);
    auto* head = new QHBoxLayout;
    auto* icon = new QLabel;
    icon->setPixmap(QIcon(QStringLiteral(":/images/varnex.svg")).pixmap(20, 20));
    head->addWidget(icon);
    head->addWidget(new QLabel(QStringLiteral("Varnex Desktop")));
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
        QString app;
        QString icon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        uint id;
    };
    QList<Shown> shown;

public Q_SLOTS:
    uint Notify(const QString& app, uint, const QString& icon, const QString& summary, const QString& body,
        const QStringList& actions, const QVariantMap& hints, int)
    {
        const uint id = 40 + uint(shown.size());
        shown.append({ app, icon, summary, body, actions, hints, id });
        return id;
    }
    QStringList GetCapabilities() { return { QStringLiteral("actions"), QStringLiteral("body") }; }
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

// What the user learns of an operation that ended: the summary under the result list, the
// newest results first, and a desktop notification when the window was in the background,
// whose actions reach the file manager. Run on a private session bus (dbus-run-session).
class TestNotifications : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init() { m_phone->pair(); }
    void aBackgroundOperationIsNotified();
    void inFrontTheSummarySaysIt();
    void withoutAServiceTheWindowIsAlerted();

private:
    PhoneServiceClient m_phoneService { Session::instance() };
    void encrypt(EncryptViewController& screen, const QStringList& names);
    void invoke(uint id, const QString& action);

    QTemporaryDir m_home;
    QString m_files;
    std::unique_ptr<PairedPhone> m_phone;
    QDBusConnection m_desktop { QString() };
    FakeNotifications m_notifications;
    FakeFileManager m_fileManager;
};

void TestNotifications::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(QStringLiteral("Documents")));
    m_files = m_home.filePath(QStringLiteral("files"));
    QDir().mkpath(m_files);
    m_phone = std::make_unique<PairedPhone>();
    QVERIFY(m_phone->isRunning());
    // The desktop's side on a connection of its own, as another process would be.
    m_desktop = QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("desktop"));
    QVERIFY2(m_desktop.isConnected(), "no session bus: run under dbus-run-session");
    QVERIFY(m_desktop.registerObject(
        QStringLiteral("/org/freedesktop/Notifications"), &m_notifications, QDBusConnection::ExportAllSlots));
    QVERIFY(m_desktop.registerService(QStringLiteral("org.freedesktop.Notifications")));
    QVERIFY(m_desktop.registerObject(
        QStringLiteral("/org/freedesktop/FileManager1"), &m_fileManager, QDBusConnection::ExportAllSlots));
    QVERIFY(m_desktop.registerService(QStringLiteral("org.freedesktop.FileManager1")));
}

void TestNotifications::encrypt(EncryptViewController& screen, const QStringList& names)
{
    screen.resize(1100, 650);
    screen.show();
    QTRY_VERIFY_WITH_TIMEOUT(screen.recipients()->store()->groups().size() >= 2, 5000);
    RecipientsModel* recipients = screen.recipients()->model();
    recipients->clickRow(PairedPhone::userRow(recipients, QStringLiteral("ben.ortiz@example.com")));
    QStringList paths;
    for (const QString& name : names) {
        TestFiles::write(m_files + u'/' + name, "some words");
        paths.append(m_files + u'/' + name);
    }
    screen.addFiles(paths);
    screen.selectDeselectAll();
    QTest::mouseClick(screen.encryptButton(), Qt::LeftButton);
    QVERIFY(screen.overlay());
    // Until it ends, the last summary is gone.
    QVERIFY(!screen.widgets().resultSummary->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(!screen.overlay(), 15000);
}

void TestNotifications::invoke(uint id, const QString& action)
{
    QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("ActionInvoked"));
    signal << id << action;
    QVERIFY(m_desktop.send(signal));
}

void TestNotifications::aBackgroundOperationIsNotified()
{
    FakeDialogs dialogs;
    m_notifications.shown.clear();
    m_fileManager.shownItems.clear();
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    // The user turns to another window while the phone works.
    QWidget elsewhere;
    elsewhere.show();
    elsewhere.activateWindow();
    QTRY_VERIFY(!screen.isActiveWindow());
    encrypt(screen, { QStringLiteral("minutes.txt") });

    QTRY_COMPARE(m_notifications.shown.size(), 1);
    const FakeNotifications::Shown note = m_notifications.shown.at(0);
    QCOMPARE(note.body, QStringLiteral("minutes.txt.vx"));
    QCOMPARE(
        note.hints.value(QStringLiteral("desktop-entry")).toString(), QStringLiteral("org.varnex.Desktop"));
    QCOMPARE(note.actions,
        (QStringList { QStringLiteral("show-folder"), QStringLiteral("Show in folder"),
            QStringLiteral("open"), QStringLiteral("Open") }));
    keep(drawNotification(note.summary, note.body, note.actions), QStringLiteral("notification@1x-light"));

    // Another program's notification is none of ours; ours shows the file in the file manager.
    const QString result = *WorkingFolders::encryptedFilesFolder() + QStringLiteral("/minutes.txt.vx");
    QSignalSpy taken(&DesktopNotifier::instance(), &DesktopNotifier::actionTaken);
    invoke(note.id + 1000, QStringLiteral("show-folder"));
    invoke(note.id, QStringLiteral("show-folder"));
    QTRY_COMPARE(m_fileManager.shownItems.size(), 1);
    QCOMPARE(m_fileManager.shownItems.at(0), QStringList { QUrl::fromLocalFile(result).toString() });
    QCOMPARE(taken.size(), 1);
    invoke(note.id, QStringLiteral("open"));
    QTRY_COMPARE(dialogs.opened, QStringList { result });
    QCOMPARE(m_notifications.shown.size(), 1);
}

void TestNotifications::inFrontTheSummarySaysIt()
{
    FakeDialogs dialogs;
    m_notifications.shown.clear();
    m_fileManager.shownItems.clear();
    EncryptViewController screen(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, NetworkClient::shared());
    screen.resize(1100, 650);
    screen.show();
    screen.activateWindow();
    QTRY_VERIFY(screen.isActiveWindow());
    const QStringList names { QStringLiteral("a.txt"), QStringLiteral("b.txt"), QStringLiteral("c.txt") };
    encrypt(screen, names);
    // Seen by the user: no notification.
    QCOMPARE(m_notifications.shown.size(), 0);
    QVERIFY(screen.widgets().resultSummary->isVisible());
    QVERIFY(screen.widgets().showResultsButton->isVisible());
    QCOMPARE(screen.widgets().showResultsButton->accessibleName(), QStringLiteral("Show in folder"));
    keep(screen.grab(), QStringLiteral("result-summary@1x-light"));

    // The new results come first and highlighted, whatever the folder's order.
    FileTableView* table = screen.encryptedFilesTable();
    QAbstractItemModel* shown = table->model();
    QTRY_VERIFY(shown->rowCount() >= 3);
    QStringList first;
    for (int row = 0; row < 3; ++row) {
        const QModelIndex index = shown->index(row, 0);
        first.append(index.data(FileListModel::NameRole).toString());
        QVERIFY(index.data(ResultOrderModel::NewResultRole).toBool());
        QCOMPARE(index.data(Qt::AccessibleDescriptionRole).toString(), QStringLiteral("New"));
    }
    QCOMPARE(
        first, (QStringList { QStringLiteral("a.txt"), QStringLiteral("b.txt"), QStringLiteral("c.txt") }));
    // A dragged result carries its file, as other programs take it.
    const QString folder = *WorkingFolders::encryptedFilesFolder();
    std::unique_ptr<QMimeData> dragged(shown->mimeData({ shown->index(1, 0) }));
    QVERIFY(dragged);
    QCOMPARE(dragged->urls(), QList<QUrl> { QUrl::fromLocalFile(folder + QStringLiteral("/b.txt.vx")) });
    QVERIFY(dragged->hasFormat(QStringLiteral("text/uri-list")));

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
    QTRY_VERIFY(menu = table->findChild<QMenu*>(QStringLiteral("resultMenu")));
    QStringList texts;
    for (QAction* action : menu->actions())
        texts.append(action->text());
    QCOMPARE(texts,
        (QStringList {
            QStringLiteral("Open"), QStringLiteral("Show in folder"), QStringLiteral("Copy path") }));
    QTRY_VERIFY(menu->isVisible());
    QPixmap withMenu = screen.grab();
    {
        QPainter painter(&withMenu);
        painter.drawPixmap(screen.mapFromGlobal(menu->pos()), menu->grab());
    }
    keep(withMenu, QStringLiteral("result-menu@1x-light"));
    menu->actions().at(2)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), folder + QStringLiteral("/c.txt.vx"));
    menu->actions().at(1)->trigger();
    QTRY_COMPARE(m_fileManager.shownItems.size(), 2);
    QCOMPARE(m_fileManager.shownItems.at(1),
        QStringList { QUrl::fromLocalFile(folder + QStringLiteral("/c.txt.vx")).toString() });
    menu->actions().at(0)->trigger();
    QCOMPARE(dialogs.opened, QStringList { folder + QStringLiteral("/c.txt.vx") });
    menu->close();
    QTRY_VERIFY(!table->findChild<QMenu*>(QStringLiteral("resultMenu")));
    // From the keyboard: the menu key opens the menu of the current row (the window system
    // turns the key into this event, at the current row, as offscreen does not).
    table->setFocus();
    table->setCurrentIndex(shown->index(1, 0));
    const QPoint at = table->inputMethodQuery(Qt::ImCursorRectangle).toRect().center();
    QContextMenuEvent key(QContextMenuEvent::Keyboard, at, table->mapToGlobal(at));
    QApplication::sendEvent(table, &key);
    QTRY_VERIFY(menu = table->findChild<QMenu*>(QStringLiteral("resultMenu")));
    menu->actions().at(2)->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), folder + QStringLiteral("/b.txt.vx"));
    menu->close();
    // A double-click opens, as the eye does.
    QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, table->visualRect(shown->index(0, 0)).center());
    QCOMPARE(dialogs.opened.last(), folder + QStringLiteral("/a.txt.vx"));

    // The next operation clears the summary and the highlight until it ends.
    screen.selectDeselectAll();
    screen.removeMarkedFiles();
    encrypt(screen, { QStringLiteral("d.txt") });
    QCOMPARE(shown->index(0, 0).data(FileListModel::NameRole).toString(), QStringLiteral("d.txt"));
    QVERIFY(!shown->index(1, 0).data(ResultOrderModel::NewResultRole).toBool());
}

void TestNotifications::withoutAServiceTheWindowIsAlerted()
{
    // A note without a folder (a failure) offers nothing to show.
    m_notifications.shown.clear();
    DesktopNotifier::instance().notify(
        { QStringLiteral("Decryption failed"), QStringLiteral("why"), {}, {} });
    QTRY_COMPARE(m_notifications.shown.size(), 1);
    QCOMPARE(m_notifications.shown.at(0).actions, QStringList());
    QVERIFY(m_desktop.unregisterService(QStringLiteral("org.freedesktop.Notifications")));
    int alerted = 0;
    DesktopNotifier::instance().notify(
        { QStringLiteral("1 file decrypted"), {}, {}, {} }, [&alerted] { ++alerted; });
    QTRY_COMPARE(alerted, 1);
    QVERIFY(m_desktop.registerService(QStringLiteral("org.freedesktop.Notifications")));
}

QTEST_MAIN(TestNotifications)
#include "tst_notifications.moc"
