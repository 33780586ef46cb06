#include "PairedPhone.h"
#include "api/APIError.h"
#include "api/NetworkClient.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/TestFiles.h"
#include "desktop/DesktopNotifier.h"
#include "recipients/RecipientsController.h"
#include "recipients/RecipientsModel.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/EncryptViewController.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"

#include <QAccessible>
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

// True once the phone has seen `count` such requests, running the event loop until then.
bool arrives(PairedPhone& phone, const QString& method, const QString& path, int count = 1, int ms = 10000)
{
    return QTest::qWaitFor([&] { return phone.count(method, path) >= count; }, ms);
}

// A request queued by mistake has reached the phone within a second, so none by then means
// none was sent.
bool noneArrives(PairedPhone& phone, const QString& method, const QString& path)
{
    return !arrives(phone, method, path, 1, 1000);
}

// A request that must come, but not sooner than `quietMs` after the one just seen.
bool arrivesLater(PairedPhone& phone, const QString& method, const QString& path, int count, int quietMs)
{
    return !arrives(phone, method, path, count, quietMs) && arrives(phone, method, path, count);
}

QAction* menuAction(QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions()) {
        if (a->text() == text)
            return a;
    }
    return nullptr;
}

// A group menu entry.
using Action = void (RecipientsPanel::*)(qint64 groupId);

} // namespace

Q_DECLARE_METATYPE(Action)

class TestRecipientsPanel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void loadsAndChecksRecipients();
    void encryptButtonNeedsAFileAndARecipient();
    void groupNameValidation_data();
    void groupNameValidation();
    void aRefusedNameKeepsWhatWasTyped();
    void groupMenuOpensAtItsButton_data();
    void groupMenuOpensAtItsButton();
    void groupLifecycleAgainstThePhone();
    void failuresSayWhatFailed_data();
    void failuresSayWhatFailed();
    void phoneChangeSignalsReload();
    void searchStaysAppliedAcrossRebuilds();
    void aFetchThePhoneNeverAnswersIsAbandoned_data();
    void aFetchThePhoneNeverAnswersIsAbandoned();
    void aDialogOutlivingItsPhoneChangesNothing_data();
    void aDialogOutlivingItsPhoneChangesNothing();
    void dialogScreenshots();

private:
    std::unique_ptr<PairedPhone> m_phone;
    std::unique_ptr<EncryptViewController> m_screen;
    QTemporaryDir m_home;
    RecipientsPanel* panel() const { return m_screen->recipients; }
    AssociationsStore* store() const { return m_screen->recipients->store(); }
    qint64 groupId(const QString& name) const { return PairedPhone::groupId(store(), name); }
};

void TestRecipientsPanel::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_phone = std::make_unique<PairedPhone>();
    QVERIFY(m_phone->isRunning());
}

void TestRecipientsPanel::init()
{
    m_phone->pair();
    m_screen = std::make_unique<EncryptViewController>(Session::instance(), DesktopNotifier::instance());
    m_screen->resize(1100, 650);
    m_screen->show();
    QTRY_VERIFY_WITH_TIMEOUT(store()->users.size() >= 12 && store()->groups.size() >= 2, 5000);
}

void TestRecipientsPanel::cleanup()
{
    m_screen.reset();
    Session::instance().setPhoneConnected(false);
    NetworkClient::shared().setTimeouts(
        NetworkClient::defaultRequestTimeout, NetworkClient::defaultResourceTimeout);
}

void TestRecipientsPanel::loadsAndChecksRecipients()
{
    QCOMPARE(m_phone->count(u"GET"_qs, u"/getUsers"_qs), 1);
    QVERIFY(panel()->selectDeselectAllUsersButton->isEnabled());
    RecipientsTableView* table = panel()->associatedUsersTable;
    QCOMPARE(table->model()->rowCount(), store()->users.size() + store()->groups.size());
    // A click on the first row's card checks that user.
    const QModelIndex first = table->model()->index(0, 0);
    table->scrollTo(first);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->visualRect(first).center());
    const auto row = store()->rowType(0);
    QVERIFY(row && row->user && row->user->isChecked.value_or(false));
    QCOMPARE(store()->selectedRecipientEmails().size(), 1);
    // The search narrows the rows at every keystroke.
    QTest::keyClicks(panel()->searchTextField, u"fam"_qs);
    QCOMPARE(table->model()->rowCount(), 1);
    const QRect family = table->visualRect(table->model()->index(0, 0));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->cell()->disclosureRect(family).center());
    QCOMPARE(table->model()->rowCount(), 3); // Family and its two members
    panel()->searchTextField->clear();
    QCOMPARE(table->model()->rowCount(), store()->users.size() + store()->groups.size() + 2);
    QTest::mouseClick(panel()->selectDeselectAllUsersButton, Qt::LeftButton);
    QCOMPARE(store()->selectedRecipientEmails().size(), 12);
    QTest::mouseClick(panel()->selectDeselectAllUsersButton, Qt::LeftButton);
    QVERIFY(store()->selectedRecipientEmails().isEmpty());
}

void TestRecipientsPanel::encryptButtonNeedsAFileAndARecipient()
{
    const QString file = m_home.filePath(u"report.pdf"_qs);
    TestFiles::write(file, {});
    m_screen->addFiles({ file });
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a file but no recipient
    store()->toggleGroupChecked(groupId(u"Family"_qs));
    QVERIFY(m_screen->encryptButton()->isEnabled());
    QVERIFY(m_screen->isEncryptFilesEnabled());
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a recipient but no marked file
    m_screen->intakeList()->flip(0);
    store()->toggleGroupChecked(groupId(u"Family"_qs));
    QVERIFY(!m_screen->encryptButton()->isEnabled());
}

void TestRecipientsPanel::groupNameValidation_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QVariant>("refusal"); // what the dialog says under the field; invalid: accepted
    const QVariant characters = u"Use only the letters A-Z and digits, starting with a letter."_qs;
    const QVariant length = u"Use 2 to 250 characters."_qs;
    QTest::newRow("A1") << u"A1"_qs << QVariant();
    QTest::newRow("spaces around") << u"  Sales \n"_qs << QVariant();
    QTest::newRow("empty: nothing said, no way to confirm") << u"   "_qs << QVariant(QString());
    QTest::newRow("one letter") << u"A"_qs << length;
    QTest::newRow("digit first") << u"1abc"_qs << characters;
    QTest::newRow("inner space") << u"ab c"_qs << characters;
    QTest::newRow("dash") << u"abc-d"_qs << characters;
    QTest::newRow("umlaut first") << u"Ännchen"_qs << characters;
    QTest::newRow("umlaut inside") << u"Steuerbüro"_qs << characters;
    QTest::newRow("251 characters") << QString(u'a').repeated(251) << length;
    QTest::newRow("250 characters") << QString(u'a').repeated(250) << QVariant();
}

void TestRecipientsPanel::groupNameValidation()
{
    // The name is judged inside the dialog while it is typed: a refused one cannot be
    // confirmed, so nothing is sent and no second dialog takes the typed text away.
    QFETCH(QString, typed);
    QFETCH(QVariant, refusal);
    FakeDialogs dialogs;
    dialogs.answers.enqueue(typed);
    panel()->createGroupButtonClicked();
    QCOMPARE(dialogs.shown.size(), 1);
    if (!refusal.isValid()) {
        QVERIFY(!dialogs.shown.at(0).refusal);
        QTRY_VERIFY(groupId(typed.trimmed()) > 0);
        NetworkClient::shared().deleteGroup(groupId(typed.trimmed()), nullptr, [](const auto&) {});
        return;
    }
    QCOMPARE(dialogs.shown.at(0).refusal, std::optional<QString>(refusal.toString()));
    QVERIFY(noneArrives(*m_phone, u"POST"_qs, u"/v2/groups"_qs));
    QCOMPARE(dialogs.shown.size(), 1);
}

void TestRecipientsPanel::aRefusedNameKeepsWhatWasTyped()
{
    // The real dialog: the refusal shows under the field as the name is typed, Create stays
    // off (Return does nothing), and correcting the name keeps the rest of what was typed.
    QList<bool> createWasOn;
    QTimer::singleShot(0, this, [&] {
        QDialog* dialog = nullptr;
        QTRY_VERIFY((dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())));
        auto close = qScopeGuard([dialog] { dialog->reject(); });
        auto* edit = dialog->findChild<QLineEdit*>();
        auto* refusal = dialog->findChild<QLabel*>(u"refusal"_qs);
        auto* buttons = dialog->findChild<QDialogButtonBox*>();
        QVERIFY(edit && refusal && buttons);
        QPushButton* create = nullptr;
        for (QAbstractButton* b : buttons->buttons())
            if (buttons->buttonRole(b) == QDialogButtonBox::AcceptRole)
                create = qobject_cast<QPushButton*>(b);
        QVERIFY(create);
        createWasOn << create->isEnabled(); // empty
        QTest::keyClicks(edit, u"Steuerb"_qs);
        edit->insert(u"ü"_qs); // keyClicks types ASCII only
        QTest::keyClicks(edit, u"ro"_qs);
        createWasOn << create->isEnabled();
        QVERIFY(refusal->isVisible());
        QCOMPARE(refusal->text(), u"Use only the letters A-Z and digits, starting with a letter."_qs);
        QCOMPARE(
            QAccessible::queryAccessibleInterface(edit)->text(QAccessible::Description), refusal->text());
        QTest::keyClick(edit, Qt::Key_Return);
        QVERIFY(dialog->isVisible());
        QCOMPARE(edit->text(), u"Steuerbüro"_qs);
        for (int i = 0; i < 3; ++i)
            QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClicks(edit, u"uero"_qs);
        QVERIFY(!refusal->isVisible());
        createWasOn << create->isEnabled();
        close.dismiss();
        QTest::keyClick(edit, Qt::Key_Return);
    });
    panel()->createGroupButtonClicked();
    QCOMPARE(createWasOn, (QList<bool> { false, false, true }));
    // Once the list has it, the new group is the current row, in view.
    QTRY_VERIFY(groupId(u"Steuerbuero"_qs) > 0);
    RecipientsTableView* table = panel()->associatedUsersTable;
    QTRY_COMPARE(table->currentIndex().data(Qt::AccessibleTextRole).toString(), u"Steuerbuero"_qs);
    QVERIFY(table->viewport()->rect().contains(table->visualRect(table->currentIndex())));
    QCOMPARE(m_screen->focusWidget(), table);

    // Renamed: the same, under its new name.
    FakeDialogs dialogs;
    dialogs.answers.enqueue(u"Taxes"_qs);
    table->setCurrentIndex(table->model()->index(0, 0));
    panel()->menuEditGroup(groupId(u"Steuerbuero"_qs));
    QTRY_COMPARE(table->currentIndex().data(Qt::AccessibleTextRole).toString(), u"Taxes"_qs);
    NetworkClient::shared().deleteGroup(groupId(u"Taxes"_qs), nullptr, [](const auto&) {});
}

void TestRecipientsPanel::groupMenuOpensAtItsButton_data()
{
    QTest::addColumn<bool>("keyboard");
    QTest::newRow("mouse") << false;
    QTest::newRow("keyboard") << true;
}

void TestRecipientsPanel::groupMenuOpensAtItsButton()
{
    // Below the row's options button, at the row's right edge, however it was opened.
    QFETCH(bool, keyboard);
    RecipientsTableView* table = panel()->associatedUsersTable;
    QModelIndex family;
    for (int row = 0; row < table->model()->rowCount(); ++row)
        if (table->model()->index(row, 0).data(Qt::AccessibleTextRole).toString() == u"Family")
            family = table->model()->index(row, 0);
    QVERIFY(family.isValid());
    table->scrollTo(family);
    const QRect button = table->cell()->menuRect(table->visualRect(family));
    if (keyboard) {
        table->setFocus();
        table->setCurrentIndex(family);
        QTest::keyClick(table, Qt::Key_Return);
    } else {
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, button.center());
    }
    QMenu* menu = nullptr;
    QTRY_VERIFY((menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())));
    auto close = qScopeGuard([menu] { menu->close(); });
    QPoint below = table->viewport()->mapToGlobal(QPoint(button.left(), button.bottom() + 4));
    // A menu that would leave the screen is moved in by as much, as every menu is.
    const QRect screen = menu->screen()->availableGeometry();
    below.setX(qMin(below.x(), screen.right() + 1 - menu->width()));
    QCOMPARE(menu->pos(), below);
    QCOMPARE(menuAction(menu, u"Rename Group…"_qs) != nullptr, true);
}

void TestRecipientsPanel::groupLifecycleAgainstThePhone()
{
    FakeDialogs dialogs;
    // Create: an empty field with the "Group name" hint.
    dialogs.answers.enqueue(u"Climbers"_qs);
    panel()->createGroupButtonClicked();
    QCOMPARE(dialogs.shown.at(0).kind, u"askText"_qs);
    QCOMPARE(dialogs.shown.at(0).title, u"Create New Group"_qs);
    QCOMPARE(dialogs.shown.at(0).message, u"Enter group name:"_qs);
    QCOMPARE(dialogs.shown.at(0).options, (QStringList { u"Create"_qs, u"Cancel"_qs }));
    QCOMPARE(dialogs.shown.at(0).initialText, QString());
    QCOMPARE(dialogs.shown.at(0).placeholder, u"Group name"_qs);
    QTRY_VERIFY(groupId(u"Climbers"_qs) > 0);
    const qint64 id = groupId(u"Climbers"_qs);
    const QString updateGroups = u"/updateGroups"_qs;
    QTRY_COMPARE(m_phone->count(u"POST"_qs, updateGroups), 1); // the phone is told

    // A taken name: the phone's conflict, as the user reads it.
    dialogs.answers.enqueue(u"Family"_qs);
    panel()->createGroupButtonClicked();
    QTRY_COMPARE(dialogs.shown.size(), 3);
    QCOMPARE(dialogs.shown.at(2).message, u"Conflict: A group with this name already exists"_qs);

    // The menu of an empty group.
    std::unique_ptr<QMenu> menu(panel()->buildGroupMenu(id));
    QCOMPARE(menu->actions().size(), 6);
    QVERIFY(!menuAction(menu.get(), u"Remove Member"_qs)->isEnabled());

    // Rename: the field starts with the name; the same name sends nothing.
    const QString groupPath = u"/v2/groups/%1"_qs.arg(id);
    dialogs.answers.enqueue(u"Climbers"_qs);
    menuAction(menu.get(), u"Rename Group…"_qs)->trigger();
    QCOMPARE(dialogs.shown.last().initialText, u"Climbers"_qs);
    QCOMPARE(dialogs.shown.last().placeholder, u"Group name"_qs);
    QVERIFY(noneArrives(*m_phone, u"PATCH"_qs, groupPath));
    // A new name: saved, the phone told, and the groups fetched again at once and once more
    // 0.8 s later (the members-changed notice).
    const QString fetchGroups = u"/v2/groups/"_qs + PairedPhone::owner;
    const int fetches = m_phone->count(u"GET"_qs, fetchGroups);
    dialogs.answers.enqueue(u"Alpinists"_qs);
    panel()->menuEditGroup(id);
    QCOMPARE(dialogs.shown.last().message, u"Enter new group name:"_qs);
    QVERIFY(arrives(*m_phone, u"PATCH"_qs, groupPath));
    QVERIFY(arrives(*m_phone, u"GET"_qs, fetchGroups, fetches + 1));
    QVERIFY(arrivesLater(*m_phone, u"GET"_qs, fetchGroups, fetches + 2, 400));
    QTRY_COMPARE(store()->groupById(id) ? store()->groupById(id)->name : QString(), u"Alpinists"_qs);
    QTRY_COMPARE(m_phone->count(u"POST"_qs, updateGroups), 2);

    // Add members: nothing ticked sends nothing; two ticked are added.
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> {}));
    panel()->menuAddMember(id);
    QTRY_COMPARE(dialogs.shown.last().kind, u"chooseItems"_qs);
    QCOMPARE(dialogs.shown.last().title, u"Add Users to 'Alpinists'"_qs);
    QCOMPARE(dialogs.shown.last().options.size(), 12);
    QVERIFY(noneArrives(*m_phone, u"POST"_qs, groupPath + u"/users/add"));
    const int shown = dialogs.shown.size();
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> { 0, 2 }));
    panel()->menuAddMember(id);
    QTRY_COMPARE(dialogs.shown.size(), shown + 1);
    // The phone hears of it 0.3 s after the members were saved.
    QVERIFY(arrives(*m_phone, u"POST"_qs, groupPath + u"/users/add"));
    QVERIFY(arrivesLater(*m_phone, u"POST"_qs, updateGroups, 3, 100));
    QTRY_COMPARE_WITH_TIMEOUT(store()->groupById(id)->groupMembers.size(), 2, 3000);

    // Delete is refused while members remain.
    panel()->menuDeleteGroup(id);
    QCOMPARE(dialogs.shown.last().title, u"Cannot Delete Group"_qs);
    QCOMPARE(dialogs.shown.last().message,
        u"Please remove all members from 'Alpinists' before deleting the group."_qs);
    QCOMPARE(dialogs.shown.last().style, Dialogs::Style::Warning);
    // Remove both, then delete.
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> { 0, 1 }));
    panel()->menuRemoveMember(id);
    QCOMPARE(dialogs.shown.last().title, u"Remove Users from 'Alpinists'"_qs);
    QVERIFY(arrives(*m_phone, u"POST"_qs, groupPath + u"/users/remove"));
    QVERIFY(arrivesLater(*m_phone, u"POST"_qs, updateGroups, 4, 100));
    QTRY_COMPARE_WITH_TIMEOUT(store()->groupById(id)->groupMembers.size(), 0, 3000);
    panel()->menuRemoveMember(id);
    QCOMPARE(dialogs.shown.last().message, u"No members to remove"_qs);
    dialogs.answers.enqueue(1); // Cancel
    panel()->menuDeleteGroup(id);
    QCOMPARE(dialogs.shown.last().title, u"Delete Group"_qs);
    QCOMPARE(dialogs.shown.last().message,
        u"Are you sure you want to delete 'Alpinists'? This action cannot be undone."_qs);
    QCOMPARE(dialogs.shown.last().options, (QStringList { u"Delete"_qs, u"Cancel"_qs }));
    QCOMPARE(dialogs.shown.last().style, Dialogs::Style::Warning);
    QVERIFY(noneArrives(*m_phone, u"DELETE"_qs, groupPath));
    QVERIFY(store()->groupById(id));
    dialogs.answers.enqueue(0); // Delete
    panel()->menuDeleteGroup(id);
    QTRY_VERIFY(!store()->groupById(id));
    QTRY_COMPARE(m_phone->count(u"POST"_qs, updateGroups), 5);
    // Every dialog belongs to the window, through the screen that opened it.
    for (const auto& dialog : std::as_const(dialogs.shown))
        QCOMPARE(dialog.parent ? dialog.parent->window() : nullptr, m_screen->window());
}

void TestRecipientsPanel::failuresSayWhatFailed_data()
{
    QTest::addColumn<Action>("action");
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path"); // %1: the group's id
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<QString>("prefix");
    const QVariant first = QVariant::fromValue(QList<int> { 0 });
    QTest::newRow("rename") << &RecipientsPanel::menuEditGroup << u"PATCH"_qs << u"/v2/groups/%1"_qs
                            << QVariant(u"Relatives"_qs) << u"Failed to update group: "_qs;
    QTest::newRow("load users") << &RecipientsPanel::menuAddMember << u"GET"_qs << u"/v2/groups/%1/users/*"_qs
                                << first << u"Failed to load users: "_qs;
    QTest::newRow("add") << &RecipientsPanel::menuAddMember << u"POST"_qs << u"/v2/groups/%1/users/add"_qs
                         << first << u"Failed to add users: "_qs;
    QTest::newRow("remove") << &RecipientsPanel::menuRemoveMember << u"POST"_qs
                            << u"/v2/groups/%1/users/remove"_qs << first << u"Failed to remove users: "_qs;
    QTest::newRow("delete") << &RecipientsPanel::menuDeleteGroup << u"DELETE"_qs << u"/v2/groups/%1"_qs
                            << QVariant(0) << u"Failed to delete group: "_qs;
}

void TestRecipientsPanel::failuresSayWhatFailed()
{
    QFETCH(Action, action);
    QFETCH(QString, method);
    const bool deleting = action == &RecipientsPanel::menuDeleteGroup;
    QFETCH(QString, path);
    QFETCH(QVariant, answer);
    QFETCH(QString, prefix);
    qint64 id = groupId(u"Family"_qs); // two members
    if (deleting) {
        // Only an empty group can be deleted: one made on the phone, as another desktop would.
        QCOMPARE(m_phone->post(
                     "/v2/groups", { { u"username"_qs, PairedPhone::owner }, { u"name"_qs, u"Spare"_qs } }),
            201);
        Session::instance().markGroupsUpdated();
        QTRY_VERIFY(groupId(u"Spare"_qs) > 0);
        id = groupId(u"Spare"_qs);
    }
    // No answer in time: a failure for every kind of call (an answer without a body counts as
    // done whatever its status).
    QVERIFY(m_phone->setFault(
        { { u"method"_qs, method }, { u"path"_qs, path.arg(id) }, { u"noAnswer"_qs, true } }));
    NetworkClient::shared().setTimeouts(std::chrono::milliseconds(500), std::chrono::seconds(5));
    FakeDialogs dialogs;
    dialogs.answers.enqueue(answer);
    (panel()->*action)(id);
    QTRY_VERIFY(!dialogs.shown.isEmpty() && dialogs.shown.last().title == u"Error");
    const QString message = dialogs.shown.last().message;
    QVERIFY2(message.startsWith(prefix + APIError::networkError(QString()).description())
            && message.size() > prefix.size() + 16,
        qPrintable(message));
    if (deleting) {
        m_phone->clearFaults();
        auto deleted = std::make_shared<bool>(false);
        NetworkClient::shared().deleteGroup(
            id, nullptr, [deleted](const auto& r) { *deleted = r.isSuccess(); });
        QTRY_VERIFY(*deleted);
    }
}

void TestRecipientsPanel::aDialogOutlivingItsPhoneChangesNothing_data()
{
    QTest::addColumn<bool>("replaced");
    QTest::newRow("phone lost") << false;
    QTest::newRow("switched to another phone") << true;
}

void TestRecipientsPanel::aDialogOutlivingItsPhoneChangesNothing()
{
    QFETCH(bool, replaced);
    FakeDialogs dialogs;
    dialogs.whileOpen = [replaced] {
        if (replaced)
            Session::instance().replacePhone();
        else
            Session::instance().setPhoneConnected(false);
    };
    dialogs.answers.enqueue(u"Late"_qs);
    panel()->createGroupButtonClicked();
    // Nor may a failure that arrives late pop up over the next screen.
    panel()->showErrorAlert(u"Network error"_qs);
    QCOMPARE(dialogs.shown.size(), 1);
    QVERIFY(noneArrives(*m_phone, u"POST"_qs, u"/v2/groups"_qs));
}

void TestRecipientsPanel::phoneChangeSignalsReload()
{
    QCOMPARE(m_phone->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    const int before = int(store()->users.size());
    Session::instance().markAssociatesUpdated(); // what the listener does on "/updateAssociates"
    QTRY_COMPARE_WITH_TIMEOUT(int(store()->users.size()), before + 1, 3000);
    m_phone->request("DELETE", "/sim/contacts/mia.wong@example.com");
}

void TestRecipientsPanel::searchStaysAppliedAcrossRebuilds()
{
    auto shown = [this] {
        QStringList names;
        for (int row = 0; row < panel()->model()->rowCount(); ++row)
            names.append(panel()->model()->index(row).data(RecipientsModel::NameRole).toString());
        return names.join(u", ");
    };
    panel()->searchTextField->setFocus();
    QTest::keyClicks(panel()->searchTextField, u"wong"_qs);
    QCOMPARE(shown(), QString());
    // The phone's contacts change while the user searches: one that matches, one that does not.
    QCOMPARE(m_phone->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    QCOMPARE(m_phone->post("/sim/contacts",
                 { { u"firstName"_qs, u"Zed"_qs }, { u"lastName"_qs, u"Other"_qs },
                     { u"email"_qs, u"zed@example.com"_qs }, { u"phone"_qs, u"2"_qs } }),
        201);
    const int users = int(store()->users.size());
    Session::instance().markAssociatesUpdated(); // what the listener does on "/updateAssociates"
    QTRY_COMPARE_WITH_TIMEOUT(int(store()->users.size()), users + 2, 5000);
    QTRY_COMPARE(shown(), u"MIA WONG"_qs);
    // A group change rebuilds the list again: the new group shows only because it matches.
    {
        FakeDialogs dialogs;
        dialogs.answers.enqueue(u"Wongs"_qs);
        panel()->createGroupButtonClicked();
        QTRY_VERIFY(groupId(u"Wongs"_qs) > 0);
    }
    QTRY_COMPARE(shown(), u"MIA WONG, WONGS"_qs);
    // A change signal for groups, and one for users with nothing new.
    const int fetches = m_phone->count(u"GET"_qs, u"/getUsers"_qs);
    Session::instance().markGroupsUpdated();
    Session::instance().markAssociatesUpdated();
    QVERIFY(arrives(*m_phone, u"GET"_qs, u"/getUsers"_qs, fetches + 1));
    QVERIFY(QTest::qWaitFor([this] { return !panel()->controller()->isBusy(); }, 5000));
    QCOMPARE(shown(), u"MIA WONG, WONGS"_qs);
    QCOMPARE(panel()->searchTextField->text(), u"wong"_qs);
    // Clearing the search shows everyone again.
    panel()->searchTextField->clear();
    QCOMPARE(panel()->model()->rowCount(), store()->users.size() + store()->groups.size());

    m_phone->request("DELETE", "/sim/contacts/mia.wong@example.com");
    m_phone->request("DELETE", "/sim/contacts/zed@example.com");
    httplib::Client(QStringLiteral("127.0.0.1").toStdString(), m_phone->port())
        .Delete(QStringLiteral("/v2/groups/%1").arg(groupId(u"Wongs"_qs)).toStdString());
}

void TestRecipientsPanel::aFetchThePhoneNeverAnswersIsAbandoned_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("users") << u"/getUsers"_qs;
    QTest::newRow("groups") << u"/v2/groups/"_qs + PairedPhone::owner;
}

void TestRecipientsPanel::aFetchThePhoneNeverAnswersIsAbandoned()
{
    QFETCH(QString, path);
    const bool users = path == u"/getUsers";
    panel()->controller()->setFetchTimeout(std::chrono::milliseconds(1000));
    QVERIFY(m_phone->setFault(
        { { u"method"_qs, u"GET"_qs }, { u"path"_qs, path }, { u"noAnswer"_qs, true }, { u"times"_qs, 1 } }));
    const int before = m_phone->count(u"GET"_qs, path);
    auto signal = [users] {
        if (users)
            Session::instance().markAssociatesUpdated();
        else
            Session::instance().markGroupsUpdated();
    };
    signal();
    QVERIFY(arrives(*m_phone, u"GET"_qs, path, before + 1)); // never answered
    // The next change waits behind it until it is abandoned, then goes out and is answered.
    QCOMPARE(m_phone->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    const int known = int(store()->users.size());
    signal();
    QVERIFY(arrives(*m_phone, u"GET"_qs, path, before + 2, 5000));
    if (users)
        QTRY_COMPARE_WITH_TIMEOUT(int(store()->users.size()), known + 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(!panel()->controller()->isBusy(), 5000);
    QVERIFY(store()->groups.size() >= 2); // an abandoned groups fetch keeps the groups held
    m_phone->clearFaults();
    m_phone->request("DELETE", "/sim/contacts/mia.wong@example.com");
}

void TestRecipientsPanel::dialogScreenshots()
{
    const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR");
    if (out.isEmpty())
        QSKIP("set VARNEX_SCREENSHOT_DIR to save screenshots");
    // The real dialogs, in the order they are opened: each is captured once it shows, then
    // cancelled.
    QStringList names { u"create"_qs, u"rename"_qs, u"remove-members"_qs, u"cannot-delete"_qs,
        u"add-members"_qs, u"delete"_qs, u"error"_qs };
    QTimer poll;
    connect(&poll, &QTimer::timeout, this, [&] {
        QWidget* dialog = QApplication::activeModalWidget();
        if (!dialog || !dialog->isVisible() || names.isEmpty())
            return;
        dialog->grab().save(out + u"/dialog-" + names.takeFirst() + u".png");
        dialog->close();
    });
    poll.start(100);
    const qint64 family = groupId(u"Family"_qs);
    panel()->createGroupButtonClicked();
    panel()->menuEditGroup(family);
    panel()->menuRemoveMember(family);
    panel()->menuDeleteGroup(family);
    panel()->menuAddMember(family);
    QTRY_COMPARE_WITH_TIMEOUT(names.size(), 2, 10000); // the candidates come from the phone first
    {
        FakeDialogs make;
        make.answers.enqueue(u"Empty"_qs);
        panel()->createGroupButtonClicked();
        QTRY_VERIFY(groupId(u"Empty"_qs) > 0);
    }
    panel()->menuDeleteGroup(groupId(u"Empty"_qs));
    panel()->showErrorAlert(u"Conflict: A group with this name already exists"_qs);
    QTRY_VERIFY(names.isEmpty());
}

QTEST_MAIN(TestRecipientsPanel)
#include "tst_recipients_panel.moc"
