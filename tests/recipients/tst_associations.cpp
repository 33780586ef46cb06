#include "app/Settings.h"
#include "app/Translations.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

namespace {

UserPtr user(const QString& first, const QString& last, const QString& email, bool checked = false)
{
    auto u = std::make_shared<User>();
    u->firstName = first;
    u->lastName = last;
    u->email = email;
    u->phone = u"+1 555 0100"_qs;
    u->isChecked = checked;
    return u;
}

GroupPtr group(qint64 id, const QString& name, const QList<std::pair<QString, QString>>& members = {},
    bool checked = false)
{
    auto g = std::make_shared<GroupModel>();
    g->id = id;
    g->name = name;
    qint64 memberId = id * 100;
    for (const auto& [fullName, email] : members)
        g->groupMembers.append({ ++memberId, fullName, email, {} });
    g->isChecked = checked;
    return g;
}

QStringList names(const QList<AssociationItemPtr>& items)
{
    QStringList result;
    for (const auto& item : items)
        result.append(item->id());
    return result;
}

void setUsers(AssociationsStore& store, const QList<UserPtr>& users)
{
    store.users = users;
    store.usersFiltered.clear();
    for (const auto& u : users)
        store.usersFiltered.append(std::make_shared<User>(*u));
}

const QByteArray twoUsers
    = R"({"getUsers":[{"firstName":"Ann","lastName":"Lee","email":"ann@x","phone":"1"},{"firstName":"Bo","lastName":"Chan","email":"bo@x","phone":"2"}]})";
const QByteArray oneUser
    = R"({"getUsers":[{"firstName":"Ann","lastName":"Lee","email":"ann@x","phone":"1"}]})";
const QByteArray noUsers = R"({"getUsers":[]})";

} // namespace

class TestAssociations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Texts are shown through the English catalogue, as in the program.
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void init() { Settings::open()->clear(); }
    void sortIsOrdinalAndStable();
    void search_data();
    void search();
    void recipientsAreDistinctAndSorted();
    void checkedGroupsText_data();
    void checkedGroupsText();
    void checkedGroupsSurviveAFetch();
    void usersReplyReplacesUsersAndKeepsTheirMarks();
    void rowsFollowExpansionAndClicksToggleWhatTheyShow();
    void modelShowsAndMarksInPlace();
    void aReplyAnnouncesOnlyTheRowsItChanged();
};

void TestAssociations::sortIsOrdinalAndStable()
{
    AssociationsStore store;
    setUsers(store,
        { user(u"adam"_qs, u"b"_qs, u"adam@x"_qs), user(u"Zoe"_qs, u"A"_qs, u"zoe@x"_qs),
            user(u"Team"_qs, QString(), u"team@x"_qs), user(QString(), QString(), u"blank@x"_qs) });
    store.groups = { group(1, u"Team "_qs), group(2, u"Alpha"_qs) };
    store.rebuildAssociations();
    // " " first, then upper case before lower case; a user before a group of the same name.
    QCOMPARE(names(store.combinedAssociations),
        (QStringList { u"user_blank@x"_qs, u"group_2"_qs, u"user_team@x"_qs, u"group_1"_qs, u"user_zoe@x"_qs,
            u"user_adam@x"_qs }));
    QCOMPARE(store.combinedAssociations.at(2)->displayName(), QStringLiteral("Team "));
    QCOMPARE(store.combinedAssociationsFiltered.size(), 6);
}

void TestAssociations::search_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("items");
    // In sorted order: Joanna Smith, Ops, Phil Ng, Planning.
    QTest::newRow("ann") << "ann" << QStringList { u"user_jo@x"_qs, u"group_3"_qs, u"group_2"_qs };
    QTest::newRow("upper case") << "ANN" << QStringList { u"user_jo@x"_qs, u"group_3"_qs, u"group_2"_qs };
    QTest::newRow("last name first") << "smith j" << QStringList {};
    QTest::newRow("first last") << "joanna s" << QStringList { u"user_jo@x"_qs };
    QTest::newRow("e-mail") << "ph@x" << QStringList { u"user_ph@x"_qs };
    QTest::newRow("member e-mail") << "lee@" << QStringList { u"group_3"_qs };
    QTest::newRow("phone is not searched") << "555 0123" << QStringList {};
    QTest::newRow("everything") << ""
                                << QStringList { u"user_jo@x"_qs, u"group_3"_qs, u"user_ph@x"_qs,
                                       u"group_2"_qs };
}

void TestAssociations::search()
{
    QFETCH(QString, text);
    AssociationsStore store;
    setUsers(store, { user(u"Joanna"_qs, u"Smith"_qs, u"jo@x"_qs), user(u"Phil"_qs, u"Ng"_qs, u"ph@x"_qs) });
    store.users.at(1)->phone = u"+1 555 0123 ann"_qs;
    store.groups = { group(2, u"Planning"_qs), group(3, u"Ops"_qs, { { u"Ann Lee"_qs, u"lee@x"_qs } }) };
    store.rebuildAssociations();
    QSignalSpy rows(&store, &AssociationsStore::rowsChanged);
    store.applySearch(text);
    QTEST(names(store.combinedAssociationsFiltered), "items");
    QCOMPARE(rows.size(), 1);
    // A rebuild (a reply, a change signal from the phone, a group change) keeps the search
    // applied, to records that came with it too.
    store.users.append(user(u"Annika"_qs, u"Berg"_qs, u"ab@x"_qs));
    store.rebuildAssociations();
    QFETCH(QStringList, items);
    if (u"annika berg\x1f"
        "ab@x"_qs.contains(text.toLower()))
        items.prepend(u"user_ab@x"_qs); // sorted first
    QCOMPARE(names(store.combinedAssociationsFiltered), items);
    QCOMPARE(store.associatedRowCount(), items.size());
}

void TestAssociations::recipientsAreDistinctAndSorted()
{
    AssociationsStore store;
    setUsers(store,
        { user(u"A"_qs, u"A"_qs, u"a@x"_qs, true), user(u"C"_qs, u"C"_qs, u"c@x"_qs, false),
            user(u"N"_qs, u"N"_qs, QString(), true) });
    store.groups = { group(1, u"G"_qs,
                         { { u"A"_qs, u"a@x"_qs }, { u"B"_qs, u"b@x"_qs }, { u"E"_qs, QString() } }, true),
        group(2, u"Empty"_qs, {}, true), group(3, u"Off"_qs, { { u"C"_qs, u"c@x"_qs } }, false) };
    QCOMPARE(store.selectedRecipientEmails(), (QStringList { u"a@x"_qs, u"b@x"_qs }));
    QCOMPARE(store.recipientsString(), QStringLiteral("a@x;b@x;"));
    for (const auto& u : store.users)
        u->isChecked = false;
    for (const auto& g : store.groups)
        g->isChecked = false;
    QCOMPARE(store.recipientsString(), QString());
}

void TestAssociations::checkedGroupsText_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QList<qint64>>("ids");
    QTest::newRow("two") << "test5test12test" << QList<qint64> { 5, 12 };
    QTest::newRow("none") << "testtest" << QList<qint64> {};
    QTest::newRow("one") << "test7test" << QList<qint64> { 7 };
    QTest::newRow("junk and negative") << "test7testxtest-3test" << QList<qint64> { 7, -3 };
    QTest::newRow("plus sign") << "test+8test" << QList<qint64> { 8 };
    QTest::newRow("overflow skipped") << "test99999999999999999999test4test" << QList<qint64> { 4 };
    QTest::newRow("spaces are junk") << "test 5test" << QList<qint64> {};
    QTest::newRow("empty") << "" << QList<qint64> {};
}

void TestAssociations::checkedGroupsText()
{
    QFETCH(QString, stored);
    QTEST(AssociationsStore::parseCheckedGroups(stored), "ids");
}

void TestAssociations::checkedGroupsSurviveAFetch()
{
    AssociationsStore store;
    store.setGroups({ group(5, u"A"_qs), group(12, u"B"_qs), group(13, u"C"_qs) });
    store.toggleGroupChecked(12);
    store.toggleGroupChecked(5);
    QCOMPARE(Settings::string("CheckedGroups"), QStringLiteral("test5test12test"));
    // A fresh fetch brings unchecked copies; the stored ids mark them again.
    store.setGroups({ group(5, u"A"_qs), group(12, u"B renamed"_qs), group(13, u"C"_qs) });
    QVERIFY(
        store.groupById(5)->isChecked && store.groupById(12)->isChecked && !store.groupById(13)->isChecked);
    Settings::setString("CheckedGroups", u"test13test999test"_qs); // a deleted group's id is ignored
    AssociationsStore later;
    later.setGroups({ group(5, u"A"_qs), group(13, u"C"_qs) });
    QVERIFY(!later.groupById(5)->isChecked && later.groupById(13)->isChecked);
}

// A reload from the phone (a change signal, the phone found again) is no decision of the
// user's: the people they chose stay chosen while the phone still lists them.
void TestAssociations::usersReplyReplacesUsersAndKeepsTheirMarks()
{
    AssociationsStore store;
    QVERIFY(store.setUsersFromReply(twoUsers));
    QCOMPARE(store.users.size(), 2);
    QVERIFY(store.users.at(0) != store.usersFiltered.at(0)); // separate copies
    store.setGroups({ group(1, u"G"_qs, { { u"Ann Lee"_qs, u"ann@x"_qs } }) });
    store.rebuildAssociations();
    store.clickRow(0); // Ann
    store.toggleGroupChecked(1);
    QVERIFY(store.usersFiltered.at(0)->isChecked.value_or(false));
    QVERIFY(store.setUsersFromReply(oneUser));
    QVERIFY(store.users.at(0)->isChecked.value_or(false));
    QCOMPARE(store.selectedRecipientEmails(), (QStringList { u"ann@x"_qs }));
    QVERIFY(store.groups.at(0)->isChecked);
    QVERIFY(!store.setUsersFromReply("not json"));
    QCOMPARE(store.users.size(), 1);
    QVERIFY(store.setUsersFromReply(noUsers));
    QVERIFY(store.users.isEmpty());
    // Gone from the phone, gone from the choice: Ann comes back unchosen.
    QVERIFY(store.setUsersFromReply(oneUser));
    QVERIFY(!store.users.at(0)->isChecked.value_or(false));
}

void TestAssociations::rowsFollowExpansionAndClicksToggleWhatTheyShow()
{
    AssociationsStore store;
    setUsers(store, { user(u"C"_qs, QString(), u"c@x"_qs), user(u"D"_qs, QString(), u"c@x"_qs) });
    const QList<std::pair<QString, QString>> three { { u"M1"_qs, u"m1@x"_qs }, { u"M2"_qs, u"m2@x"_qs },
        { u"M3"_qs, u"m3@x"_qs } };
    store.groups = { group(1, u"A"_qs, three), group(2, u"B"_qs) };
    store.rebuildAssociations();
    QCOMPARE(store.associatedRowCount(), 4);
    store.toggleGroupExpansion(1);
    QCOMPARE(store.associatedRowCount(), 7);
    using Kind = AssociatedUserRowType::Kind;
    QList<Kind> kinds;
    for (int row = 0; row < 7; ++row)
        kinds.append(store.rowType(row)->kind);
    QCOMPARE(kinds,
        (QList<Kind> { Kind::groupHeader, Kind::groupMember, Kind::groupMember, Kind::groupMember,
            Kind::groupHeader, Kind::user, Kind::user }));
    QCOMPARE(store.rowType(3)->member.email, QStringLiteral("m3@x"));
    QVERIFY(!store.rowType(7) && !store.rowType(-1));

    QSignalSpy recipients(&store, &AssociationsStore::recipientsChanged);
    QVERIFY(store.clickRow(4)); // B's header
    QVERIFY(store.groupById(2)->isChecked);
    QVERIFY(store.clickRow(2)); // a member: nothing toggled, the button is judged again
    QCOMPARE(store.selectedRecipientEmails(), QStringList());
    QCOMPARE(recipients.size(), 2);
    QVERIFY(store.clickRow(6)); // the second user with the same e-mail copies onto the first match
    QVERIFY(store.users.at(1)->isChecked.value_or(false));
    QVERIFY(store.usersFiltered.at(0)->isChecked.value_or(false));
    QVERIFY(!store.usersFiltered.at(1)->isChecked.value_or(false));
    QVERIFY(!store.clickRow(99));

    // Members come from the latest fetched copy of the group.
    store.groups[0] = group(1, u"A"_qs, { { u"New"_qs, u"new@x"_qs } });
    store.toggleGroupExpansion(2);
    store.toggleGroupExpansion(2);
    QCOMPARE(store.associatedRowCount(), 5);
    QCOMPARE(store.rowType(1)->member.email, QStringLiteral("new@x"));
}

void TestAssociations::modelShowsAndMarksInPlace()
{
    AssociationsStore store;
    RecipientsModel model(&store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    setUsers(store, { user(u"ann"_qs, u"lee"_qs, u"ann@x"_qs) });
    store.groups = { group(1, u"Ops"_qs, { { u"M1"_qs, u"m1@x"_qs }, { u"M2"_qs, u"m2@x"_qs } }) };
    store.groupsFiltered = store.groups;
    store.rebuildAssociations();
    store.toggleGroupExpansion(1); // Ops, M1, M2, ann
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(model.index(0).data(RecipientsModel::NameRole).toString(), QStringLiteral("OPS"));
    QCOMPARE(model.index(0).data(RecipientsModel::MemberCountRole).toString(), QStringLiteral("2 member(s)"));
    QCOMPARE(model.index(3).data(RecipientsModel::NameRole).toString(), QStringLiteral("ANN LEE"));
    QCOMPARE(model.index(3).data(Qt::ToolTipRole).toString(), QStringLiteral("ann lee"));
    QCOMPARE(model.index(3).data(RecipientsModel::SummaryRole).toString(),
        QStringLiteral("ann lee\nann@x\n+1 555 0100"));
    store.applySearch(u"zzz"_qs);
    QCOMPARE(model.rowCount(), 0);
    store.applySearch(QString());
    QCOMPARE(model.rowCount(), 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy recipients(&store, &AssociationsStore::recipientsChanged);

    // Marks through the check state flip users and groups by the click rule, in place.
    QVERIFY(model.flags(model.index(3)).testFlag(Qt::ItemIsUserCheckable));
    QVERIFY(model.setData(model.index(3), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(model.index(3).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(store.usersFiltered.first()->isChecked.value_or(false)); // the filtered copy follows
    QVERIFY(model.setData(model.index(3), Qt::Checked, Qt::CheckStateRole)); // already checked: no flip
    QCOMPARE(model.index(3).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(model.setData(model.index(0), Qt::Checked, Qt::CheckStateRole));
    QVERIFY(store.groups.first()->isChecked);
    QCOMPARE(store.selectedRecipientEmails(), QStringList({ u"ann@x"_qs, u"m1@x"_qs, u"m2@x"_qs }));
    QVERIFY(recipients.size() >= 2);
    // A member row carries no mark.
    QVERIFY(!model.flags(model.index(1)).testFlag(Qt::ItemIsUserCheckable));
    QVERIFY(!model.setData(model.index(1), Qt::Checked, Qt::CheckStateRole));
    // Everything marked: the button clears all marks, then marks all again.
    store.selectDeselectAll();
    QVERIFY(store.selectedRecipientEmails().isEmpty());
    QCOMPARE(Settings::string("CheckedGroups"), QStringLiteral("testtest"));
    QCOMPARE(reset.size(), 0);
    QVERIFY(changed.size() >= 3);
    store.clickRow(3);
    store.selectDeselectAll();
    QCOMPARE(store.selectedRecipientEmails(), QStringList({ u"ann@x"_qs, u"m1@x"_qs, u"m2@x"_qs }));
    QCOMPARE(Settings::string("CheckedGroups"), QStringLiteral("test1test"));
    AssociationsStore empty; // nothing at all counts as all checked: it deselects
    empty.selectDeselectAll();
    QVERIFY(empty.selectedRecipientEmails().isEmpty());
    // Rows that fold or unfold are other rows: a reset.
    store.toggleGroupExpansion(1);
    QCOMPARE(reset.size(), 1);
    QCOMPARE(model.rowCount(), 2);
}

void TestAssociations::aReplyAnnouncesOnlyTheRowsItChanged()
{
    AssociationsStore store;
    RecipientsModel model(&store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    auto reply = [&store](const QString& bosPhone, const QString& opsName, int opsMembers) {
        // Every record new, as a reply makes them.
        setUsers(store,
            { user(u"Ann"_qs, u"Lee"_qs, u"ann@x"_qs), user(u"Bo"_qs, u"Chan"_qs, u"bo@x"_qs),
                user(u"Cy"_qs, u"Dunn"_qs, u"cy@x"_qs) });
        store.users.at(1)->phone = bosPhone;
        QList<std::pair<QString, QString>> members;
        for (int m = 0; m < opsMembers; ++m)
            members.append({ u"M"_qs + QString::number(m), u"m@x"_qs });
        store.groups = { group(7, opsName, members) };
        store.rebuildAssociations();
    };
    reply(u"1"_qs, u"Ops"_qs, 1); // Ann Lee, Bo Chan, Cy Dunn, Ops
    QCOMPARE(model.rowCount(), 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    auto changedRows = [&changed] {
        QStringList rows;
        for (const auto& args : std::as_const(changed))
            rows.append(QString::number(args.at(0).toModelIndex().row()) + u'-'
                + QString::number(args.at(1).toModelIndex().row()));
        changed.clear();
        return rows.join(u' ');
    };
    reply(u"1"_qs, u"Ops"_qs, 1);
    QCOMPARE(changedRows(), QString()); // the same content: nothing to announce
    reply(u"2"_qs, u"Ops"_qs, 2);
    QCOMPARE(changedRows(), u"1-1 3-3"_qs); // Bo's phone, the group's member count
    store.clickRow(2);
    QCOMPARE(changedRows(), u"2-2"_qs);
    store.selectDeselectAll(); // Ann, Bo and the group get their marks; Cy had his
    QCOMPARE(changedRows(), u"0-1 3-3"_qs);
    QCOMPARE(reset.size(), 0);
    // Other rows: a reset, with the search still applied.
    store.applySearch(u"ch"_qs);
    reply(u"2"_qs, u"Ops"_qs, 2);
    QCOMPARE(reset.size(), 1);
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(model.index(0).data(RecipientsModel::EmailRole).toString(), u"bo@x"_qs);
}

QTEST_GUILESS_MAIN(TestAssociations)
#include "tst_associations.moc"
