#include "app/Settings.h"
#include "app/Translations.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

namespace {

UserPtr user(const QString& first, const QString& last, const QString& email)
{
    auto u = std::make_shared<User>();
    u->firstName = first;
    u->lastName = last;
    u->email = email;
    u->phone = u"+1 555 0100"_qs;
    return u;
}

GroupPtr group(qint64 id, const QString& name, const QList<std::pair<QString, QString>>& members = {})
{
    auto g = std::make_shared<GroupModel>();
    g->id = id;
    g->name = name;
    qint64 memberId = id * 100;
    for (const auto& [fullName, email] : members)
        g->groupMembers.append({ ++memberId, fullName, email, {} });
    return g;
}

// The users and groups the rows show, as item ids.
QStringList shownIds(const RecipientsModel& model)
{
    QStringList result;
    for (int row = 0; row < model.rowCount(); ++row) {
        const auto type = model.rowType(row);
        if (type->kind == AssociatedUserRowType::Kind::user)
            result.append(u"user_" + type->user->email.value_or(QString()));
        else if (type->kind == AssociatedUserRowType::Kind::groupHeader)
            result.append(u"group_" + QString::number(type->group->id));
    }
    return result;
}

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
    void rowsFollowExpansionAndClicksToggleWhatTheyShow();
    void modelShowsAndMarksInPlace();
    void aReplyAnnouncesOnlyTheRowsItChanged();
};

void TestAssociations::sortIsOrdinalAndStable()
{
    AssociationsStore store;
    RecipientsModel model(&store);
    store.setUsers({ user(u"adam"_qs, u"b"_qs, u"adam@x"_qs), user(u"Zoe"_qs, u"A"_qs, u"zoe@x"_qs),
        user(u"Team"_qs, QString(), u"team@x"_qs), user(QString(), QString(), u"blank@x"_qs) });
    store.setGroups({ group(1, u"Team "_qs), group(2, u"Alpha"_qs) });
    // " " first, then upper case before lower case; a user before a group of the same name.
    QCOMPARE(shownIds(model),
        (QStringList { u"user_blank@x"_qs, u"group_2"_qs, u"user_team@x"_qs, u"group_1"_qs, u"user_zoe@x"_qs,
            u"user_adam@x"_qs }));
    QCOMPARE(store.items().at(2)->displayName(), QStringLiteral("Team "));
    // The phone's new order of the same users: equal names follow it.
    const UserPtr team2 = user(u"Team"_qs, QString(), u"team2@x"_qs);
    store.setUsers({ store.users().at(2), team2, store.users().at(0) });
    const QStringList teams { u"group_2"_qs, u"user_team@x"_qs, u"user_team2@x"_qs, u"group_1"_qs,
        u"user_adam@x"_qs };
    QCOMPARE(shownIds(model), teams);
    store.setUsers({ team2, store.users().at(0), store.users().at(2) });
    QCOMPARE(
        shownIds(model), (QStringList { teams.at(0), teams.at(2), teams.at(1), teams.at(3), teams.at(4) }));
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
    RecipientsModel model(&store);
    QList<UserPtr> users { user(u"Joanna"_qs, u"Smith"_qs, u"jo@x"_qs),
        user(u"Phil"_qs, u"Ng"_qs, u"ph@x"_qs) };
    users.at(1)->phone = u"+1 555 0123 ann"_qs;
    store.setUsers(users);
    store.setGroups({ group(2, u"Planning"_qs), group(3, u"Ops"_qs, { { u"Ann Lee"_qs, u"lee@x"_qs } }) });
    // Narrowed letter by letter, as it is typed.
    for (qsizetype typed = 1; typed <= text.size(); ++typed)
        model.applySearch(text.left(typed));
    QTEST(shownIds(model), "items");
    // Replies (a change signal from the phone, a group change) keep the search applied, to
    // records that came with them too, and a reply with nothing new changes nothing.
    QFETCH(QStringList, items);
    users.append(user(u"Annika"_qs, u"Berg"_qs, u"ab@x"_qs));
    store.setUsers(users);
    if (u"annika berg\x1f"
        "ab@x"_qs.contains(text.toLower()))
        items.prepend(u"user_ab@x"_qs); // sorted first
    QCOMPARE(shownIds(model), items);
    store.setGroups({ group(2, u"Planning"_qs), group(3, u"Ops"_qs, { { u"Ann Lee"_qs, u"lee@x"_qs } }),
        group(4, u"Annex"_qs) });
    store.setUsers(users);
    if (u"annex"_qs.contains(text.toLower()))
        items.prepend(u"group_4"_qs);
    QCOMPARE(shownIds(model), items);
    QCOMPARE(model.rowCount(), items.size());
    QCOMPARE(model.searchText(), text);
    // Clearing the search shows everyone again.
    model.applySearch(QString());
    QCOMPARE(model.rowCount(), 6);
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

void TestAssociations::recipientsAreDistinctAndSorted()
{
    AssociationsStore store;
    store.setUsers({ user(u"A"_qs, u"A"_qs, u"a@x"_qs), user(u"C"_qs, u"C"_qs, u"c@x"_qs),
        user(u"N"_qs, u"N"_qs, QString()) });
    store.setGroups(
        { group(1, u"G"_qs, { { u"A"_qs, u"a@x"_qs }, { u"B"_qs, u"b@x"_qs }, { u"E"_qs, QString() } }),
            group(2, u"Empty"_qs), group(3, u"Off"_qs, { { u"C"_qs, u"c@x"_qs } }) });
    store.toggleUserChecked(store.users().at(0).get());
    store.toggleUserChecked(store.users().at(2).get());
    store.toggleGroupChecked(1);
    store.toggleGroupChecked(2);
    QCOMPARE(store.selectedRecipientEmails(), (QStringList { u"a@x"_qs, u"b@x"_qs }));
    QCOMPARE(store.recipientsString(), QStringLiteral("a@x;b@x;"));
    // A reload from the phone (a change signal, the phone found again) is no decision of the
    // user's: the people they chose stay chosen while the phone still lists them.
    store.setUsers({ user(u"C"_qs, u"C"_qs, u"c@x"_qs), user(u"A"_qs, u"A"_qs, u"a@x"_qs) });
    QVERIFY(store.users().at(1)->isChecked.value_or(false) && !store.users().at(0)->isChecked.value_or(true));
    QVERIFY(store.groupById(1)->isChecked);
    store.toggleGroupChecked(1);
    QCOMPARE(store.recipientsString(), QStringLiteral("a@x;"));
    store.setUsers({});
    QVERIFY(store.users().isEmpty());
    // Gone from the phone, gone from the choice: A comes back unchosen.
    store.setUsers({ user(u"A"_qs, u"A"_qs, u"a@x"_qs) });
    QVERIFY(!store.users().at(0)->isChecked.value_or(false));
    store.toggleUserChecked(store.users().at(0).get());
    store.toggleGroupChecked(1);
    store.uncheckAllUsers(); // after an encryption: the groups stay checked
    QCOMPARE(store.recipientsString(), QStringLiteral("a@x;b@x;"));
}

void TestAssociations::rowsFollowExpansionAndClicksToggleWhatTheyShow()
{
    AssociationsStore store;
    RecipientsModel model(&store);
    store.setUsers({ user(u"C"_qs, QString(), u"c@x"_qs), user(u"D"_qs, QString(), u"c@x"_qs) });
    const QList<std::pair<QString, QString>> three { { u"M1"_qs, u"m1@x"_qs }, { u"M2"_qs, u"m2@x"_qs },
        { u"M3"_qs, u"m3@x"_qs } };
    store.setGroups({ group(1, u"A"_qs, three), group(2, u"B"_qs) });
    QCOMPARE(model.rowCount(), 4);
    store.toggleGroupExpansion(1);
    QCOMPARE(model.rowCount(), 7);
    using Kind = AssociatedUserRowType::Kind;
    QList<Kind> kinds;
    for (int row = 0; row < 7; ++row)
        kinds.append(model.rowType(row)->kind);
    QCOMPARE(kinds,
        (QList<Kind> { Kind::groupHeader, Kind::groupMember, Kind::groupMember, Kind::groupMember,
            Kind::groupHeader, Kind::user, Kind::user }));
    QCOMPARE(model.rowType(3)->member.email, QStringLiteral("m3@x"));
    QVERIFY(!model.rowType(7) && !model.rowType(-1));

    QSignalSpy recipients(&store, &AssociationsStore::recipientsChanged);
    QVERIFY(model.clickRow(4)); // B's header
    QVERIFY(store.groupById(2)->isChecked);
    QVERIFY(model.clickRow(2)); // a member: nothing toggled, the button is judged again
    QCOMPARE(store.selectedRecipientEmails(), QStringList());
    QCOMPARE(recipients.size(), 2);
    QVERIFY(model.clickRow(6)); // the second user with the same e-mail
    QVERIFY(store.users().at(1)->isChecked.value_or(false));
    QVERIFY(!store.users().at(0)->isChecked.value_or(false));
    QVERIFY(!model.clickRow(99));

    // Members come from the latest fetched copy of the group.
    store.setGroups({ group(1, u"A"_qs, { { u"New"_qs, u"new@x"_qs } }), group(2, u"B"_qs) });
    QCOMPARE(model.rowCount(), 5);
    QCOMPARE(model.rowType(1)->member.email, QStringLiteral("new@x"));
}

void TestAssociations::modelShowsAndMarksInPlace()
{
    AssociationsStore store;
    RecipientsModel model(&store);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    store.setUsers({ user(u"ann"_qs, u"lee"_qs, u"ann@x"_qs) });
    store.setGroups({ group(1, u"Ops"_qs, { { u"M1"_qs, u"m1@x"_qs }, { u"M2"_qs, u"m2@x"_qs } }) });
    store.toggleGroupExpansion(1); // Ops, M1, M2, ann
    QCOMPARE(model.rowCount(), 4);
    QCOMPARE(model.index(0).data(RecipientsModel::NameRole).toString(), QStringLiteral("OPS"));
    QCOMPARE(model.index(0).data(RecipientsModel::MemberCountRole).toString(), QStringLiteral("2 member(s)"));
    QCOMPARE(model.index(3).data(RecipientsModel::NameRole).toString(), QStringLiteral("ANN LEE"));
    QCOMPARE(model.index(3).data(Qt::ToolTipRole).toString(), QStringLiteral("ann lee"));
    QCOMPARE(model.index(3).data(RecipientsModel::SummaryRole).toString(),
        QStringLiteral("ann lee\nann@x\n+1 555 0100"));
    model.applySearch(u"zzz"_qs);
    QCOMPARE(model.rowCount(), 0);
    model.applySearch(QString());
    QCOMPARE(model.rowCount(), 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy recipients(&store, &AssociationsStore::recipientsChanged);
    model.applySearch(QString()); // the same rows again: in place, so a view keeps its place

    // Marks through the check state flip users and groups by the click rule, in place.
    QVERIFY(model.flags(model.index(3)).testFlag(Qt::ItemIsUserCheckable));
    QVERIFY(model.setData(model.index(3), Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(model.index(3).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(model.setData(model.index(3), Qt::Checked, Qt::CheckStateRole)); // already checked: no flip
    QCOMPARE(model.index(3).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
    QVERIFY(model.setData(model.index(0), Qt::Checked, Qt::CheckStateRole));
    QVERIFY(store.groups().first()->isChecked);
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
    model.clickRow(3);
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
    // Every record new, as a reply makes them.
    auto reply = [&store](const QString& bosPhone, const QString& opsName, int opsMembers, bool eve = false) {
        QList<UserPtr> users { user(u"Ann"_qs, u"Lee"_qs, u"ann@x"_qs),
            user(u"Bo"_qs, u"Chan"_qs, u"bo@x"_qs), user(u"Cy"_qs, u"Dunn"_qs, u"cy@x"_qs) };
        users.at(1)->phone = bosPhone;
        if (eve)
            users.append(user(u"Eve"_qs, u"Chu"_qs, u"eve@x"_qs));
        store.setUsers(users);
        QList<std::pair<QString, QString>> members;
        for (int m = 0; m < opsMembers; ++m)
            members.append({ u"M"_qs + QString::number(m), u"m@x"_qs });
        store.setGroups({ group(7, opsName, members) });
    };
    reply(u"1"_qs, u"Ops"_qs, 1); // Ann Lee, Bo Chan, Cy Dunn, Ops
    QCOMPARE(model.rowCount(), 4);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
    // The runs of rows a spy heard of, "first-last", the rows of dataChanged being indexes.
    auto rows = [&changed](QSignalSpy& spy) {
        QStringList runs;
        for (const auto& a : std::as_const(spy))
            runs.append(&spy == &changed
                    ? u"%1-%2"_qs.arg(a.at(0).toModelIndex().row()).arg(a.at(1).toModelIndex().row())
                    : u"%1-%2"_qs.arg(a.at(1).toInt()).arg(a.at(2).toInt()));
        spy.clear();
        return runs.join(u' ');
    };
    reply(u"1"_qs, u"Ops"_qs, 1);
    QCOMPARE(rows(changed), QString()); // the same content: nothing to announce
    reply(u"2"_qs, u"Ops"_qs, 2);
    QCOMPARE(rows(changed), u"1-1 3-3"_qs); // Bo's phone, the group's member count
    model.clickRow(2);
    QCOMPARE(rows(changed), u"2-2"_qs);
    store.selectDeselectAll(); // Ann, Bo and the group get their marks; Cy had his
    QCOMPARE(rows(changed), u"0-1 3-3"_qs);
    // Someone new, and someone gone: those rows alone come and go, the marks stay.
    reply(u"2"_qs, u"Ops"_qs, 2, true);
    QCOMPARE(rows(inserted), u"3-3"_qs); // Eve Chu, before Ops
    reply(u"2"_qs, u"Ops"_qs, 2);
    QCOMPARE(rows(removed), u"3-3"_qs);
    QCOMPARE(rows(changed), QString());
    QCOMPARE(store.selectedRecipientEmails().size(), 4);
    QCOMPARE(reset.size(), 0);
    // Other rows: a reset, with the search still applied.
    model.applySearch(u"ch"_qs);
    reply(u"2"_qs, u"Ops"_qs, 2);
    QCOMPARE(reset.size(), 1);
    QCOMPARE(model.rowCount(), 1);
    QCOMPARE(model.index(0).data(RecipientsModel::EmailRole).toString(), u"bo@x"_qs);
}

QTEST_GUILESS_MAIN(TestAssociations)
#include "tst_associations.moc"
