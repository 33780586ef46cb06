#include "api/APIError.h"
#include "api/NetworkClient.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/FakeDialogs.h"
#include "common/PhoneSimProcess.h"
#include "common/Settle.h"
#include "recipients/AssociationsStore.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/EncryptViewController.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"

#include <QFile>
#include <QJsonArray>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QApplication>

namespace {

const QString owner = QStringLiteral("alex.morgan@example.com");

int countRequests(PhoneSimProcess& sim, const QString& method, const QString& path)
{
    int n = 0;
    for (const auto& r : sim.requests())
        n += r.toObject().value(u"method").toString() == method && r.toObject().value(u"path").toString() == path;
    return n;
}

// Runs the event loop until a deadline: a request that was queued by mistake has reached the
// phone by then, so none arriving means none was sent.
bool noneArrives(PhoneSimProcess& sim, const QString& method, const QString& path)
{
    return !QTest::qWaitFor([&] { return countRequests(sim, method, path) > 0; }, 1000);
}

// True when the phone has seen `count` such requests within `ms`.
bool arrivesWithin(PhoneSimProcess& sim, const QString& method, const QString& path, int count, int ms)
{
    return QTest::qWaitFor([&] { return countRequests(sim, method, path) >= count; }, ms);
}

// A request that must come, but not sooner than a delay after the one just seen: none for
// `quietMs`, then one within a generous deadline. Without the delay it would already be there.
bool arrivesLater(PhoneSimProcess& sim, const QString& method, const QString& path, int count, int quietMs)
{
    return !arrivesWithin(sim, method, path, count, quietMs)
        && arrivesWithin(sim, method, path, count, 10000);
}

qint64 groupIdByName(AssociationsStore* store, const QString& name)
{
    for (const auto& g : store->groups) {
        if (g->name == name)
            return g->id;
    }
    return -1;
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
    void groupLifecycleAgainstThePhone();
    void groupDialogsPrefillAndWarn();
    void failuresSayWhatFailed_data();
    void failuresSayWhatFailed();
    void phoneChangeSignalsReload();
    void dialogScreenshots();

private:
    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<EncryptViewController> m_screen;
    QTemporaryDir m_home;
    RecipientsPanel* panel() const { return m_screen->recipients; }
    AssociationsStore* store() const { return m_screen->recipients->store(); }
};

void TestRecipientsPanel::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
}

void TestRecipientsPanel::init()
{
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, owner);
    Session::instance().resetForTesting();
    Session::instance().setPhoneIPAddress(u"127.0.0.1"_qs);
    Session::instance().setPhoneServicePortForTesting(m_sim->port());
    Session::instance().setPhoneConnected(true);
    m_sim->clearRequests();
    m_screen = std::make_unique<EncryptViewController>();
    m_screen->resize(1100, 650);
    m_screen->show();
    QTRY_VERIFY_WITH_TIMEOUT(store()->users.size() >= 12 && store()->groups.size() >= 2, 5000);
}

void TestRecipientsPanel::cleanup()
{
    m_screen.reset();
    Session::instance().setPhoneConnected(false);
    m_sim->clearFaults();
    NetworkClient::shared().setTimeouts(
        NetworkClient::defaultRequestTimeout, NetworkClient::defaultResourceTimeout);
}

void TestRecipientsPanel::loadsAndChecksRecipients()
{
    QCOMPARE(countRequests(*m_sim, u"GET"_qs, u"/getUsers"_qs), 1);
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
    QTest::mouseClick(table->viewport(), Qt::LeftButton, {},
                      table->cell()->disclosureRect(table->visualRect(table->model()->index(0, 0))).center());
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
    QFile f(file);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.close();
    m_screen->addFiles({ file });
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a file but no recipient
    store()->toggleGroupChecked(groupIdByName(store(), u"Family"_qs));
    QVERIFY(m_screen->encryptButton()->isEnabled());
    QVERIFY(m_screen->isEncryptFilesEnabled());
    m_screen->intakeList()->flip(0);
    QVERIFY(!m_screen->encryptButton()->isEnabled()); // a recipient but no marked file
    m_screen->intakeList()->flip(0);
    store()->toggleGroupChecked(groupIdByName(store(), u"Family"_qs));
    QVERIFY(!m_screen->encryptButton()->isEnabled());
}

void TestRecipientsPanel::groupNameValidation_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("message"); // empty: accepted
    const QString rule = u"Group name must start with a letter and contain only letters and numbers (2-250 characters)"_qs;
    QTest::newRow("A1") << "A1" << "";
    QTest::newRow("spaces around") << "  Sales \n" << "";
    QTest::newRow("empty") << "   " << "Group name cannot be empty";
    QTest::newRow("one letter") << "A" << rule;
    QTest::newRow("digit first") << "1abc" << rule;
    QTest::newRow("inner space") << "ab c" << rule;
    QTest::newRow("dash") << "abc-d" << rule;
    QTest::newRow("umlaut") << "Ännchen" << rule;
    QTest::newRow("251 characters") << QString(u'a').repeated(251) << rule;
    QTest::newRow("250 characters") << QString(u'a').repeated(250) << "";
}

void TestRecipientsPanel::groupNameValidation()
{
    QFETCH(QString, typed);
    QFETCH(QString, message);
    FakeDialogs dialogs;
    dialogs.answers.enqueue(typed);
    panel()->createGroupButtonClicked();
    if (message.isEmpty()) {
        QTRY_VERIFY(groupIdByName(store(), typed.trimmed()) > 0);
        QVERIFY(dialogs.shown.size() == 1);
        NetworkClient::shared().deleteGroup(groupIdByName(store(), typed.trimmed()), nullptr, [](const auto&) {});
        return;
    }
    QCOMPARE(dialogs.shown.size(), 2);
    QCOMPARE(dialogs.shown.at(1).title, QStringLiteral("Error"));
    QCOMPARE(dialogs.shown.at(1).message, message);
    QVERIFY(noneArrives(*m_sim, u"POST"_qs, u"/v2/groups"_qs));
}

void TestRecipientsPanel::groupLifecycleAgainstThePhone()
{
    FakeDialogs dialogs;
    // Create.
    dialogs.answers.enqueue(u"Climbers"_qs);
    panel()->createGroupButtonClicked();
    QCOMPARE(dialogs.shown.at(0).title, QStringLiteral("Create New Group"));
    QCOMPARE(dialogs.shown.at(0).message, QStringLiteral("Enter group name:"));
    QCOMPARE(dialogs.shown.at(0).options, (QStringList { u"Create"_qs, u"Cancel"_qs }));
    QTRY_VERIFY(groupIdByName(store(), u"Climbers"_qs) > 0);
    const qint64 id = groupIdByName(store(), u"Climbers"_qs);
    const QString updateGroups = u"/updateGroups"_qs;
    QTRY_COMPARE(countRequests(*m_sim, u"POST"_qs, updateGroups), 1); // the phone is told

    // A taken name: the phone's conflict, as the user reads it.
    dialogs.answers.enqueue(u"Family"_qs);
    panel()->createGroupButtonClicked();
    QTRY_COMPARE(dialogs.shown.size(), 3);
    QCOMPARE(dialogs.shown.at(2).message, QStringLiteral("Conflict: A group with this name already exists"));

    // The menu of an empty group.
    std::unique_ptr<QMenu> menu(panel()->buildGroupMenu(id));
    QCOMPARE(menu->actions().size(), 6);
    QVERIFY(!menuAction(menu.get(), u"Remove Member"_qs)->isEnabled());

    // Rename: same name sends nothing, a new one is saved.
    const QString groupPath = QStringLiteral("/v2/groups/%1").arg(id);
    dialogs.answers.enqueue(u"Climbers"_qs);
    menuAction(menu.get(), u"Edit Group"_qs)->trigger();
    QVERIFY(noneArrives(*m_sim, u"PATCH"_qs, groupPath));
    // A new name: saved, the phone told, and the groups fetched again at once and once more
    // 0.8 s later (the members-changed notice).
    const QString fetchGroups = u"/v2/groups/"_qs + owner;
    const int fetches = countRequests(*m_sim, u"GET"_qs, fetchGroups);
    dialogs.answers.enqueue(u"Alpinists"_qs);
    panel()->menuEditGroup(id);
    QCOMPARE(dialogs.shown.last().message, QStringLiteral("Enter new group name:"));
    QVERIFY(arrivesWithin(*m_sim, u"PATCH"_qs, groupPath, 1, 10000));
    QVERIFY(arrivesWithin(*m_sim, u"GET"_qs, fetchGroups, fetches + 1, 10000));
    QVERIFY(arrivesLater(*m_sim, u"GET"_qs, fetchGroups, fetches + 2, 400));
    QTRY_COMPARE(store()->groupById(id) ? store()->groupById(id)->name : QString(), QStringLiteral("Alpinists"));
    QTRY_COMPARE(countRequests(*m_sim, u"POST"_qs, updateGroups), 2);

    // Add members: nothing ticked sends nothing; two ticked are added.
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> {}));
    panel()->menuAddMember(id);
    QTRY_COMPARE(dialogs.shown.last().kind, QStringLiteral("chooseItems"));
    QCOMPARE(dialogs.shown.last().title, QStringLiteral("Add Users to 'Alpinists'"));
    QCOMPARE(dialogs.shown.last().options.size(), 12);
    QVERIFY(noneArrives(*m_sim, u"POST"_qs, groupPath + u"/users/add"));
    const int shown = dialogs.shown.size();
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> { 0, 2 }));
    panel()->menuAddMember(id);
    QTRY_COMPARE(dialogs.shown.size(), shown + 1);
    // The phone hears of it 0.3 s after the members were saved.
    QVERIFY(arrivesWithin(*m_sim, u"POST"_qs, groupPath + u"/users/add", 1, 10000));
    QVERIFY(arrivesLater(*m_sim, u"POST"_qs, updateGroups, 3, 100));
    QTRY_COMPARE_WITH_TIMEOUT(store()->groupById(id)->groupMembers.size(), 2, 3000);

    // Delete is refused while members remain.
    panel()->menuDeleteGroup(id);
    QCOMPARE(dialogs.shown.last().title, QStringLiteral("Cannot Delete Group"));
    QCOMPARE(dialogs.shown.last().message,
             QStringLiteral("Please remove all members from 'Alpinists' before deleting the group."));
    // Remove both, then delete.
    dialogs.answers.enqueue(QVariant::fromValue(QList<int> { 0, 1 }));
    panel()->menuRemoveMember(id);
    QCOMPARE(dialogs.shown.last().title, QStringLiteral("Remove Users from 'Alpinists'"));
    QVERIFY(arrivesWithin(*m_sim, u"POST"_qs, groupPath + u"/users/remove", 1, 10000));
    QVERIFY(arrivesLater(*m_sim, u"POST"_qs, updateGroups, 4, 100));
    QTRY_COMPARE_WITH_TIMEOUT(store()->groupById(id)->groupMembers.size(), 0, 3000);
    panel()->menuRemoveMember(id);
    QCOMPARE(dialogs.shown.last().message, QStringLiteral("No members to remove"));
    dialogs.answers.enqueue(1); // Cancel
    panel()->menuDeleteGroup(id);
    QCOMPARE(dialogs.shown.last().message,
             QStringLiteral("Are you sure you want to delete 'Alpinists'? This action cannot be undone."));
    QVERIFY(store()->groupById(id));
    QVERIFY(noneArrives(*m_sim, u"DELETE"_qs, groupPath));
    dialogs.answers.enqueue(0); // Delete
    panel()->menuDeleteGroup(id);
    QTRY_VERIFY(!store()->groupById(id));
    QTRY_COMPARE(countRequests(*m_sim, u"POST"_qs, updateGroups), 5);
}

void TestRecipientsPanel::failuresSayWhatFailed_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path"); // %1: the group's id
    QTest::addColumn<QVariant>("answer");
    QTest::addColumn<QString>("prefix");
    const QVariant first = QVariant::fromValue(QList<int> { 0 });
    QTest::newRow("rename") << "rename"
                            << "PATCH"
                            << "/v2/groups/%1" << QVariant(u"Relatives"_qs) << "Failed to update group: ";
    QTest::newRow("load users") << "add"
                                << "GET"
                                << "/v2/groups/%1/users/*" << first << "Failed to load users: ";
    QTest::newRow("add") << "add"
                         << "POST"
                         << "/v2/groups/%1/users/add" << first << "Failed to add users: ";
    QTest::newRow("remove") << "remove"
                            << "POST"
                            << "/v2/groups/%1/users/remove" << first << "Failed to remove users: ";
    QTest::newRow("delete") << "delete"
                            << "DELETE"
                            << "/v2/groups/%1" << QVariant(0) << "Failed to delete group: ";
}

void TestRecipientsPanel::failuresSayWhatFailed()
{
    QFETCH(QString, action);
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QVariant, answer);
    QFETCH(QString, prefix);
    qint64 id = groupIdByName(store(), u"Family"_qs); // two members
    if (action == u"delete") {
        // Only an empty group can be deleted: one made on the phone, as another desktop would.
        QCOMPARE(m_sim->post("/v2/groups", { { u"username"_qs, owner }, { u"name"_qs, u"Spare"_qs } }), 201);
        Session::instance().markGroupsUpdated();
        QTRY_VERIFY(groupIdByName(store(), u"Spare"_qs) > 0);
        id = groupIdByName(store(), u"Spare"_qs);
    }
    // No answer in time: a failure for every kind of call (an answer without a body counts as
    // done whatever its status).
    QVERIFY(m_sim->setFault(
        { { u"method"_qs, method }, { u"path"_qs, path.arg(id) }, { u"noAnswer"_qs, true } }));
    NetworkClient::shared().setTimeouts(std::chrono::milliseconds(500), std::chrono::seconds(5));
    FakeDialogs dialogs;
    dialogs.answers.enqueue(answer);
    if (action == u"rename")
        panel()->menuEditGroup(id);
    else if (action == u"add")
        panel()->menuAddMember(id);
    else if (action == u"remove")
        panel()->menuRemoveMember(id);
    else
        panel()->menuDeleteGroup(id);
    QTRY_VERIFY(!dialogs.shown.isEmpty() && dialogs.shown.last().title == u"Error");
    const QString message = dialogs.shown.last().message;
    QVERIFY2(message.startsWith(prefix + APIError::networkError(QString()).description())
            && message.size() > prefix.size() + 16,
        qPrintable(message));
    if (action == u"delete") {
        m_sim->clearFaults();
        auto deleted = std::make_shared<bool>(false);
        NetworkClient::shared().deleteGroup(
            id, nullptr, [deleted](const auto& r) { *deleted = r.isSuccess(); });
        QTRY_VERIFY(*deleted);
    }
}

void TestRecipientsPanel::groupDialogsPrefillAndWarn()
{
    FakeDialogs dialogs;
    // Create: an empty field with the "Group name" hint; a bad name is an Error warning.
    dialogs.answers.enqueue(u"   "_qs);
    panel()->createGroupButtonClicked();
    QCOMPARE(dialogs.shown.at(0).kind, QStringLiteral("askText"));
    QCOMPARE(dialogs.shown.at(0).initialText, QString());
    QCOMPARE(dialogs.shown.at(0).placeholder, QStringLiteral("Group name"));
    QCOMPARE(dialogs.shown.at(1).title, QStringLiteral("Error"));
    QCOMPARE(dialogs.shown.at(1).style, Dialogs::Style::Warning);
    // Rename: the field starts with the group's name.
    const qint64 family = groupIdByName(store(), u"Family"_qs);
    panel()->menuEditGroup(family); // cancelled
    QCOMPARE(dialogs.shown.at(2).initialText, QStringLiteral("Family"));
    QCOMPARE(dialogs.shown.at(2).placeholder, QStringLiteral("Group name"));
    // Delete: refused while members remain, then confirmed, both as warnings.
    panel()->menuDeleteGroup(family);
    QCOMPARE(dialogs.shown.at(3).title, QStringLiteral("Cannot Delete Group"));
    QCOMPARE(dialogs.shown.at(3).style, Dialogs::Style::Warning);
    dialogs.answers.enqueue(u"Shortlived"_qs);
    panel()->createGroupButtonClicked();
    QTRY_VERIFY(groupIdByName(store(), u"Shortlived"_qs) > 0);
    dialogs.answers.enqueue(0);
    panel()->menuDeleteGroup(groupIdByName(store(), u"Shortlived"_qs));
    QCOMPARE(dialogs.shown.last().title, QStringLiteral("Delete Group"));
    QCOMPARE(dialogs.shown.last().options, (QStringList { u"Delete"_qs, u"Cancel"_qs }));
    QCOMPARE(dialogs.shown.last().style, Dialogs::Style::Warning);
    QTRY_VERIFY(groupIdByName(store(), u"Shortlived"_qs) < 0);
    // Every dialog belongs to the window, through the screen that opened it.
    for (const auto& shown : dialogs.shown)
        QCOMPARE(shown.parent ? shown.parent->window() : nullptr, m_screen->window());
}

void TestRecipientsPanel::phoneChangeSignalsReload()
{
    QCOMPARE(m_sim->post("/sim/contacts", { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                                            { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
             201);
    const int before = int(store()->users.size());
    Session::instance().markAssociatesUpdated(); // what the listener does on "/updateAssociates"
    QTRY_COMPARE_WITH_TIMEOUT(int(store()->users.size()), before + 1, 3000);
    m_sim->request("DELETE", "/sim/contacts/mia.wong@example.com");
}

void TestRecipientsPanel::dialogScreenshots()
{
    const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR");
    if (out.isEmpty())
        QSKIP("set VARNEX_SCREENSHOT_DIR to save screenshots");
    // The real dialogs: each is captured once it shows, then cancelled.
    int captured = 0;
    auto capture = [this, &out, &captured](const QString& name) {
        auto* poll = new QTimer(this);
        connect(poll, &QTimer::timeout, this, [poll, out, name, &captured] {
            QWidget* dialog = QApplication::activeModalWidget();
            if (!dialog || !dialog->isVisible())
                return;
            dialog->grab().save(out + u"/dialog-" + name + u".png");
            dialog->close();
            ++captured;
            poll->deleteLater();
        });
        poll->start(100);
    };
    const qint64 family = groupIdByName(store(), u"Family"_qs);
    capture(u"create"_qs);
    panel()->createGroupButtonClicked();
    capture(u"rename"_qs);
    panel()->menuEditGroup(family);
    capture(u"remove-members"_qs);
    panel()->menuRemoveMember(family);
    capture(u"cannot-delete"_qs);
    panel()->menuDeleteGroup(family);
    capture(u"add-members"_qs);
    panel()->menuAddMember(family);
    QTRY_COMPARE_WITH_TIMEOUT(captured, 5, 10000); // the candidates come from the phone first
    {
        FakeDialogs make;
        make.answers.enqueue(u"Empty"_qs);
        panel()->createGroupButtonClicked();
        QTRY_VERIFY(groupIdByName(store(), u"Empty"_qs) > 0);
    }
    capture(u"delete"_qs);
    panel()->menuDeleteGroup(groupIdByName(store(), u"Empty"_qs));
    capture(u"error"_qs);
    panel()->showErrorAlert(u"Conflict: A group with this name already exists"_qs);
    QTRY_COMPARE(captured, 7);
}

QTEST_MAIN(TestRecipientsPanel)
#include "tst_recipients_panel.moc"
