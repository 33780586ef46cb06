#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "recipients/GroupManagement.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"
#include "recipients/RecipientsModel.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QString owner = QStringLiteral("alex.morgan@example.com");
const QString groupsPath = u"/v2/groups/"_qs + owner;
const QString notice = QStringLiteral("POST /updateGroups");

} // namespace

// The recipients as a command line would drive them, with no widget: the store, the controller
// that keeps it in step with the phone, and group management, against the phone simulator.
class TestRecipients : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void init();
    void cleanup();
    void groupNameRule_data();
    void groupNameRule();
    void groupLifecycle();
    void failuresSayWhatFailed_data();
    void failuresSayWhatFailed();
    void changeSignalsReloadAndTheSearchStays();
    void aFetchThePhoneNeverAnswersIsAbandoned_data();
    void aFetchThePhoneNeverAnswersIsAbandoned();

private:
    // "METHOD path body" of each request the phone saw, oldest first.
    QStringList asked();
    // How many "METHOD path" requests it saw, whatever their bodies.
    int count(const QString& request)
    {
        const QStringList all = asked();
        return int(std::count_if(all.begin(), all.end(),
            [&](const QString& r) { return r == request || r.startsWith(request + u' '); }));
    }
    // True once the phone has seen `n` such requests.
    bool arrives(const QString& request, int n, int ms = 10000)
    {
        return QTest::qWaitFor([&] { return count(request) >= n; }, ms);
    }
    // True when the `n`th comes, but not sooner than `quietMs` from now.
    bool arrivesLater(const QString& request, int n, int quietMs)
    {
        return !arrives(request, n, quietMs) && arrives(request, n);
    }
    qint64 groupId(const QString& name) const
    {
        for (const GroupPtr& group : m_store->groups()) {
            if (group->name == name)
                return group->id;
        }
        return -1;
    }

    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<PhoneServiceClient> m_phoneService;
    std::unique_ptr<NetworkClient> m_api;
    std::unique_ptr<AssociationsStore> m_store;
    std::unique_ptr<RecipientsController> m_controller;
    std::unique_ptr<GroupManagement> m_groups;
};

void TestRecipients::init()
{
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, owner);
    m_session = std::make_unique<Session>(m_sim->port());
    m_session->setPhoneIPAddress(u"127.0.0.1"_qs);
    m_session->setPhoneConnected(true);
    m_phoneService = std::make_unique<PhoneServiceClient>(*m_session);
    m_api = std::make_unique<NetworkClient>();
    m_store = std::make_unique<AssociationsStore>();
    m_controller = std::make_unique<RecipientsController>(*m_store, *m_session, *m_phoneService, *m_api);
    m_groups = std::make_unique<GroupManagement>(*m_controller, *m_api, *m_phoneService);
    m_controller->start();
    QTRY_VERIFY_WITH_TIMEOUT(m_store->users().size() >= 12 && m_store->groups().size() >= 2, 5000);
    QCOMPARE(count(u"GET /getUsers"_qs), 1);
    QVERIFY(m_sim->clearRequests());
}

void TestRecipients::cleanup()
{
    m_groups.reset();
    m_controller.reset();
    m_store.reset();
    m_api.reset();
    m_phoneService.reset();
    m_session.reset();
    m_sim.reset();
}

QStringList TestRecipients::asked()
{
    QStringList requests;
    for (const QJsonValue& value : m_sim->requests()) {
        const QJsonObject r = value.toObject();
        const QString body = r.value(u"body").toString();
        requests.append(r.value(u"method").toString() + u' ' + r.value(u"path").toString()
            + (body.isEmpty() ? QString() : u' ' + body));
    }
    return requests;
}

void TestRecipients::groupNameRule_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("verdict"); // "sent as" the name, or what the dialog says under the field
    const QString characters = u"Use only the letters A-Z and digits, starting with a letter."_qs;
    const QString length = u"Use 2 to 250 characters."_qs;
    QTest::newRow("A1") << u"A1"_qs << u"sent as A1"_qs;
    QTest::newRow("spaces around") << u"  Sales \n"_qs << u"sent as Sales"_qs;
    QTest::newRow("empty: nothing said") << u"   "_qs << QString();
    QTest::newRow("one letter") << u"A"_qs << length;
    QTest::newRow("digit first") << u"1abc"_qs << characters;
    QTest::newRow("inner space") << u"ab c"_qs << characters;
    QTest::newRow("dash") << u"abc-d"_qs << characters;
    QTest::newRow("umlaut first") << u"Ännchen"_qs << characters;
    QTest::newRow("umlaut inside") << u"Steuerbüro"_qs << characters;
    QTest::newRow("251 characters") << QString(u'a').repeated(251) << length;
    QTest::newRow("250 characters") << QString(u'a').repeated(250)
                                    << u"sent as "_qs + QString(u'a').repeated(250);
}

void TestRecipients::groupNameRule()
{
    QFETCH(QString, typed);
    const auto verdict = GroupNameRule::check(typed);
    QTEST(verdict.name ? u"sent as "_qs + *verdict.name : verdict.message, "verdict");
}

void TestRecipients::groupLifecycle()
{
    QSignalSpy failed(m_groups.get(), &GroupManagement::failed);
    QSignalSpy offered(m_groups.get(), &GroupManagement::offered);
    QSignalSpy saved(m_groups.get(), &GroupManagement::groupSaved);
    const auto said
        = [&failed] { return failed.isEmpty() ? QString() : failed.takeFirst().at(0).toString(); };
    const auto choice
        = [&offered] { return offered.takeFirst().at(0).value<GroupManagement::MemberChoice>(); };

    // Create: a name the rule refuses is not sent, a good one is sent trimmed, the phone is told;
    // a name the phone has already is refused by the phone.
    m_groups->createGroup(u"ab c"_qs);
    QCOMPARE(said(), u"Use only the letters A-Z and digits, starting with a letter."_qs);
    m_groups->createGroup(u" Climbers\n"_qs);
    QTRY_VERIFY(groupId(u"Climbers"_qs) > 0);
    const qint64 id = groupId(u"Climbers"_qs);
    QCOMPARE(saved.takeFirst(), (QVariantList { id, u"Climbers"_qs }));
    QVERIFY(arrives(notice, 1));
    m_groups->createGroup(u"Family"_qs);
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(said(), u"Conflict: A group with this name already exists"_qs);

    // Rename: the same name sends nothing; a new one is saved, the phone told, and the groups
    // fetched again at once and once more 0.8 s later (the members-changed notice).
    m_groups->renameGroup(id, u"Climbers"_qs);
    const QString fetch = u"GET "_qs + groupsPath;
    const int fetches = count(fetch);
    m_groups->renameGroup(id, u"Alpinists"_qs);
    QVERIFY(arrives(fetch, fetches + 1));
    QVERIFY(arrivesLater(fetch, fetches + 2, 400));
    QCOMPARE(saved.takeFirst(), (QVariantList { id, u"Alpinists"_qs }));
    QTRY_COMPARE(m_store->groupById(id)->name, u"Alpinists"_qs);
    QVERIFY(arrives(notice, 2));

    // Add members: whom the phone offers; none chosen sends nothing; two chosen are added, and
    // the phone hears of it 0.3 s after they were saved.
    m_groups->offerMembersToAdd(id);
    QTRY_COMPARE(offered.size(), 1);
    GroupManagement::MemberChoice offer = choice();
    QVERIFY(offer.add);
    QCOMPARE(offer.groupName, u"Alpinists"_qs);
    QCOMPARE(offer.candidates.size(), 12);
    const QList<qint64> two { offer.candidates.at(0).id, offer.candidates.at(2).id };
    m_groups->addMembers(id, {});
    m_groups->addMembers(id, two);
    const QString path = u"/v2/groups/"_qs + QString::number(id);
    QVERIFY(arrives(u"POST "_qs + path + u"/users/add", 1));
    QVERIFY(arrivesLater(notice, 3, 100));
    QTRY_COMPARE(m_store->groupById(id)->groupMembers.size(), 2);

    // Delete is refused while members remain.
    const auto refusal = m_groups->deletionRefusal(id);
    QVERIFY(refusal);
    QCOMPARE(refusal->title, u"Cannot Delete Group"_qs);
    QCOMPARE(refusal->text, u"Please remove all members from 'Alpinists' before deleting the group."_qs);
    m_groups->deleteGroup(id);
    QCOMPARE(said(), refusal->text);
    // Remove both, then delete.
    m_groups->offerMembersToRemove(id);
    offer = choice();
    QVERIFY(!offer.add);
    QVERIFY(offer.candidates == m_store->groupById(id)->groupMembers);
    m_groups->removeMembers(id, two);
    QVERIFY(arrives(u"POST "_qs + path + u"/users/remove", 1));
    QVERIFY(arrivesLater(notice, 4, 100));
    QTRY_COMPARE(m_store->groupById(id)->groupMembers.size(), 0);
    m_groups->offerMembersToRemove(id);
    QCOMPARE(said(), u"No members to remove"_qs);
    QVERIFY(!m_groups->deletionRefusal(id));
    m_groups->deleteGroup(id);
    QTRY_VERIFY(!m_store->groupById(id));
    QVERIFY(arrives(notice, 5));
    QCOMPARE(failed.size(), 0);

    // What the phone was asked, in order, the fetches of the groups aside.
    QStringList changes = asked();
    changes.removeAll(fetch);
    const QString users = QStringLiteral("{\"users\":[%1,%2]}").arg(two.at(0)).arg(two.at(1));
    QCOMPARE(changes,
        (QStringList { u"POST /v2/groups {\"name\":\"Climbers\",\"username\":\""_qs + owner + u"\"}", notice,
            u"POST /v2/groups {\"name\":\"Family\",\"username\":\""_qs + owner + u"\"}",
            u"PATCH "_qs + path + u" {\"name\":\"Alpinists\"}", notice,
            u"GET "_qs + path + u"/users/" + owner + u"/users-not-associated",
            u"POST "_qs + path + u"/users/add " + users, notice,
            u"POST "_qs + path + u"/users/remove " + users, notice, u"DELETE "_qs + path, notice }));
}

void TestRecipients::failuresSayWhatFailed_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("request"); // %1: the group's id
    QTest::addColumn<QString>("prefix");
    QTest::newRow("rename") << u"rename"_qs << u"PATCH /v2/groups/%1"_qs << u"Failed to update group: "_qs;
    QTest::newRow("load users") << u"offer"_qs << u"GET /v2/groups/%1/users/*"_qs
                                << u"Failed to load users: "_qs;
    QTest::newRow("add") << u"add"_qs << u"POST /v2/groups/%1/users/add"_qs << u"Failed to add users: "_qs;
    QTest::newRow("remove") << u"remove"_qs << u"POST /v2/groups/%1/users/remove"_qs
                            << u"Failed to remove users: "_qs;
    QTest::newRow("delete") << u"delete"_qs << u"DELETE /v2/groups/%1"_qs << u"Failed to delete group: "_qs;
}

void TestRecipients::failuresSayWhatFailed()
{
    QFETCH(QString, change);
    QFETCH(QString, request);
    QFETCH(QString, prefix);
    qint64 id = groupId(u"Family"_qs); // two members
    if (change == u"delete") {
        // Only an empty group can be deleted: one made on the phone, as another desktop would.
        QCOMPARE(m_sim->post("/v2/groups", { { u"username"_qs, owner }, { u"name"_qs, u"Spare"_qs } }), 201);
        m_controller->refreshGroups();
        QTRY_VERIFY((id = groupId(u"Spare"_qs)) > 0);
    }
    // No answer in time: a failure for every kind of call.
    QVERIFY(m_sim->setFault({ { u"method"_qs, request.section(u' ', 0, 0) },
        { u"path"_qs, request.section(u' ', 1).arg(id) }, { u"noAnswer"_qs, true } }));
    m_api->setTimeouts(std::chrono::milliseconds(500), std::chrono::seconds(5));
    QSignalSpy failed(m_groups.get(), &GroupManagement::failed);
    const qint64 member = m_store->groupById(id)->groupMembers.value(0).id;
    if (change == u"rename")
        m_groups->renameGroup(id, u"Relatives"_qs);
    else if (change == u"offer")
        m_groups->offerMembersToAdd(id);
    else if (change == u"add")
        m_groups->addMembers(id, { 1 });
    else if (change == u"remove")
        m_groups->removeMembers(id, { member });
    else
        m_groups->deleteGroup(id);
    QVERIFY(failed.wait(5000));
    const QString message = failed.at(0).at(0).toString();
    QVERIFY2(message.startsWith(prefix + APIError::networkError(QString()).description())
            && message.size() > prefix.size() + 16,
        qPrintable(message));
}

void TestRecipients::changeSignalsReloadAndTheSearchStays()
{
    RecipientsModel model(m_store.get());
    auto shown = [&model] {
        QStringList names;
        for (int row = 0; row < model.rowCount(); ++row)
            names.append(model.index(row).data(RecipientsModel::NameRole).toString());
        return names.join(u", ");
    };
    model.applySearch(u"wong"_qs);
    QCOMPARE(shown(), QString());
    // The phone's contacts change while the user searches: one that matches, one that does not.
    QCOMPARE(m_sim->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    QCOMPARE(m_sim->post("/sim/contacts",
                 { { u"firstName"_qs, u"Zed"_qs }, { u"lastName"_qs, u"Other"_qs },
                     { u"email"_qs, u"zed@example.com"_qs }, { u"phone"_qs, u"2"_qs } }),
        201);
    const int users = int(m_store->users().size());
    m_session->markAssociatesUpdated(); // what the listener does on "/updateAssociates"
    QTRY_COMPARE_WITH_TIMEOUT(int(m_store->users().size()), users + 2, 3000);
    QCOMPARE(shown(), u"MIA WONG"_qs);
    // A group change: the new group shows only because it matches.
    m_groups->createGroup(u"Wongs"_qs);
    QTRY_COMPARE(shown(), u"MIA WONG, WONGS"_qs);
    // A change signal for groups, and one for users with nothing new.
    const int fetches = count(u"GET /getUsers"_qs);
    m_session->markGroupsUpdated();
    m_session->markAssociatesUpdated();
    QVERIFY(arrives(u"GET /getUsers"_qs, fetches + 1));
    QVERIFY(QTest::qWaitFor([this] { return !m_controller->isBusy(); }, 5000));
    QCOMPARE(shown(), u"MIA WONG, WONGS"_qs);
    QCOMPARE(model.searchText(), u"wong"_qs);
    // Clearing the search shows everyone again.
    model.applySearch(QString());
    QCOMPARE(model.rowCount(), m_store->users().size() + m_store->groups().size());
}

void TestRecipients::aFetchThePhoneNeverAnswersIsAbandoned_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("users") << u"/getUsers"_qs;
    QTest::newRow("groups") << groupsPath;
}

void TestRecipients::aFetchThePhoneNeverAnswersIsAbandoned()
{
    QFETCH(QString, path);
    const bool users = path == u"/getUsers";
    m_controller->setFetchTimeout(std::chrono::milliseconds(1000));
    QVERIFY(m_sim->setFault(
        { { u"method"_qs, u"GET"_qs }, { u"path"_qs, path }, { u"noAnswer"_qs, true }, { u"times"_qs, 1 } }));
    auto signal = [this, users] {
        if (users)
            m_session->markAssociatesUpdated();
        else
            m_session->markGroupsUpdated();
    };
    signal();
    QVERIFY(arrives(u"GET "_qs + path, 1)); // never answered
    // The next change waits behind it until it is abandoned, then goes out and is answered.
    QCOMPARE(m_sim->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    const int known = int(m_store->users().size());
    signal();
    QVERIFY(arrives(u"GET "_qs + path, 2, 5000));
    if (users)
        QTRY_COMPARE_WITH_TIMEOUT(int(m_store->users().size()), known + 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(!m_controller->isBusy(), 5000);
    QVERIFY(m_store->groups().size() >= 2); // an abandoned groups fetch keeps the groups held
}

QTEST_GUILESS_MAIN(TestRecipients)
#include "tst_recipients.moc"
