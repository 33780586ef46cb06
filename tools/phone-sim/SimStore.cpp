#include "SimStore.h"

#include <QDateTime>
#include <QDir>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QThread>
#include <QVariant>

#include <cstdio>

namespace {

QSqlQuery run(const QSqlDatabase& db, const QString& sql, const QVariantList& values = {})
{
    QSqlQuery query(db);
    query.prepare(sql);
    for (const QVariant& v : values)
        query.addBindValue(v);
    if (!query.exec())
        std::fprintf(stderr, "sql error: %s\n", qPrintable(query.lastError().text()));
    return query;
}

SimStore::Person personFrom(const QSqlQuery& q)
{
    return { q.value(0).toLongLong(), q.value(1).toString(), q.value(2).toString(), q.value(3).toString(),
             q.value(4).toString() };
}

const QString personColumns = QStringLiteral("id, first_name, last_name, email, phone");

} // namespace

QString SimStore::connectionName()
{
    const QString name = QStringLiteral("sim-%1").arg(quintptr(QThread::currentThreadId()));
    if (!QSqlDatabase::contains(name)) {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        db.setDatabaseName(m_path);
        db.open();
    }
    return name;
}

bool SimStore::open(const QString& folder, const QString& user)
{
    QMutexLocker lock(&m_mutex);
    QDir().mkpath(folder);
    m_path = folder + QStringLiteral("/phone-sim.sqlite");
    m_user = user;
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (!db.isOpen())
        return false;
    run(db, QStringLiteral("CREATE TABLE IF NOT EXISTS people (id INTEGER PRIMARY KEY AUTOINCREMENT, email TEXT UNIQUE "
                           "COLLATE NOCASE, first_name TEXT, last_name TEXT, phone TEXT, is_contact INTEGER, "
                           "public_key BLOB, secret_key BLOB)"));
    run(db, QStringLiteral("CREATE TABLE IF NOT EXISTS groups (id INTEGER PRIMARY KEY AUTOINCREMENT, owner TEXT, "
                           "name TEXT, created_ms INTEGER)"));
    run(db, QStringLiteral("CREATE TABLE IF NOT EXISTS members (group_id INTEGER, person_id INTEGER, "
                           "PRIMARY KEY (group_id, person_id))"));
    QSqlQuery count = run(db, QStringLiteral("SELECT COUNT(*) FROM people WHERE is_contact = 1"));
    if (count.next() && count.value(0).toInt() == 0)
        seed();
    return true;
}

void SimStore::seed()
{
    static const char* const people[][4] = {
        { "Amelia", "Clarke", "amelia.clarke@example.com", "+44 7700 900123" },
        { "Benjamin", "Ortiz", "ben.ortiz@example.com", "+1 415 555 0142" },
        { "Chloé", "Martin", "chloe.martin@example.fr", "+33 6 12 34 56 78" },
        { "Daniel", "Kim", "daniel.kim@example.com", "+1 206 555 0199" },
        { "Elena", "Rossi", "elena.rossi@example.it", "+39 347 555 0101" },
        { "Farah", "Haddad", "farah.haddad@example.com", "+971 50 555 0134" },
        { "George", "Okafor", "george.okafor@example.ng", "+234 803 555 0177" },
        { "Hannah", "Schmidt", "hannah.schmidt@example.de", "+49 151 5550 1234" },
        { "Isaac", "Nakamura", "isaac.nakamura@example.jp", "+81 90 5555 0123" },
        { "Julia", "Santos", "julia.santos@example.br", "+55 11 95555 0188" },
        { "Kofi", "Mensah", "kofi.mensah@example.com", "+233 24 555 0166" },
        { "Lucía", "Fernández", "lucia.fernandez@example.es", "+34 612 55 01 02" },
    };
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    for (const auto& p : people) {
        const VxCrypto::KeyPair keys = VxCrypto::makeKeyPair();
        run(db, QStringLiteral("INSERT OR IGNORE INTO people (email, first_name, last_name, phone, is_contact, "
                               "public_key, secret_key) VALUES (?, ?, ?, ?, 1, ?, ?)"),
            { QString::fromUtf8(p[2]), QString::fromUtf8(p[0]), QString::fromUtf8(p[1]), QString::fromUtf8(p[3]),
              keys.publicKey, keys.secretKey });
    }
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    run(db, QStringLiteral("INSERT INTO groups (owner, name, created_ms) VALUES (?, 'Family', ?)"), { m_user, now - 86400000LL * 30 });
    const qint64 family = run(db, QStringLiteral("SELECT last_insert_rowid()")).lastInsertId().toLongLong();
    run(db, QStringLiteral("INSERT INTO groups (owner, name, created_ms) VALUES (?, 'Project Apollo', ?)"), { m_user, now - 86400000LL * 7 });
    Q_UNUSED(family);
    QSqlQuery ids = run(db, QStringLiteral("SELECT id FROM groups WHERE owner = ? ORDER BY id"), { m_user });
    QList<qint64> groupIds;
    while (ids.next())
        groupIds.append(ids.value(0).toLongLong());
    if (groupIds.size() >= 2) {
        for (const char* email : { "elena.rossi@example.it", "julia.santos@example.br" })
            run(db, QStringLiteral("INSERT OR IGNORE INTO members SELECT ?, id FROM people WHERE email = ?"),
                { groupIds.at(0), QString::fromLatin1(email) });
        for (const char* email : { "ben.ortiz@example.com", "daniel.kim@example.com", "hannah.schmidt@example.de" })
            run(db, QStringLiteral("INSERT OR IGNORE INTO members SELECT ?, id FROM people WHERE email = ?"),
                { groupIds.at(1), QString::fromLatin1(email) });
    }
}

QList<SimStore::Person> SimStore::contacts()
{
    QMutexLocker lock(&m_mutex);
    QSqlQuery q = run(QSqlDatabase::database(connectionName()),
                      u"SELECT " + personColumns + u" FROM people WHERE is_contact = 1 ORDER BY id");
    QList<Person> result;
    while (q.next())
        result.append(personFrom(q));
    return result;
}

bool SimStore::addContact(const Person& person)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    const VxCrypto::KeyPair keys = VxCrypto::makeKeyPair();
    run(db, QStringLiteral("INSERT OR IGNORE INTO people (email, first_name, last_name, phone, is_contact, public_key, "
                           "secret_key) VALUES (?, ?, ?, ?, 1, ?, ?)"),
        { person.email, person.firstName, person.lastName, person.phone, keys.publicKey, keys.secretKey });
    return run(db, QStringLiteral("UPDATE people SET is_contact = 1, first_name = ?, last_name = ?, phone = ? WHERE email = ?"),
               { person.firstName, person.lastName, person.phone, person.email })
               .numRowsAffected()
        > 0;
}

bool SimStore::removeContact(const QString& email)
{
    QMutexLocker lock(&m_mutex);
    return run(QSqlDatabase::database(connectionName()),
               QStringLiteral("UPDATE people SET is_contact = 0 WHERE email = ? AND is_contact = 1"), { email })
               .numRowsAffected()
        > 0;
}

namespace {

QList<SimStore::Person> membersOf(const QSqlDatabase& db, qint64 groupId)
{
    QSqlQuery q = run(db, u"SELECT " + personColumns + u" FROM people JOIN members ON members.person_id = people.id "
                                                         u"WHERE members.group_id = ? ORDER BY people.id",
                      { groupId });
    QList<SimStore::Person> result;
    while (q.next())
        result.append(personFrom(q));
    return result;
}

std::optional<SimStore::Group> loadGroup(const QSqlDatabase& db, qint64 id)
{
    QSqlQuery q = run(db, QStringLiteral("SELECT id, owner, name, created_ms FROM groups WHERE id = ?"), { id });
    if (!q.next())
        return std::nullopt;
    SimStore::Group g { q.value(0).toLongLong(), q.value(1).toString(), q.value(2).toString(), q.value(3).toLongLong(), {} };
    g.members = membersOf(db, id);
    return g;
}

bool nameTaken(const QSqlDatabase& db, const QString& owner, const QString& name, qint64 except)
{
    QSqlQuery q = run(db, QStringLiteral("SELECT 1 FROM groups WHERE owner = ? AND lower(name) = lower(?) AND id != ?"),
                      { owner, name, except });
    return q.next();
}

} // namespace

QList<SimStore::Group> SimStore::groupsOf(const QString& owner)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    QSqlQuery q = run(db, QStringLiteral("SELECT id FROM groups WHERE owner = ? ORDER BY id"), { owner });
    QList<Group> result;
    while (q.next()) {
        if (auto g = loadGroup(db, q.value(0).toLongLong()))
            result.append(*g);
    }
    return result;
}

std::optional<SimStore::Group> SimStore::group(qint64 id)
{
    QMutexLocker lock(&m_mutex);
    return loadGroup(QSqlDatabase::database(connectionName()), id);
}

SimStore::Result SimStore::createGroup(const QString& owner, const QString& name, Group* created)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (nameTaken(db, owner, name, -1))
        return Result::Conflict;
    QSqlQuery q = run(db, QStringLiteral("INSERT INTO groups (owner, name, created_ms) VALUES (?, ?, ?)"),
                      { owner, name, QDateTime::currentMSecsSinceEpoch() });
    if (created)
        *created = *loadGroup(db, q.lastInsertId().toLongLong());
    return Result::Ok;
}

SimStore::Result SimStore::renameGroup(qint64 id, const QString& name, Group* renamed)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    auto g = loadGroup(db, id);
    if (!g)
        return Result::NotFound;
    if (nameTaken(db, g->owner, name, id))
        return Result::Conflict;
    run(db, QStringLiteral("UPDATE groups SET name = ? WHERE id = ?"), { name, id });
    if (renamed)
        *renamed = *loadGroup(db, id);
    return Result::Ok;
}

SimStore::Result SimStore::deleteGroup(qint64 id)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (!loadGroup(db, id))
        return Result::NotFound;
    run(db, QStringLiteral("DELETE FROM members WHERE group_id = ?"), { id });
    run(db, QStringLiteral("DELETE FROM groups WHERE id = ?"), { id });
    return Result::Ok;
}

SimStore::Result SimStore::addMembers(qint64 id, const QList<qint64>& personIds)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (!loadGroup(db, id))
        return Result::NotFound;
    for (qint64 person : personIds)
        run(db, QStringLiteral("INSERT OR IGNORE INTO members SELECT ?, id FROM people WHERE id = ?"), { id, person });
    return Result::Ok;
}

SimStore::Result SimStore::removeMembers(qint64 id, const QList<qint64>& personIds)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (!loadGroup(db, id))
        return Result::NotFound;
    for (qint64 person : personIds)
        run(db, QStringLiteral("DELETE FROM members WHERE group_id = ? AND person_id = ?"), { id, person });
    return Result::Ok;
}

std::optional<QList<SimStore::Person>> SimStore::usersNotAssociated(qint64 id, const QString& owner)
{
    Q_UNUSED(owner); // the simulator has one signed-in user; the contacts are theirs
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    if (!loadGroup(db, id))
        return std::nullopt;
    QSqlQuery q = run(db, u"SELECT " + personColumns + u" FROM people WHERE is_contact = 1 AND id NOT IN "
                                                         u"(SELECT person_id FROM members WHERE group_id = ?) ORDER BY id",
                      { id });
    QList<Person> result;
    while (q.next())
        result.append(personFrom(q));
    return result;
}

VxCrypto::KeyPair SimStore::keysOf(const QString& email)
{
    QMutexLocker lock(&m_mutex);
    QSqlDatabase db = QSqlDatabase::database(connectionName());
    QSqlQuery q = run(db, QStringLiteral("SELECT public_key, secret_key FROM people WHERE email = ?"), { email });
    if (q.next() && !q.value(0).toByteArray().isEmpty())
        return { q.value(0).toByteArray(), q.value(1).toByteArray() };
    const VxCrypto::KeyPair keys = VxCrypto::makeKeyPair();
    run(db, QStringLiteral("INSERT OR IGNORE INTO people (email, is_contact) VALUES (?, 0)"), { email });
    run(db, QStringLiteral("UPDATE people SET public_key = ?, secret_key = ? WHERE email = ?"),
        { keys.publicKey, keys.secretKey, email });
    return keys;
}
