#include "api/NetworkClient.h"
#include "api/PhoneServiceClient.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/PhoneSimProcess.h"
#include "recipients/GroupManagement.h"
#include "recipients/GroupNameRule.h"
#include "recipients/RecipientsController.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QString owner = QStringLiteral("alex.morgan@example.com");
const QString fetch = u"GET /v2/groups/"_qs + owner;
const QString notice = QStringLiteral("POST /updateGroups");

// The recipients of one desktop, paired with the simulator, as AppDelegate and the Encrypt
// screen make them.
struct Recipients
{
    explicit Recipients(quint16 port)
        : session(port)
    {
        session.setPhoneIPAddress(u"127.0.0.1"_qs);
        session.setPhoneConnected(true);
    }
    Session session;
    PhoneServiceClient phoneService { session };
    NetworkClient api;
    AssociationsStore store;
    RecipientsController controller { store, session, phoneService, api };
    GroupManagement groups { controller, api, phoneService };
};

} // namespace

// The recipients as a command line would drive them, with no widget: the store, the controller
// that keeps it in step with the phone, and group management, against the phone simulator.
class TestRecipients : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { installTranslations(*QCoreApplication::instance()); }
    void init();
    void cleanup()
    {
        m_app.reset();
        m_sim.reset();
    }
    void groupNameRule_data();
    void groupNameRule();
    void groupLifecycle();
    void failuresSayWhatFailed_data();
    void failuresSayWhatFailed();
    void aFetchThePhoneNeverAnswersIsAbandoned_data();
    void aFetchThePhoneNeverAnswersIsAbandoned();

private:
    // "METHOD path" of each request the phone saw, oldest first.
    QStringList asked()
    {
        QStringList requests;
        for (const QJsonValue& r : m_sim->requests())
            requests.append(r[u"method"].toString() + u' ' + r[u"path"].toString());
        return requests;
    }
    // True once the phone has seen `n` such requests.
    bool arrives(const QString& request, int n, int ms = 10000)
    {
        return QTest::qWaitFor([&] { return asked().count(request) >= n; }, ms);
    }
    // True when the `n`th comes, but not sooner than `quietMs` from now.
    bool arrivesLater(const QString& request, int n, int quietMs)
    {
        return !arrives(request, n, quietMs) && arrives(request, n);
    }
    qint64 groupId(const QString& name) const
    {
        const auto& groups = m_app->store.groups();
        const auto found
            = std::find_if(groups.begin(), groups.end(), [&](const GroupPtr& g) { return g->name == name; });
        return found == groups.end() ? -1 : (*found)->id;
    }

    std::unique_ptr<PhoneSimProcess> m_sim;
    std::unique_ptr<Recipients> m_app;
};

void TestRecipients::init()
{
    m_sim = std::make_unique<PhoneSimProcess>();
    QVERIFY(m_sim->isRunning());
    Settings::open()->clear();
    Settings::setString(Settings::baseUrlKey, m_sim->baseUrl());
    Settings::setString(Settings::userEmailKey, owner);
    m_app = std::make_unique<Recipients>(m_sim->port());
    m_app->controller.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_app->store.users().size() >= 12 && m_app->store.groups().size() >= 2, 5000);
    QCOMPARE(asked().count(u"GET /getUsers"_qs), 1);
    QVERIFY(m_sim->clearRequests());
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
    GroupManagement& groups = m_app->groups;
    QSignalSpy failed(&groups, &GroupManagement::failed);
    QSignalSpy offered(&groups, &GroupManagement::offered);
    QSignalSpy saved(&groups, &GroupManagement::groupSaved);
    const auto said
        = [&failed] { return failed.isEmpty() ? QString() : failed.takeFirst().at(0).toString(); };
    const auto choice
        = [&offered] { return offered.takeFirst().at(0).value<GroupManagement::MemberChoice>(); };

    // Create: a name the rule refuses is not sent, a good one is sent trimmed and the phone is
    // told; a name the phone has already is refused by the phone.
    groups.createGroup(u"ab c"_qs);
    QCOMPARE(said(), u"Use only the letters A-Z and digits, starting with a letter."_qs);
    groups.createGroup(u" Climbers\n"_qs);
    QTRY_VERIFY(groupId(u"Climbers"_qs) > 0);
    const qint64 id = groupId(u"Climbers"_qs);
    QCOMPARE(saved.takeFirst(), (QVariantList { id, u"Climbers"_qs }));
    QVERIFY(arrives(notice, 1));
    groups.createGroup(u"Family"_qs);
    QTRY_COMPARE(failed.size(), 1);
    QCOMPARE(said(), u"Conflict: A group with this name already exists"_qs);

    // Rename: the same name sends nothing; a new one is saved, the phone told, and the groups
    // fetched again at once and once more 0.8 s later (the members-changed notice).
    groups.renameGroup(id, u"Climbers"_qs);
    const int fetches = int(asked().count(fetch));
    groups.renameGroup(id, u"Alpinists"_qs);
    QVERIFY(arrives(fetch, fetches + 1));
    QVERIFY(arrivesLater(fetch, fetches + 2, 400));
    QCOMPARE(saved.takeFirst(), (QVariantList { id, u"Alpinists"_qs }));
    QTRY_COMPARE(m_app->store.groupById(id)->name, u"Alpinists"_qs);
    QVERIFY(arrives(notice, 2));

    // Add members: whom the phone offers; none chosen sends nothing; two chosen are added, and
    // the phone hears of it 0.3 s after they were saved.
    groups.offerMembersToAdd(id);
    QTRY_COMPARE(offered.size(), 1);
    GroupManagement::MemberChoice offer = choice();
    QVERIFY(offer.add);
    QCOMPARE(offer.groupName, u"Alpinists"_qs);
    QCOMPARE(offer.candidates.size(), 12);
    const QList<qint64> two { offer.candidates.at(0).id, offer.candidates.at(2).id };
    groups.addMembers(id, {});
    groups.addMembers(id, two);
    const QString path = u"/v2/groups/"_qs + QString::number(id);
    QVERIFY(arrives(u"POST "_qs + path + u"/users/add", 1));
    QVERIFY(arrivesLater(notice, 3, 100));
    QTRY_COMPARE(m_app->store.groupById(id)->groupMembers.size(), 2);

    // Delete is refused while members remain.
    const auto refusal = groups.deletionRefusal(id);
    QVERIFY(refusal);
    QCOMPARE(refusal->title, u"Cannot Delete Group"_qs);
    QCOMPARE(refusal->text, u"Please remove all members from 'Alpinists' before deleting the group."_qs);
    groups.deleteGroup(id);
    QCOMPARE(said(), refusal->text);
    // Remove both, then delete.
    groups.offerMembersToRemove(id);
    offer = choice();
    QVERIFY(!offer.add);
    QVERIFY(offer.candidates == m_app->store.groupById(id)->groupMembers);
    groups.removeMembers(id, two);
    QVERIFY(arrives(u"POST "_qs + path + u"/users/remove", 1));
    QVERIFY(arrivesLater(notice, 4, 100));
    QTRY_COMPARE(m_app->store.groupById(id)->groupMembers.size(), 0);
    groups.offerMembersToRemove(id);
    QCOMPARE(said(), u"No members to remove"_qs);
    QVERIFY(!groups.deletionRefusal(id));
    groups.deleteGroup(id);
    QTRY_VERIFY(!m_app->store.groupById(id));
    QVERIFY(arrives(notice, 5));
    QCOMPARE(failed.size(), 0);

    // What the phone was asked, in order, the fetches of the groups aside.
    QStringList changes = asked();
    changes.removeAll(fetch);
    QCOMPARE(changes,
        (QStringList { u"POST /v2/groups"_qs, notice, u"POST /v2/groups"_qs, u"PATCH "_qs + path, notice,
            u"GET "_qs + path + u"/users/" + owner + u"/users-not-associated",
            u"POST "_qs + path + u"/users/add", notice, u"POST "_qs + path + u"/users/remove", notice,
            u"DELETE "_qs + path, notice }));
}

void TestRecipients::failuresSayWhatFailed_data()
{
    QTest::addColumn<QString>("request"); // %1: the group's id
    QTest::addColumn<QString>("prefix");
    QTest::newRow("rename") << u"PATCH /v2/groups/%1"_qs << u"Failed to update group: "_qs;
    QTest::newRow("load users") << u"GET /v2/groups/%1/users/*"_qs << u"Failed to load users: "_qs;
    QTest::newRow("add") << u"POST /v2/groups/%1/users/add"_qs << u"Failed to add users: "_qs;
    QTest::newRow("remove") << u"POST /v2/groups/%1/users/remove"_qs << u"Failed to remove users: "_qs;
    QTest::newRow("delete") << u"DELETE /v2/groups/%1"_qs << u"Failed to delete group: "_qs;
}

void TestRecipients::failuresSayWhatFailed()
{
    QFETCH(QString, request);
    QFETCH(QString, prefix);
    const QString change = QString::fromLatin1(QTest::currentDataTag());
    qint64 id = groupId(u"Family"_qs); // two members
    if (change == u"delete") {
        // Only an empty group can be deleted: one made on the phone, as another desktop would.
        QCOMPARE(m_sim->post("/v2/groups", { { u"username"_qs, owner }, { u"name"_qs, u"Spare"_qs } }), 201);
        m_app->controller.refreshGroups();
        QTRY_VERIFY((id = groupId(u"Spare"_qs)) > 0);
    }
    // No answer in time: a failure for every kind of call.
    QVERIFY(m_sim->setFault({ { u"method"_qs, request.section(u' ', 0, 0) },
        { u"path"_qs, request.section(u' ', 1).arg(id) }, { u"noAnswer"_qs, true } }));
    m_app->api.setTimeouts(std::chrono::milliseconds(500), std::chrono::seconds(5));
    QSignalSpy failed(&m_app->groups, &GroupManagement::failed);
    if (change == u"rename")
        m_app->groups.renameGroup(id, u"Relatives"_qs);
    else if (change == u"load users")
        m_app->groups.offerMembersToAdd(id);
    else if (change == u"add")
        m_app->groups.addMembers(id, { 1 });
    else if (change == u"remove")
        m_app->groups.removeMembers(id, { m_app->store.groupById(id)->groupMembers.at(0).id });
    else
        m_app->groups.deleteGroup(id);
    QVERIFY(failed.wait(5000));
    const QString message = failed.at(0).at(0).toString();
    QVERIFY2(message.startsWith(prefix + APIError::networkError(QString()).description())
            && message.size() > prefix.size() + 16,
        qPrintable(message));
}

void TestRecipients::aFetchThePhoneNeverAnswersIsAbandoned_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("users") << u"/getUsers"_qs;
    QTest::newRow("groups") << fetch.mid(4);
}

void TestRecipients::aFetchThePhoneNeverAnswersIsAbandoned()
{
    QFETCH(QString, path);
    const bool users = path == u"/getUsers";
    m_app->controller.setFetchTimeout(std::chrono::milliseconds(1000));
    QVERIFY(m_sim->setFault(
        { { u"method"_qs, u"GET"_qs }, { u"path"_qs, path }, { u"noAnswer"_qs, true }, { u"times"_qs, 1 } }));
    auto signal = [this, users] {
        users ? m_app->session.markAssociatesUpdated() : m_app->session.markGroupsUpdated();
    };
    signal();
    QVERIFY(arrives(u"GET "_qs + path, 1)); // never answered
    // The next change waits behind it until it is abandoned, then goes out and is answered.
    QCOMPARE(m_sim->post("/sim/contacts",
                 { { u"firstName"_qs, u"Mia"_qs }, { u"lastName"_qs, u"Wong"_qs },
                     { u"email"_qs, u"mia.wong@example.com"_qs }, { u"phone"_qs, u"1"_qs } }),
        201);
    const int known = int(m_app->store.users().size());
    signal();
    QVERIFY(arrives(u"GET "_qs + path, 2, 5000));
    if (users)
        QTRY_COMPARE_WITH_TIMEOUT(int(m_app->store.users().size()), known + 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(!m_app->controller.isBusy(), 5000);
    QVERIFY(m_app->store.groups().size() >= 2); // an abandoned groups fetch keeps the groups held
}

QTEST_GUILESS_MAIN(TestRecipients)
#include "tst_recipients.moc"
