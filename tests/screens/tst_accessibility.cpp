// What a screen reader or a voice-control tool sees and does, through the QAccessible
// interfaces the Linux accessibility bus is fed from, and what a keyboard user gets.
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "files/FileListModel.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "screens/AboutViewController.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileScreen.h"
#include "screens/FileTableView.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QAccessibleValueInterface>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QToolTip>

namespace {

// Every accessibility event the program sends, as the bridge would receive them.
QList<std::pair<QAccessible::Event, QAccessible::State>> events;

void recordEvent(QAccessibleEvent* event)
{
    QAccessible::State changed;
    if (event->type() == QAccessible::StateChanged)
        changed = static_cast<QAccessibleStateChangeEvent*>(event)->changedStates();
    events.append({ event->type(), changed });
}

const QByteArray users = R"({"getUsers":[
    {"firstName":"Ann","lastName":"Lee","email":"ann@example.com","phone":"+44 20 7946 0000"},
    {"firstName":"Bo","lastName":"Chan","email":"bo@example.com","phone":"+1 555 0100"}]})";

GroupPtr group(qint64 id, const QString& name, int members)
{
    auto g = std::make_shared<GroupModel>();
    g->id = id;
    g->name = name;
    for (int i = 0; i < members; ++i)
        g->groupMembers.append({ id * 100 + i, u"Member "_qs + QString::number(i),
            u"m"_qs + QString::number(i) + u"@x"_qs, {} });
    return g;
}

void fillRecipients(AssociationsStore* store)
{
    QVERIFY(store->setUsersFromReply(users));
    store->setGroups({ group(7, u"Ops"_qs, 2) });
    store->rebuildAssociations();
}

// The first recipients row of a kind.
int firstRow(RecipientsModel* model, AssociatedUserRowType::Kind kind)
{
    for (int row = 0; row < model->rowCount(); ++row) {
        if (model->index(row).data(RecipientsModel::KindRole).toInt() == int(kind))
            return row;
    }
    return -1;
}

QAccessibleInterface* rowOf(QWidget* list, int row)
{
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(list);
    return iface ? iface->child(row) : nullptr;
}

// The interfaces under `root` that stand for something a person can act on or read.
void collectControls(QAccessibleInterface* iface, QList<QAccessibleInterface*>& out, int depth = 0)
{
    if (!iface || depth > 40 || iface->state().invisible)
        return;
    static const QList<QAccessible::Role> controls { QAccessible::Button, QAccessible::CheckBox,
        QAccessible::ComboBox, QAccessible::EditableText, QAccessible::List, QAccessible::ListItem,
        QAccessible::PageTab, QAccessible::ProgressBar, QAccessible::Graphic };
    if (controls.contains(iface->role()))
        out.append(iface);
    for (int i = 0; i < iface->childCount(); ++i)
        collectControls(iface->child(i), out, depth + 1);
}

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void everyControlHasAName_data();
    void everyControlHasAName();
    void rowsToggleThroughTheAccessibleAction_data();
    void rowsToggleThroughTheAccessibleAction();
    void groupRowsReportFolding();
    void recipientToolTipsByPlace_data();
    void recipientToolTipsByPlace();
    void customButtonEndsTheSameWayByEveryRoute_data();
    void customButtonEndsTheSameWayByEveryRoute();
    void tabPressNavigates();
    void overlayTellsItsProgressAndCancelsOnEscape();
    void keyboardKeepsItsPlace_data();
    void keyboardKeepsItsPlace();
    void tabOrderReachesEveryControl_data();
    void tabOrderReachesEveryControl();
    void keyboardOnlyJourney();
    void emptyListSaysWhatToDo();

private:
    QTemporaryDir m_home;
    QStringList m_files;
};

void TestAccessibility::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    QDir().mkpath(m_home.filePath(u"files"_qs));
    for (int i = 0; i < 40; ++i) {
        const QString name = m_home.filePath(u"files/file-%1.txt"_qs.arg(i, 2, 10, QChar(u'0')));
        QFile f(name);
        QVERIFY(f.open(QIODevice::WriteOnly));
        m_files.append(name);
        const QString vx = name + u".vx"_qs;
        QFile g(vx);
        QVERIFY(g.open(QIODevice::WriteOnly));
    }
    QAccessible::installUpdateHandler(recordEvent);
    QAccessible::setActive(true);
}

void TestAccessibility::init()
{
    events.clear();
}

void TestAccessibility::everyControlHasAName_data()
{
    QTest::addColumn<QString>("screen");
    QTest::newRow("encrypt") << u"encrypt"_qs;
    QTest::newRow("decrypt") << u"decrypt"_qs;
    QTest::newRow("about") << u"about"_qs;
    QTest::newRow("pairing") << u"pairing"_qs;
    QTest::newRow("overlay") << u"overlay"_qs;
}

void TestAccessibility::everyControlHasAName()
{
    QFETCH(QString, screen);
    QRCodeViewController::setAddressSourceForTesting([] {
        return QStringList { u"192.168.1.20"_qs, u"10.0.0.7"_qs };
    });
    std::unique_ptr<QWidget> window;
    if (screen == u"pairing") {
        window = std::make_unique<QRCodeViewController>();
    } else {
        auto* main = new MainViewController;
        window.reset(main);
        main->vc1->intakeList()->addFiles(m_files.mid(0, 3));
        main->vc2->intakeList()->addFiles({ m_files.at(0) + u".vx"_qs });
        fillRecipients(main->vc1->recipients->store());
        if (screen == u"decrypt")
            main->selectDecrypt();
        if (screen == u"about")
            main->selectAbout();
        if (screen == u"overlay")
            (new EncryptingViewController(main->vc1))->show();
    }
    window->resize(1100, 720);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));

    QList<QAccessibleInterface*> controls;
    collectControls(QAccessible::queryAccessibleInterface(window.get()), controls);
    QVERIFY(controls.size() >= (screen == u"pairing" ? 2 : screen == u"about" ? 3 : 5));
    for (QAccessibleInterface* control : std::as_const(controls)) {
        const QString name = control->text(QAccessible::Name).trimmed();
        QVERIFY2(!name.isEmpty(),
            qPrintable(u"no name: role %1, object %2"_qs.arg(int(control->role()))
                           .arg(QString::fromLatin1(
                               control->object() ? control->object()->metaObject()->className() : "row"))));
    }
    QRCodeViewController::setAddressSourceForTesting({});
}

void TestAccessibility::rowsToggleThroughTheAccessibleAction_data()
{
    QTest::addColumn<QString>("list");
    QTest::addColumn<QString>("action");
    QTest::newRow("file row, toggle") << u"files"_qs << QAccessibleActionInterface::toggleAction();
    QTest::newRow("file row, press") << u"files"_qs << QAccessibleActionInterface::pressAction();
    QTest::newRow("user row, toggle") << u"user"_qs << QAccessibleActionInterface::toggleAction();
    QTest::newRow("group row, press") << u"group"_qs << QAccessibleActionInterface::pressAction();
}

void TestAccessibility::rowsToggleThroughTheAccessibleAction()
{
    QFETCH(QString, list);
    QFETCH(QString, action);
    EncryptViewController screen;
    screen.resize(1100, 650);
    screen.intakeList()->addFiles(m_files.mid(0, 4));
    fillRecipients(screen.recipients->store());
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    const bool files = list == u"files";
    using Kind = AssociatedUserRowType::Kind;
    const int row
        = files ? 2 : firstRow(screen.recipients->model(), list == u"user" ? Kind::user : Kind::groupHeader);
    QVERIFY(row >= 0);
    QWidget* view
        = files ? static_cast<QWidget*>(screen.intakeTable) : screen.recipients->associatedUsersTable;
    auto marked = [&] {
        if (files)
            return screen.filesToEncrypt().at(row)->isChecked;
        return screen.recipients->model()->index(row).data(RecipientsModel::CheckedRole).toBool();
    };

    QAccessibleInterface* item = rowOf(view, row);
    QVERIFY(item);
    QCOMPARE(item->role(), QAccessible::ListItem);
    QVERIFY(!item->text(QAccessible::Name).isEmpty());
    QVERIFY(item->state().checkable);
    QVERIFY(!item->state().checked);
    QAccessibleActionInterface* actions = item->actionInterface();
    QVERIFY(actions);
    QVERIFY(actions->actionNames().contains(action));

    actions->doAction(action);
    QVERIFY(marked());
    // The same object still stands for the row and reports the new state.
    QCOMPARE(rowOf(view, row), item);
    QVERIFY(item->state().checked);
    // Only a platform with an accessibility bridge delivers events (not the offscreen one).
    if (QAccessible::isActive())
        QVERIFY(std::any_of(events.begin(), events.end(),
            [](const auto& e) { return e.first == QAccessible::StateChanged && e.second.checked; }));
    // The same rule as a click: a marked file switches REMOVE on.
    if (files)
        QVERIFY(screen.removeFilesButton->isEnabled());

    actions->doAction(action);
    QVERIFY(!marked());
    QVERIFY(!item->state().checked);
    if (files)
        QVERIFY(!screen.removeFilesButton->isEnabled());
}

void TestAccessibility::groupRowsReportFolding()
{
    EncryptViewController screen;
    fillRecipients(screen.recipients->store());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    RecipientsTableView* table = screen.recipients->associatedUsersTable;
    const int group = firstRow(screen.recipients->model(), AssociatedUserRowType::Kind::groupHeader);
    const int user = firstRow(screen.recipients->model(), AssociatedUserRowType::Kind::user);
    QAccessibleInterface* header = rowOf(table, group);
    QVERIFY(header->state().expandable);
    QVERIFY(header->state().collapsed);
    QVERIFY(!rowOf(table, user)->state().expandable); // a user row does not fold
    table->setFocus();
    table->setCurrentIndex(table->model()->index(group, 0));
    QTest::keyClick(table, Qt::Key_Right);
    QCOMPARE(table->model()->rowCount(), 5);
    header = rowOf(table, group);
    QVERIFY(header->state().expanded);
    QVERIFY(!header->state().collapsed);
    // Its options menu is one action away.
    QSignalSpy menu(table, &RecipientsTableView::menuClicked);
    header->actionInterface()->doAction(QAccessibleActionInterface::showMenuAction());
    QCOMPARE(menu.size(), 1);
    QCOMPARE(menu.first().first().toLongLong(), 7);
    if (QWidget* popup = QApplication::activePopupWidget())
        popup->close();
    // A member row carries no mark and offers nothing to toggle.
    QAccessibleInterface* member = rowOf(table, group + 1);
    QVERIFY(!member->state().checkable);
    QVERIFY(member->actionInterface()->actionNames().isEmpty());
    QCOMPARE(member->text(QAccessible::Name), u"Member 0"_qs);
}

void TestAccessibility::recipientToolTipsByPlace_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("place");
    QTest::addColumn<QString>("tip");
    const int user = int(AssociatedUserRowType::Kind::user);
    const int group = int(AssociatedUserRowType::Kind::groupHeader);
    QTest::newRow("user icon: summary")
        << user << u"info"_qs << u"Ann Lee\nann@example.com\n+44 20 7946 0000"_qs;
    QTest::newRow("user name: name") << user << u"text"_qs << u"Ann Lee"_qs;
    QTest::newRow("group menu: options") << group << u"menu"_qs << u"Group options"_qs;
    QTest::newRow("group name: name") << group << u"text"_qs << u"Ops"_qs;
}

void TestAccessibility::recipientToolTipsByPlace()
{
    QFETCH(int, kind);
    QFETCH(QString, place);
    EncryptViewController screen;
    fillRecipients(screen.recipients->store());
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    RecipientsTableView* table = screen.recipients->associatedUsersTable;
    const QModelIndex index
        = table->model()->index(firstRow(screen.recipients->model(), AssociatedUserRowType::Kind(kind)), 0);
    const QRect rect = table->visualRect(index);
    const QPoint at = place == u"info" ? table->cell()->infoRect(rect).center()
        : place == u"menu"             ? table->cell()->menuRect(rect).center()
                                       : QPoint(rect.center().x() - 20, rect.center().y());
    QHelpEvent help(QEvent::ToolTip, at, table->viewport()->mapToGlobal(at));
    QApplication::sendEvent(table->viewport(), &help);
    QFETCH(QString, tip);
    QTRY_COMPARE(QToolTip::text(), tip);
    QToolTip::hideText();
}

void TestAccessibility::customButtonEndsTheSameWayByEveryRoute_data()
{
    QTest::addColumn<QString>("route");
    QTest::addColumn<bool>("startsOn");
    for (bool on : { false, true }) {
        const char* state = on ? "on" : "off";
        QTest::addRow("mouse, %s", state) << u"mouse"_qs << on;
        QTest::addRow("space, %s", state) << u"space"_qs << on;
        QTest::addRow("click(), %s", state) << u"click"_qs << on;
        QTest::addRow("animateClick(), %s", state) << u"animateClick"_qs << on;
        QTest::addRow("accessible press, %s", state) << u"accessible"_qs << on;
    }
}

void TestAccessibility::customButtonEndsTheSameWayByEveryRoute()
{
    QFETCH(QString, route);
    QFETCH(bool, startsOn);
    QWidget window;
    auto* button = new CustomButton(&window);
    button->setTitle(u"ENCRYPT"_qs);
    button->setGeometry(10, 10, 160, 44);
    button->setChecked(startsOn);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QSignalSpy clicked(button, &QAbstractButton::clicked);
    QSignalSpy toggled(button, &QAbstractButton::toggled);
    if (route == u"mouse") {
        QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(80, 22));
    } else if (route == u"space") {
        button->setFocus();
        QTest::keyClick(button, Qt::Key_Space);
    } else if (route == u"click") {
        button->click();
    } else if (route == u"animateClick") {
        button->animateClick();
        QVERIFY(clicked.wait(2000));
    } else {
        QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(button);
        QCOMPARE(iface->text(QAccessible::Name), u"ENCRYPT"_qs);
        const QStringList actions = iface->actionInterface()->actionNames();
        QVERIFY(actions.contains(QAccessibleActionInterface::pressAction()));
        QVERIFY(!actions.contains(QAccessibleActionInterface::toggleAction()));
        iface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QTRY_COMPARE(clicked.size(), 1); // a press may arrive after a short animation
    }
    QCOMPARE(clicked.size(), 1);
    QCOMPARE(button->isChecked(), startsOn);
    QVERIFY(!button->isMouseDown());
    QCOMPARE(toggled.size() % 2, 0); // any flip was flipped back
}

void TestAccessibility::tabPressNavigates()
{
    MainViewController main;
    main.resize(1100, 720);
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    QAccessibleInterface* decrypt = QAccessible::queryAccessibleInterface(main.decryptButtonCustom);
    QAccessibleInterface* encrypt = QAccessible::queryAccessibleInterface(main.encryptButtonTest);
    QVERIFY(!encrypt->text(QAccessible::Description).isEmpty()); // the shown screen's tab says so
    QVERIFY(decrypt->text(QAccessible::Description).isEmpty());
    decrypt->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QCOMPARE(main.currentScreen(), main.vc2);
    QVERIFY(encrypt->text(QAccessible::Description).isEmpty());
    QVERIFY(!decrypt->text(QAccessible::Description).isEmpty());
    QVERIFY(!main.decryptButtonCustom->isChecked()); // the selected tab shows its normal look
    QVERIFY(main.encryptButtonTest->isChecked());
    // The same objects answer on the next lookup.
    QCOMPARE(QAccessible::queryAccessibleInterface(main.encryptButtonTest), encrypt);
    encrypt->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QCOMPARE(main.currentScreen(), main.vc1);
    QVERIFY(!main.encryptButtonTest->isChecked());
    QVERIFY(main.decryptButtonCustom->isChecked());
    QAccessibleInterface* operation = QAccessible::queryAccessibleInterface(main.vc1->operationButton);
    main.selectDecrypt();
    main.selectEncrypt();
    QCOMPARE(QAccessible::queryAccessibleInterface(main.vc1->operationButton), operation);
    QCOMPARE(operation->text(QAccessible::Name), u"ENCRYPT"_qs);
}

void TestAccessibility::overlayTellsItsProgressAndCancelsOnEscape()
{
    QWidget window;
    auto* screen = new QWidget(&window);
    screen->setGeometry(100, 80, 500, 400);
    auto* before = new QPushButton(u"before"_qs, screen);
    window.resize(900, 640);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    before->setFocus();
    auto* overlay = new EncryptingViewController(screen);
    overlay->show();
    // The whole window is dimmed, not only the screen.
    QCOMPARE(overlay->geometry(), window.rect());
    QTRY_VERIFY(overlay->cancelButton()->hasFocus());
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(overlay);
    QCOMPARE(iface->text(QAccessible::Name), u"ENCRYPTING"_qs);
    overlay->setStage(u"Sending 1.0 MB of 4.0 MB"_qs, 1, 4);
    overlay->setDetail(u"1.0 MB/s · 0:03 left"_qs);
    const QString first = iface->text(QAccessible::Description);
    QVERIFY(first.contains(u"Sending 1.0 MB of 4.0 MB"_qs));
    QVERIFY(first.contains(u"0:03 left"_qs));
    QAccessibleInterface* bar = QAccessible::queryAccessibleInterface(overlay->progressBar());
    QVERIFY(!bar->text(QAccessible::Name).isEmpty());
    const QVariant low = bar->valueInterface()->currentValue();
    overlay->setStage(u"Sending 3.0 MB of 4.0 MB"_qs, 3, 4);
    QVERIFY(iface->text(QAccessible::Description) != first);
    QVERIFY(bar->valueInterface()->currentValue().toInt() > low.toInt());
    if (QAccessible::isActive())
        QVERIFY(std::any_of(events.begin(), events.end(),
            [](const auto& e) { return e.first == QAccessible::DescriptionChanged; }));

    // Tab stays on the overlay; Escape cancels.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QVERIFY(overlay->cancelButton()->hasFocus());
    QSignalSpy cancel(overlay, &ProgressOverlay::cancelRequested);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    QCOMPARE(cancel.size(), 1);
    delete overlay;
    QTRY_VERIFY(before->hasFocus()); // the keyboard is back where it was
    // An overlay goes with its screen.
    QPointer<ProgressOverlay> orphan = new DecryptingViewController(screen);
    delete screen;
    QTRY_VERIFY(!orphan);
}

void TestAccessibility::keyboardKeepsItsPlace_data()
{
    QTest::addColumn<QString>("list");
    QTest::newRow("files") << u"files"_qs;
    QTest::newRow("recipients") << u"recipients"_qs;
}

void TestAccessibility::keyboardKeepsItsPlace()
{
    QFETCH(QString, list);
    const bool files = list == u"files";
    EncryptViewController screen;
    screen.resize(1100, 560);
    screen.intakeList()->addFiles(m_files);
    AssociationsStore* store = screen.recipients->store();
    if (!files) {
        QByteArray many = "{\"getUsers\":[";
        for (int i = 0; i < 40; ++i)
            many += QStringLiteral("%1{\"firstName\":\"P%2\",\"lastName\":\"Q\",\"email\":\"p%2@x\"}")
                        .arg(i ? u","_qs : QString())
                        .arg(i, 2, 10, QChar(u'0'))
                        .toUtf8();
        QVERIFY(store->setUsersFromReply(many + "]}"));
        store->rebuildAssociations();
    }
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    QAbstractItemView* view = files ? static_cast<QAbstractItemView*>(screen.intakeTable)
                                    : screen.recipients->associatedUsersTable;
    auto marked = [&](int row) {
        return view->model()->index(row, 0).data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
    };
    view->setFocus();
    view->setCurrentIndex(view->model()->index(30, 0));
    QCoreApplication::processEvents();
    const int scroll = view->verticalScrollBar()->value();
    QVERIFY(scroll > 0);

    QTest::keyClick(view, Qt::Key_Space);
    QVERIFY(marked(30));
    QCOMPARE(view->currentIndex().row(), 30);
    QCOMPARE(view->verticalScrollBar()->value(), scroll);
    QTest::keyClick(view, Qt::Key_Space); // the second Space works on the same row
    QVERIFY(!marked(30));
    QTest::keyClick(view, Qt::Key_Down); // and the arrows go on from there
    QCOMPARE(view->currentIndex().row(), 31);
    const int afterDown = view->verticalScrollBar()->value();
    QTest::keyClick(view, Qt::Key_Space);
    QVERIFY(marked(31));

    // Select/deselect all and a refresh that changes nothing keep the place too.
    if (files) {
        screen.selectDeselectAllButton->click();
        QVERIFY(marked(0));
        screen.intakeModel()->reload();
    } else {
        store->selectDeselectAll();
        QVERIFY(marked(0));
        store->applySearch(QString());
    }
    QCOMPARE(view->currentIndex().row(), 31);
    QCOMPARE(view->verticalScrollBar()->value(), afterDown);
}

void TestAccessibility::tabOrderReachesEveryControl_data()
{
    QTest::addColumn<bool>("decrypt");
    QTest::newRow("encrypt") << false;
    QTest::newRow("decrypt") << true;
}

void TestAccessibility::tabOrderReachesEveryControl()
{
    QFETCH(bool, decrypt);
    MainViewController main;
    main.resize(1100, 720);
    main.vc1->intakeList()->addFiles(m_files.mid(0, 2));
    main.vc2->intakeList()->addFiles({ m_files.at(0) + u".vx"_qs });
    main.vc2->intakeList()->flip(0);
    fillRecipients(main.vc1->recipients->store());
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    if (decrypt)
        main.selectDecrypt();
    // Every enabled control of the screen is reached by Tab before the chain repeats.
    FileScreen* screen = decrypt ? static_cast<FileScreen*>(main.vc2) : main.vc1;
    QList<QWidget*> wanted;
    wanted << main.encryptButtonTest << main.decryptButtonCustom << main.aboutButton
           << screen->chooseFilesButton << screen->selectDeselectAllButton << screen->intakeTable
           << screen->openFolderButton << screen->resultTable;
    if (decrypt)
        wanted << screen->removeFilesButton << screen->operationButton;
    else
        wanted << main.vc1->recipients->createGroupButton << main.vc1->recipients->searchTextField
               << main.vc1->recipients->associatedUsersTable;
    main.encryptButtonTest->setFocus();
    QSet<QWidget*> reached;
    for (int i = 0; i < 60 && reached.size() < wanted.size(); ++i) {
        reached.insert(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    for (QWidget* w : wanted)
        QVERIFY2(reached.contains(w), qPrintable(w->accessibleName() + u" / "_qs + w->objectName()));
}

// Moves the keyboard focus with Tab until `target` has it; false if it never comes.
static bool tabTo(QWidget* target)
{
    for (int i = 0; i < 60; ++i) {
        if (QApplication::focusWidget() == target)
            return true;
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    return QApplication::focusWidget() == target;
}

void TestAccessibility::keyboardOnlyJourney()
{
    // Add files, mark one, choose a recipient, encrypt, manage a group and go to Decrypt, with
    // nothing but keys, starting from the focused Encrypt tab.
    FakeDialogs dialogs;
    dialogs.filesToChoose = m_files.mid(0, 3);
    MainViewController main;
    main.resize(1100, 720);
    fillRecipients(main.vc1->recipients->store());
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    QApplication::setActiveWindow(&main);
    main.encryptButtonTest->setFocus();
    EncryptViewController* screen = main.vc1;

    QVERIFY(tabTo(screen->chooseFilesButton));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QTRY_COMPARE(screen->filesToEncrypt().size(), 3);
    QVERIFY(tabTo(screen->intakeTable));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QCOMPARE(screen->intakeList()->markedCount(), 1);
    RecipientsTableView* recipients = screen->recipients->associatedUsersTable;
    QVERIFY(tabTo(recipients));
    const int user = firstRow(screen->recipients->model(), AssociatedUserRowType::Kind::user);
    recipients->setCurrentIndex(recipients->model()->index(0, 0));
    for (int i = 0; i < user; ++i)
        QTest::keyClick(recipients, Qt::Key_Down);
    QTest::keyClick(recipients, Qt::Key_Space);
    QVERIFY(!screen->recipients->store()->selectedRecipientEmails().isEmpty());
    QVERIFY(screen->operationButton->isEnabled());

    // A group's options: Up to its row, Return opens the menu, Return on the first item.
    const int group = firstRow(screen->recipients->model(), AssociatedUserRowType::Kind::groupHeader);
    while (recipients->currentIndex().row() > group)
        QTest::keyClick(recipients, Qt::Key_Up);
    while (recipients->currentIndex().row() < group)
        QTest::keyClick(recipients, Qt::Key_Down);
    QTest::keyClick(recipients, Qt::Key_Return);
    QTRY_VERIFY(qobject_cast<QMenu*>(QApplication::activePopupWidget()));
    QMenu* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    QTest::keyClick(menu, Qt::Key_Down);
    QTest::keyClick(menu, Qt::Key_Return);
    QTRY_COMPARE(dialogs.ofKind(u"askText"_qs).size(), 1);
    QCOMPARE(dialogs.ofKind(u"askText"_qs).first().initialText, u"Ops"_qs); // the rename dialog
    // The keyboard stays on the list (the offscreen platform has no window manager to hand the
    // window its activation back after the popup, so the test does that part).
    QCOMPARE(main.focusWidget(), recipients);
    QApplication::setActiveWindow(&main);
    QTRY_COMPARE(QApplication::focusWidget(), recipients);

    // ENCRYPT starts the operation; Escape cancels it.
    QVERIFY(tabTo(screen->operationButton));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QVERIFY(screen->runningTask());
    if (screen->overlay()) {
        QTRY_VERIFY(!screen->overlay() || screen->overlay()->cancelButton()->hasFocus());
        if (screen->overlay())
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    }
    QTRY_VERIFY_WITH_TIMEOUT(!screen->runningTask(), 20000);

    QVERIFY(tabTo(main.decryptButtonCustom));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QCOMPARE(main.currentScreen(), main.vc2);
}

void TestAccessibility::emptyListSaysWhatToDo()
{
    // The hint painted in an empty intake list reaches a screen reader too, and goes with the
    // first file.
    DecryptViewController screen;
    screen.resize(1100, 650);
    screen.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screen));
    QAccessibleInterface* list = QAccessible::queryAccessibleInterface(screen.intakeTable);
    const QString hint = list->text(QAccessible::Description);
    QVERIFY(hint.contains(screen.chooseFilesButton->text()));
    QVERIFY(!list->text(QAccessible::Name).isEmpty());
    screen.intakeList()->addFiles({ m_files.at(0) + u".vx"_qs });
    QCOMPARE(list->childCount(), 1);
    QVERIFY(list->text(QAccessible::Description).isEmpty());
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
