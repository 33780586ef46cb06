// What a screen reader or a voice-control tool sees and does, through the QAccessible
// interfaces the Linux accessibility bus is fed from, and what a keyboard user gets.
#include "api/RecordDecoding.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/Parts.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "files/FileListModel.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "screens/AboutViewController.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileScreen.h"
#include "screens/FileTableView.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"
#include "widgets/Accessibility.h"
#include "widgets/AnnouncedLabel.h"
#include "widgets/CustomButton.h"
#include "widgets/ProgressOverlay.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QAccessibleValueInterface>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QToolTip>

namespace {

// Every accessibility event the program sends, as the bridge would receive them.
QList<std::pair<QAccessible::Event, QAccessible::State>> events;

// What the bridge would say for each state change and focus event: who, as what, and in which state.
struct Told
{
    QAccessible::Event type;
    QString name;
    QAccessible::Role role;
    QAccessible::State state;
    QAccessible::State changed;
};
QList<Told> told;

void recordEvent(QAccessibleEvent* event)
{
    QAccessible::State changed;
    if (event->type() == QAccessible::StateChanged)
        changed = static_cast<QAccessibleStateChangeEvent*>(event)->changedStates();
    events.append({ event->type(), changed });
    if (event->type() == QAccessible::StateChanged || event->type() == QAccessible::Focus) {
        if (QAccessibleInterface* iface = event->accessibleInterface())
            told.append(
                { event->type(), iface->text(QAccessible::Name), iface->role(), iface->state(), changed });
    }
}

// The names of the rows told that their mark changed, each with its new mark.
QMap<QString, bool> toldMarks()
{
    QMap<QString, bool> marks;
    for (const Told& t : std::as_const(told)) {
        if (t.type == QAccessible::StateChanged && t.changed.checked)
            marks.insert(t.name, t.state.checked);
    }
    return marks;
}

const QByteArray users = R"({"getUsers":[
    {"firstName":"Ann","lastName":"Lee","email":"ann@example.com","phone":"+44 20 7946 0000"},
    {"firstName":"Bo","lastName":"Chan","email":"bo@example.com","phone":"+1 555 0100"}]})";

// Ann and Bo, and the group Ops with two members of its own.
void fillRecipients(AssociationsStore* store)
{
    store->setUsers(RecordDecoding::usersBody(users).users.value());
    auto ops = std::make_shared<GroupModel>();
    ops->id = 7;
    ops->name = u"Ops"_qs;
    ops->groupMembers = { { 700, u"Member 0"_qs, u"m0@x"_qs, {} }, { 701, u"Member 1"_qs, u"m1@x"_qs, {} } };
    store->setGroups({ ops });
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

// True if walking down from `iface` reaches `wanted`, as assistive tools walk a window.
bool reaches(QAccessibleInterface* iface, QAccessibleInterface* wanted)
{
    for (int i = 0; iface && iface != wanted && i < iface->childCount(); ++i) {
        if (reaches(iface->child(i), wanted))
            return true;
    }
    return iface == wanted;
}

// Moves the keyboard focus with Tab until `target` has it; false if it never comes.
bool tabTo(QWidget* target)
{
    for (int i = 0; i < 60 && QApplication::focusWidget() != target; ++i)
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    return QApplication::focusWidget() == target;
}

// The names of the `wanted` widgets that Tab, going round from the focused one, never reaches.
QStringList missedByTab(const QList<QWidget*>& wanted)
{
    QSet<QWidget*> reached;
    for (int i = 0; i < 60; ++i) {
        reached.insert(QApplication::focusWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    }
    QStringList missed;
    for (QWidget* w : wanted) {
        if (!reached.contains(w))
            missed.append(w->accessibleName() + u" / "_qs + w->objectName());
    }
    return missed;
}

} // namespace

class TestAccessibility : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init()
    {
        Settings::open()->clear(); // checked groups are remembered: each test starts with none
        events.clear();
        told.clear();
    }
    void cleanup() { m_screen.reset(); }
    void groupRowsReportFolding();
    void onlyRowsWhoseMarkChangedAreTold_data();
    void onlyRowsWhoseMarkChangedAreTold();
    void recipientToolTipsByPlace_data();
    void recipientToolTipsByPlace();
    void tabsAreATabList();
    void overlayTellsItsProgressAndCancelsOnEscape();
    void keyboardKeepsItsPlace_data();
    void keyboardKeepsItsPlace();
    void keyboardOnlyJourney();
    void operationLineIsToldAsANotification();
    void destructiveQuestionsDefaultToCancel_data();
    void destructiveQuestionsDefaultToCancel();

private:
    // Shows the Encrypt screen with the first `files` test files and the recipients above.
    void showEncryptScreen(int files, int height = 650);
    QTemporaryDir m_home;
    QStringList m_files;
    std::unique_ptr<EncryptViewController> m_screen;
    // No phone: the screens show what they are given.
    TestServices m_app { Session::defaultPhoneServicePort, {}, TestServices::noAnswer };
};

void TestAccessibility::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    QDir().mkpath(m_home.filePath(u"files"_qs));
    for (int i = 0; i < 40; ++i) {
        m_files.append(m_home.filePath(u"files/file-%1.txt"_qs.arg(i, 2, 10, QChar(u'0'))));
        TestFiles::write(m_files.last(), {});
        TestFiles::write(m_files.last() + u".vx"_qs, {});
    }
    QAccessible::installUpdateHandler(recordEvent);
    QAccessible::setActive(true);
    // Without a platform bridge Qt sends nothing; what this program sends of its own is heard here.
    Accessibility::setListenerForTesting(recordEvent);
}

void TestAccessibility::showEncryptScreen(int files, int height)
{
    m_screen = std::make_unique<EncryptViewController>(
        m_app.session(), m_app.notifier, m_app.phoneService, m_app.api);
    m_screen->resize(1100, height);
    m_screen->intakeList()->addFiles(m_files.mid(0, files));
    fillRecipients(m_screen->recipients()->store());
    m_screen->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_screen.get()));
}

void TestAccessibility::groupRowsReportFolding()
{
    showEncryptScreen(0);
    RecipientsTableView* table = m_screen->recipients()->widgets().associatedUsersTable;
    const int group = firstRow(m_screen->recipients()->model(), AssociatedUserRowType::Kind::groupHeader);
    const int user = firstRow(m_screen->recipients()->model(), AssociatedUserRowType::Kind::user);
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
    // Pressed, it is marked, as a click on its box marks it.
    header->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QVERIFY(rowOf(table, group)->state().checked);
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
    showEncryptScreen(0);
    RecipientsTableView* table = m_screen->recipients()->widgets().associatedUsersTable;
    const int row = firstRow(m_screen->recipients()->model(), AssociatedUserRowType::Kind(kind));
    const QRect rect = table->visualRect(table->model()->index(row, 0));
    const QPoint at = place == u"info" ? table->cell()->infoRect(rect).center()
        : place == u"menu"             ? table->cell()->menuRect(rect).center()
                                       : QPoint(rect.center().x() - 20, rect.center().y());
    QHelpEvent help(QEvent::ToolTip, at, table->viewport()->mapToGlobal(at));
    QApplication::sendEvent(table->viewport(), &help);
    QFETCH(QString, tip);
    QTRY_COMPARE(QToolTip::text(), tip);
    QToolTip::hideText();
}

void TestAccessibility::tabsAreATabList()
{
    MainViewController main(m_app.services);
    main.resize(1100, 720);
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    QAccessibleInterface* encrypt
        = QAccessible::queryAccessibleInterface(part<CustomButton>(&main, "encryptTab"));
    QAccessibleInterface* decrypt
        = QAccessible::queryAccessibleInterface(part<CustomButton>(&main, "decryptTab"));
    // Page tabs in one page tab list, which the window's tree reaches.
    for (QAccessibleInterface* tab : { encrypt, decrypt }) {
        QCOMPARE(tab->role(), QAccessible::PageTab);
        QCOMPARE(tab->parent()->role(), QAccessible::PageTabList);
        QVERIFY(tab->state().selectable);
    }
    QAccessibleInterface* list = encrypt->parent();
    QCOMPARE(list->childCount(), 2);
    QCOMPARE(list->child(0), encrypt);
    QCOMPARE(list->indexOfChild(decrypt), 1);
    QVERIFY(reaches(QAccessible::queryAccessibleInterface(&main), encrypt));
    QVERIFY(reaches(QAccessible::queryAccessibleInterface(&main), decrypt));
    const auto selected = [&] {
        QStringList which;
        if (encrypt->state().selected)
            which << u"encrypt"_qs;
        if (decrypt->state().selected)
            which << u"decrypt"_qs;
        return which.join(u',');
    };
    QCOMPARE(selected(), u"encrypt"_qs);
    // Orca speaks a focused tab by its name and role only: the shown one says so in its name.
    QCOMPARE(encrypt->text(QAccessible::Name) + u'|' + decrypt->text(QAccessible::Name),
        u"ENCRYPT, selected|DECRYPT"_qs);

    // Pressed by assistive technology: the other screen, the other tab selected, and told so.
    decrypt->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
    QCOMPARE(main.currentScreen(), main.decryptScreen());
    QCOMPARE(selected(), u"decrypt"_qs);
    QVERIFY(std::any_of(told.begin(), told.end(), [](const Told& t) {
        return t.type == QAccessible::StateChanged && t.role == QAccessible::PageTab && t.state.selected;
    }));
    QCOMPARE(QAccessible::queryAccessibleInterface(part<CustomButton>(&main, "encryptTab")), encrypt);

    // The arrow keys go round the tabs and select the one they reach; About selects none.
    part<CustomButton>(&main, "decryptTab")->setFocus();
    for (const auto& [key, name] : { std::pair { Qt::Key_Right, u"encrypt"_qs },
             { Qt::Key_Left, u"decrypt"_qs }, { Qt::Key_Home, u"encrypt"_qs } }) {
        QTest::keyClick(QApplication::focusWidget(), key);
        QCOMPARE(QApplication::focusWidget()->objectName() + u' ' + selected(), name + u"Tab "_qs + name);
        QCOMPARE(main.currentScreen()->objectName(),
            name == u"encrypt" ? u"EncryptViewController"_qs : u"DecryptViewController"_qs);
    }
    main.selectAbout();
    QCOMPARE(selected(), QString());
    // Tab still leaves the tabs for the next control.
    part<CustomButton>(&main, "decryptTab")->setFocus();
    QTest::keyClick(part<CustomButton>(&main, "decryptTab"), Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), part<QToolButton>(&main, "aboutButton"));
}

void TestAccessibility::onlyRowsWhoseMarkChangedAreTold_data()
{
    QTest::addColumn<bool>("files");
    QTest::addColumn<QString>("route");
    for (const char* route : { "space", "click", "select all", "rebuild" }) {
        QTest::addRow("files, %s", route) << true << QString::fromLatin1(route);
        QTest::addRow("recipients, %s", route) << false << QString::fromLatin1(route);
    }
    QTest::newRow("files, click beside the box") << true << u"row click"_qs; // the whole row marks
    // Thousands of rows marked at once would be thousands of events: once, for the range.
    QTest::newRow("files, select all of many") << true << u"select all of many"_qs;
    // What an assistive tool does: the row's own action.
    QTest::newRow("files, toggle action") << true << u"toggle action"_qs;
    QTest::newRow("files, press action") << true << u"press action"_qs;
    QTest::newRow("recipients, toggle action") << false << u"toggle action"_qs;
    QTest::newRow("recipients, space unchecks")
        << false << u"space on the marked"_qs; // told as "not checked"
}

void TestAccessibility::onlyRowsWhoseMarkChangedAreTold()
{
    // Whatever changes marks, each row whose mark changed is told its new state once, and no
    // other row is told anything.
    QFETCH(bool, files);
    QFETCH(QString, route);
    const bool many = route.endsWith(u"of many");
    showEncryptScreen(many ? 20 : 4);
    AssociationsStore* store = m_screen->recipients()->store();
    QAbstractItemView* view = files ? static_cast<QAbstractItemView*>(m_screen->widgets().intakeTable)
                                    : m_screen->recipients()->widgets().associatedUsersTable;
    QAbstractItemModel* model = view->model();
    const auto marks = [model] {
        QMap<QString, bool> now;
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex i = model->index(row, 0);
            if (i.flags().testFlag(Qt::ItemIsUserCheckable))
                now.insert(i.data(Qt::AccessibleTextRole).toString(),
                    i.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked);
        }
        return now;
    };
    // One row marked beforehand, so "select all" changes some rows and leaves that one.
    const int user = firstRow(m_screen->recipients()->model(), AssociatedUserRowType::Kind::user);
    const int first = files ? 1 : user;
    if (files)
        m_screen->intakeList()->flip(first);
    else
        m_screen->recipients()->model()->clickRow(first);
    const QMap<QString, bool> before = marks();
    told.clear();
    events.clear();

    const int row = route.endsWith(u"marked") ? first : files ? 2 : first + 1;
    view->setFocus();
    view->setCurrentIndex(model->index(row, 0));
    if (route.startsWith(u"space")) {
        QTest::keyClick(view, Qt::Key_Space);
    } else if (route.endsWith(u"action")) {
        QAccessibleInterface* item = rowOf(view, row);
        QCOMPARE(item->role(), QAccessible::CheckBox); // a list item's mark would not reach the bridge
        QVERIFY(item->state().checkable && !item->state().checked);
        item->actionInterface()->doAction(route.startsWith(u"toggle")
                ? QAccessibleActionInterface::toggleAction()
                : QAccessibleActionInterface::pressAction());
        QCOMPARE(rowOf(view, row), item); // the same object still stands for the row, in its new state
        QVERIFY(item->state().checked);
    } else if (route.endsWith(u"click")) {
        const QRect rect = view->visualRect(model->index(row, 0));
        const QPoint box = route == u"row click" ? rect.center()
            : files
            ? m_screen->widgets().intakeTable->cell()->checkBoxRect(rect).center()
            : m_screen->recipients()->widgets().associatedUsersTable->cell()->checkBoxRect(rect).center();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, box);
    } else if (route.startsWith(u"select all")) {
        if (files)
            m_screen->widgets().selectDeselectAllButton->click();
        else
            store->selectDeselectAll(); // its button waits for the phone's users reply

    } else {
        // A rebuild: a file list reload and the phone's users reply both keep the marks, so a
        // mark is taken away first, quietly, under the list.
        if (files) {
            m_screen->intakeList()->flip(first);
            m_screen->intakeModel()->reload();
        } else {
            for (const auto& u : store->users())
                u->isChecked = false;
            store->setUsers(RecordDecoding::usersBody(users).users.value());
        }
    }
    const QMap<QString, bool> after = marks();
    QMap<QString, bool> changed;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        if (before.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    }
    QVERIFY(!changed.isEmpty());
    if (many) {
        QVERIFY(toldMarks().isEmpty());
        const auto bulk = std::count_if(events.begin(), events.end(),
            [](const auto& e) { return e.first == QAccessible::TableModelChanged; });
        QCOMPARE(int(bulk), 1);
        return;
    }
    QCOMPARE(toldMarks(), changed);
    // Each is told once.
    const auto toldCount = std::count_if(told.begin(), told.end(),
        [](const Told& t) { return t.type == QAccessible::StateChanged && t.changed.checked; });
    QCOMPARE(int(toldCount), int(changed.size()));
}

void TestAccessibility::overlayTellsItsProgressAndCancelsOnEscape()
{
    QWidget window;
    auto* screen = new QWidget(&window);
    screen->setGeometry(100, 80, 500, 400);
    auto* before = new QPushButton(u"before"_qs, screen);
    auto* tab = new QPushButton(u"tab"_qs, &window); // the rest of the window: tabs, About
    window.resize(900, 640);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    before->setFocus();
    auto* overlay = new EncryptingViewController(screen);
    overlay->show();
    // Its screen alone is dimmed and out of the user's hands, also when it grows.
    QCOMPARE(overlay->geometry(), screen->rect());
    screen->resize(560, 420);
    QTRY_COMPARE(overlay->geometry(), screen->rect());
    QVERIFY(!before->isEnabled());
    QVERIFY(tab->isEnabled());
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
    const int low = bar->valueInterface()->currentValue().toInt();
    overlay->setStage(u"Sending 3.0 MB of 4.0 MB"_qs, 3, 4);
    QVERIFY(iface->text(QAccessible::Description) != first);
    QVERIFY(bar->valueInterface()->currentValue().toInt() > low);
    if (QAccessible::isActive())
        QVERIFY(std::any_of(events.begin(), events.end(),
            [](const auto& e) { return e.first == QAccessible::DescriptionChanged; }));

    // Tab goes on to the rest of the window, never under the overlay; Escape cancels where the
    // keyboard is on the overlay (a click on it brings it there), and only there.
    QSignalSpy cancel(overlay, &ProgressOverlay::cancelRequested);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
    QCOMPARE(QApplication::focusWidget(), tab);
    QTest::keyClick(tab, Qt::Key_Escape);
    QTest::mouseClick(overlay, Qt::LeftButton, {}, QPoint(5, 5));
    QVERIFY(overlay->cancelButton()->hasFocus());
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    QCOMPARE(cancel.size(), 1);
    delete overlay;
    QVERIFY(before->isEnabled());
    QTRY_VERIFY(before->hasFocus()); // the keyboard is back where it was
}

void TestAccessibility::keyboardKeepsItsPlace_data()
{
    QTest::addColumn<bool>("files");
    QTest::newRow("files") << true;
    QTest::newRow("recipients") << false;
}

void TestAccessibility::keyboardKeepsItsPlace()
{
    QFETCH(bool, files);
    showEncryptScreen(40, 560);
    AssociationsStore* store = m_screen->recipients()->store();
    if (!files) {
        QByteArray many = "{\"getUsers\":[";
        for (int i = 0; i < 40; ++i)
            many += QStringLiteral("%1{\"firstName\":\"P%2\",\"lastName\":\"Q\",\"email\":\"p%2@x\"}")
                        .arg(i ? u","_qs : QString())
                        .arg(i, 2, 10, QChar(u'0'))
                        .toUtf8();
        store->setUsers(RecordDecoding::usersBody(many + "]}").users.value());
        store->setGroups({});
    }
    QAbstractItemView* view = files ? static_cast<QAbstractItemView*>(m_screen->widgets().intakeTable)
                                    : m_screen->recipients()->widgets().associatedUsersTable;
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
    QCOMPARE(view->verticalScrollBar()->value(), afterDown);
}

void TestAccessibility::keyboardOnlyJourney()
{
    // Add files, search, manage a group and go to Decrypt, with nothing but keys, starting from
    // the focused Encrypt tab. Tab reaches every enabled control of both screens on the way.
    FakeDialogs dialogs;
    dialogs.filesToChoose = m_files.mid(0, 3);
    MainViewController main(m_app.services);
    main.resize(1100, 720);
    fillRecipients(main.encryptScreen()->recipients()->store());
    main.decryptScreen()->intakeList()->addFiles({ m_files.at(0) + u".vx"_qs });
    main.decryptScreen()->intakeList()->flip(0);
    main.show();
    QVERIFY(QTest::qWaitForWindowExposed(&main));
    QApplication::setActiveWindow(&main);
    part<CustomButton>(&main, "encryptTab")->setFocus();
    EncryptViewController* screen = main.encryptScreen();
    RecipientsPanel* panel = screen->recipients();

    // The hint painted in the empty list reaches a screen reader too, and goes with the first file.
    QAccessibleInterface* intake = QAccessible::queryAccessibleInterface(screen->widgets().intakeTable);
    QVERIFY(intake->text(QAccessible::Description).contains(screen->widgets().chooseFilesButton->text()));
    QVERIFY(!intake->text(QAccessible::Name).isEmpty());
    QVERIFY(tabTo(screen->widgets().chooseFilesButton));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QTRY_COMPARE(screen->filesToEncrypt().size(), 3);
    QCOMPARE(intake->childCount(), 3);
    QVERIFY(intake->text(QAccessible::Description).isEmpty());
    const QList<QWidget*> everywhere { part<CustomButton>(&main, "encryptTab"),
        part<CustomButton>(&main, "decryptTab"), part<QToolButton>(&main, "aboutButton") };
    QCOMPARE(missedByTab(everywhere
                 + QList<QWidget*> { screen->widgets().chooseFilesButton,
                     screen->widgets().selectDeselectAllButton, screen->widgets().intakeTable,
                     screen->widgets().openFolderButton, panel->widgets().createGroupButton,
                     panel->widgets().searchTextField, panel->widgets().associatedUsersTable }),
        QStringList());
    QCOMPARE(missedByTab({ screen->widgets().resultTable }).size(), 1); // empty: no row could show the focus

    // Tab selects a search field's text only after the focus is told: Orca stays silent on a
    // field whose selection reached it first.
    const QList<std::pair<QWidget*, QLineEdit*>> fields { { screen->widgets().openFolderButton,
                                                              screen->widgets().resultFilter },
        { panel->widgets().selectDeselectAllUsersButton, panel->widgets().searchTextField } };
    for (const auto& [before, field] : fields) {
        field->setText(u"zz"_qs);
        before->setFocus();
        QVERIFY(tabTo(field));
        QVERIFY(!field->hasSelectedText());
        QTRY_COMPARE(field->selectedText(), u"zz"_qs);
        field->clear();
    }

    // A group's options: to its row, Return opens the menu, Return on the first item.
    RecipientsTableView* recipients = panel->widgets().associatedUsersTable;
    QVERIFY(tabTo(recipients));
    recipients->setCurrentIndex(recipients->model()->index(0, 0));
    const int group = firstRow(panel->model(), AssociatedUserRowType::Kind::groupHeader);
    while (recipients->currentIndex().row() != group)
        QTest::keyClick(recipients, recipients->currentIndex().row() > group ? Qt::Key_Up : Qt::Key_Down);
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

    QVERIFY(tabTo(part<CustomButton>(&main, "decryptTab")));
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
    QCOMPARE(main.currentScreen(), main.decryptScreen());
    FileScreen* decrypt = main.decryptScreen();
    QCOMPARE(missedByTab(everywhere
                 + QList<QWidget*> { decrypt->widgets().chooseFilesButton,
                     decrypt->widgets().selectDeselectAllButton, decrypt->widgets().intakeTable,
                     decrypt->widgets().openFolderButton, decrypt->widgets().removeFilesButton,
                     decrypt->widgets().operationButton }),
        QStringList());
}

void TestAccessibility::operationLineIsToldAsANotification()
{
    // Orca speaks a notification when it shows, wherever the keyboard is: the line is one, shown
    // anew with each new text, and only then.
    showEncryptScreen(2);
    AnnouncedLabel* line = m_screen->widgets().operationLine;
    QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(line);
    QCOMPARE(iface->role(), QAccessible::Notification);
    const auto shows = [] {
        return std::count_if(
            events.begin(), events.end(), [](const auto& e) { return e.first == QAccessible::ObjectShow; });
    };
    events.clear();
    m_screen->intakeList()->flip(0);
    m_screen->recipients()->model()->clickRow(0);
    QCOMPARE(iface->text(QAccessible::Name), u"1 of 2 files for Ann Lee (1 person)"_qs);
    QCOMPARE(shows(), 2);
    m_screen->intakeList()->updateOperationButton(); // the same text: nothing told
    QCOMPARE(shows(), 2);
}

void TestAccessibility::destructiveQuestionsDefaultToCancel_data()
{
    QTest::addColumn<QString>("asked");
    for (const char* asked : { "delete group", "forget phone", "move to trash" })
        QTest::newRow(asked) << QString::fromLatin1(asked);
}

void TestAccessibility::destructiveQuestionsDefaultToCancel()
{
    // The real questions: Enter and Escape both answer Cancel, and nothing happens.
    QFETCH(QString, asked);
    showEncryptScreen(0);
    QString defaultButton, escapeButton;
    QTimer::singleShot(0, this, [&] {
        QMessageBox* box = nullptr;
        QTRY_VERIFY(box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()));
        defaultButton = box->defaultButton()->text();
        escapeButton = box->escapeButton()->text();
        if (const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR"); !out.isEmpty())
            box->grab().save(out + u"/dialog-"_qs + QString(asked).replace(u' ', u'-') + u"@1x-light.png"_qs);
        QTest::keyClick(box, Qt::Key_Return);
    });
    if (asked == u"delete group") {
        AssociationsStore* store = m_screen->recipients()->store();
        store->setGroups(
            std::get<QList<GroupPtr>>(RecordDecoding::groupListBody(R"([{"id":8,"name":"Empty"}])")));
        m_screen->recipients()->menuDeleteGroup(8);
        QVERIFY(store->groupById(8));
    } else if (asked == u"forget phone") {
        AboutViewController about(m_app.phone, nullptr);
        QSignalSpy forget(&about, &AboutViewController::forgetRequested);
        about.findChild<QPushButton*>()->click();
        QCOMPARE(forget.size(), 0);
    } else {
        const QString path = m_files.first() + u".vx"_qs;
        QVERIFY(!m_screen->moveResultToTrash(path));
        QVERIFY(QFile::exists(path));
    }
    QCOMPARE(defaultButton, u"Cancel"_qs);
    QCOMPARE(escapeButton, u"Cancel"_qs);
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
