#include "PairedPhone.h"
#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
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

// A request queued by mistake has reached the phone within a second, so none by then means
// none was sent.
bool noneArrives(PairedPhone& phone, const QString& method, const QString& path)
{
    return !QTest::qWaitFor([&] { return phone.count(method, path) > 0; }, 1000);
}

QAction* menuAction(QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions()) {
        if (a->text() == text)
            return a;
    }
    return nullptr;
}

} // namespace

// What only the screen shows of the recipients: clicks on a row's parts, the search field and
// the buttons, the group dialogs and menu, focus, and dialogs that outlive their phone. The
// rules and the group flows themselves are proved headless (tst_associations, tst_recipients).
class TestRecipientsPanel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void clicksOnARowsParts();
    void aRefusedNameKeepsWhatWasTyped();
    void groupMenuOpensAtItsButton_data();
    void groupMenuOpensAtItsButton();
    void groupDialogsSayWhatTheyDo();
    void aDialogOutlivingItsPhoneChangesNothing_data();
    void aDialogOutlivingItsPhoneChangesNothing();

private:
    std::unique_ptr<PairedPhone> m_phone;
    PhoneServiceClient m_phoneService { Session::instance() };
    NetworkClient m_api;
    std::unique_ptr<EncryptViewController> m_screen;
    QTemporaryDir m_home;
    RecipientsPanel* panel() const { return m_screen->recipients(); }
    const RecipientsPanel::Widgets& widgets() const { return panel()->widgets(); }
    AssociationsStore* store() const { return panel()->store(); }
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
    m_screen = std::make_unique<EncryptViewController>(
        Session::instance(), DesktopNotifier::instance(), m_phoneService, m_api);
    m_screen->resize(1100, 650);
    m_screen->show();
    QTRY_VERIFY_WITH_TIMEOUT(store()->users().size() >= 12 && store()->groups().size() >= 2, 5000);
}

void TestRecipientsPanel::cleanup()
{
    m_screen.reset();
    Session::instance().setPhoneConnected(false);
}

void TestRecipientsPanel::clicksOnARowsParts()
{
    QVERIFY(widgets().selectDeselectAllUsersButton->isEnabled());
    const QString file = m_home.filePath(u"report.pdf"_qs);
    TestFiles::write(file, {});
    m_screen->addFiles({ file });
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a file but no recipient
    RecipientsTableView* table = widgets().associatedUsersTable;
    // A click on the first row's card checks that user, and ENCRYPT comes on.
    const QModelIndex first = table->model()->index(0, 0);
    table->scrollTo(first);
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->visualRect(first).center());
    const auto row = panel()->model()->rowType(0);
    QVERIFY(row && row->user && row->user->isChecked.value_or(false));
    QCOMPARE(store()->selectedRecipientEmails().size(), 1);
    QVERIFY(m_screen->encryptButton()->isEnabled() && m_screen->isEncryptFilesEnabled());
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a recipient but no marked file
    // The search narrows the rows at every keystroke, and counts the checked it hides.
    QTest::keyClicks(widgets().searchTextField, u"fam"_qs);
    QCOMPARE(table->model()->rowCount(), 1);
    QCOMPARE(widgets().hiddenChecked->isVisibleTo(panel()) ? widgets().hiddenChecked->text() : QString(),
        u"1 chosen, not shown"_qs);
    const QRect family = table->visualRect(table->model()->index(0, 0));
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, table->cell()->disclosureRect(family).center());
    QCOMPARE(table->model()->rowCount(), 3); // Family and its two members
    widgets().searchTextField->clear();
    QCOMPARE(table->model()->rowCount(), store()->users().size() + store()->groups().size() + 2);
    QTest::mouseClick(widgets().selectDeselectAllUsersButton, Qt::LeftButton);
    QCOMPARE(store()->selectedRecipientEmails().size(), 12);
    QTest::mouseClick(widgets().selectDeselectAllUsersButton, Qt::LeftButton);
    QVERIFY(store()->selectedRecipientEmails().isEmpty());
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // the recipient went
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
    RecipientsTableView* table = widgets().associatedUsersTable;
    QTRY_COMPARE(table->currentIndex().data(Qt::AccessibleTextRole).toString(), u"Steuerbuero"_qs);
    QVERIFY(table->viewport()->rect().contains(table->visualRect(table->currentIndex())));
    QCOMPARE(m_screen->focusWidget(), table);

    // Renamed: the same, under its new name.
    FakeDialogs dialogs;
    dialogs.answers.enqueue(u"Taxes"_qs);
    table->setCurrentIndex(table->model()->index(0, 0));
    panel()->menuEditGroup(groupId(u"Steuerbuero"_qs));
    QTRY_COMPARE(table->currentIndex().data(Qt::AccessibleTextRole).toString(), u"Taxes"_qs);
    m_api.deleteGroup(groupId(u"Taxes"_qs), nullptr, [](const auto&) {});
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
    RecipientsTableView* table = widgets().associatedUsersTable;
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

void TestRecipientsPanel::groupDialogsSayWhatTheyDo()
{
    FakeDialogs dialogs;
    // The last dialog as "kind|title|message|buttons, or how many items|initial text|hint|style".
    const auto last = [&dialogs] {
        const FakeDialogs::Shown& d = dialogs.shown.last();
        const QString options
            = d.kind == u"chooseItems" ? QString::number(d.options.size()) : d.options.join(u',');
        return QStringList { d.kind, d.title, d.message, options, d.initialText, d.placeholder,
            d.style == Dialogs::Style::Warning ? u"warning"_qs : QString() }
            .join(u'|');
    };
    dialogs.answers.enqueue(u"Spare"_qs);
    panel()->createGroupButtonClicked();
    QCOMPARE(last(), u"askText|Create New Group|Enter group name:|Create,Cancel||Group name|"_qs);
    QTRY_VERIFY(groupId(u"Spare"_qs) > 0);
    const qint64 spare = groupId(u"Spare"_qs);
    const qint64 family = groupId(u"Family"_qs); // two members

    // The menu of an empty group; Rename's field starts with the name.
    std::unique_ptr<QMenu> menu(panel()->buildGroupMenu(spare));
    QCOMPARE(menu->actions().size(), 6);
    QVERIFY(!menuAction(menu.get(), u"Remove Member"_qs)->isEnabled());
    menuAction(menu.get(), u"Rename Group…"_qs)->trigger();
    QCOMPARE(last(), u"askText|Rename Group|Enter new group name:|Save,Cancel|Spare|Group name|"_qs);
    // Members to add, as the phone offers them, and to remove; none to remove is an error.
    panel()->menuAddMember(spare);
    QTRY_COMPARE(last(), u"chooseItems|Add Users to 'Spare'||12|||"_qs);
    panel()->menuRemoveMember(family);
    QTRY_COMPARE(last(), u"chooseItems|Remove Users from 'Family'||2|||"_qs);
    panel()->menuRemoveMember(spare);
    QTRY_COMPARE(last(), u"alert|Error|No members to remove||||warning"_qs);
    // Delete: refused while members remain, else asked (Cancel, its default, is tst_accessibility's).
    panel()->menuDeleteGroup(family);
    QCOMPARE(last(),
        u"alert|Cannot Delete Group|Please remove all members from 'Family' before deleting the group.||||warning"_qs);
    dialogs.answers.enqueue(0); // Delete
    panel()->menuDeleteGroup(spare);
    QCOMPARE(last(),
        u"ask|Delete Group|Are you sure you want to delete 'Spare'? This action cannot be undone.|Delete,Cancel|||warning"_qs);
    QTRY_VERIFY(!store()->groupById(spare));
    // Every dialog belongs to the window, through the screen that opened it.
    for (const auto& dialog : std::as_const(dialogs.shown))
        QCOMPARE(dialog.parent ? dialog.parent->window() : nullptr, m_screen->window());
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

QTEST_MAIN(TestRecipientsPanel)
#include "tst_recipients_panel.moc"
