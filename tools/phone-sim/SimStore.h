#pragma once

#include "VxCrypto.h"

#include <QList>
#include <QMutex>
#include <QString>

#include <optional>

// The simulator's state in SQLite: the signed-in user's contacts, groups with their owner,
// members and creation time, and a key pair per person. Safe to use from any thread.
class SimStore
{
public:
    struct Person
    {
        qint64 id = 0;
        QString firstName;
        QString lastName;
        QString email;
        QString phone;
        QString fullName() const { return QString(firstName + u' ' + lastName).trimmed(); }
    };

    struct Group
    {
        qint64 id = 0;
        QString owner;
        QString name;
        qint64 createdMs = 0;
        QList<Person> members;
    };

    enum class Result { Ok, NotFound, Conflict };

    // Opens (and on first use creates and seeds) the database in `folder`.
    bool open(const QString& folder, const QString& user);
    QString user() const { return m_user; }

    QList<Person> contacts();
    bool addContact(const Person& person);
    bool removeContact(const QString& email);

    QList<Group> groupsOf(const QString& owner);
    std::optional<Group> group(qint64 id);
    Result createGroup(const QString& owner, const QString& name, Group* created);
    Result renameGroup(qint64 id, const QString& name, Group* renamed);
    Result deleteGroup(qint64 id);
    Result addMembers(qint64 id, const QList<qint64>& personIds);
    Result removeMembers(qint64 id, const QList<qint64>& personIds);
    // The user's contacts that are not members of the group.
    std::optional<QList<Person>> usersNotAssociated(qint64 id, const QString& owner);

    // The person's key pair, made on first use (a real phone would look it up).
    VxCrypto::KeyPair keysOf(const QString& email);

private:
    QString connectionName();
    void seed();

    QMutex m_mutex;
    QString m_path;
    QString m_user;
};
