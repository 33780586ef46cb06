#include "operations/DecryptTask.h"

#include "app/Log.h"
#include "operations/UniqueNames.h"

#include <QFile>

namespace {

QString failedTitle()
{
    //: Dialog title when decryption is unsuccessful
    //% "Decryption failed"
    return qtTrId("unsuccessfulDecryptionTitle");
}

} // namespace

DecryptTask::DecryptTask(QList<Intake> files, QString resultsFolder, QString url, QObject* parent)
    : OperationTask(std::move(url), std::move(resultsFolder), failedTitle(), parent)
    , m_files(std::move(files))
{
}

QString DecryptTask::resultName(const QString& path)
{
    // A dot-file's name has no piece before the dot: ".env.vx" would come back as "env". It is
    // asked for under its own name, ".env", as it was before it was encrypted.
    const QString name = path.section(u'/', -1);
    if (name.startsWith(u'.') && name.endsWith(u".vx") && name.size() > 4)
        return name.chopped(3);
    return File(path).fileName();
}

QList<MultipartUpload::Part> DecryptTask::parts(const QList<Intake>& files)
{
    QList<MultipartUpload::Part> parts { { QStringLiteral("type"), clientType().toUtf8(), {}, {}, {} } };
    for (const Intake& f : files) {
        if (!f.marked)
            continue;
        const QString name = f.path.section(u'/', -1);
        parts.append({ resultName(f.path), {}, f.path, name, MultipartUpload::contentTypeFor(name) });
    }
    return parts;
}

namespace {

// What a request's head and "type" part take, and a part's head beside its two names: a little
// more than libcurl writes, so the bytes counted are never fewer than the bytes sent.
constexpr qint64 overheadBytes = 512;
constexpr qint64 partBytes = 192;

} // namespace

qint64 DecryptTask::costOf(const QList<Item>& items, const QList<int>& group)
{
    qint64 cost = overheadBytes;
    for (const int i : group)
        cost += items.at(i).size + partBytes + 2 * QFile::encodeName(items.at(i).landAs).size();
    return cost;
}

void DecryptTask::refuse(Item& item, const QString& answer)
{
    item.refused = true;
    if (answer.isEmpty()) {
        //: Why a file was not decrypted when the phone gave no reason
        //% "the phone cannot open it: it is encrypted for someone else, or damaged"
        item.problem = qtTrId("fileRefused");
    } else {
        //: Why a file was not decrypted; %1 is what the phone answered
        //% "the phone refused it: %1"
        item.problem = qtTrId("fileRefusedAnswer").arg(answer);
    }
}

DecryptTask::Tried DecryptTask::attempt(QList<Item>& items, const QList<int>& group, QString* answer)
{
    QList<Intake> intake;
    qint64 bytes = 0;
    for (const int i : group) {
        intake.append({ items.at(i).source, true });
        bytes += items.at(i).size;
    }
    const qint64 cost = costOf(items, group);
    m_spent += cost;
    const Reply reply = send(*m_folder, parts(intake), bytes, true, 0600, m_sentNames);
    switch (reply.kind) {
    case Reply::Kind::Received:
        match(items, group, reply.entries);
        m_unresolved -= cost + overheadBytes * (group.size() - 1);
        m_resolved += int(group.size());
        if (m_quietTransfers)
            report(Stage::Checking, m_resolved, m_checked);
        return Tried::Accepted;
    case Reply::Kind::Refused:
        *answer = reply.answer;
        return Tried::Refused;
    case Reply::Kind::Failed:
        break;
    }
    m_stop = reply.failure;
    return Tried::Stopped;
}

bool DecryptTask::fileByFile(QList<Item>& items, const QList<int>& group)
{
    for (const int i : group) {
        QString answer;
        const Tried tried = attempt(items, { i }, &answer);
        if (tried == Tried::Stopped)
            return false;
        if (tried == Tried::Refused)
            refusedGroup(items, { i }, answer);
    }
    return true;
}

bool DecryptTask::refusedGroup(QList<Item>& items, const QList<int>& group, const QString& answer)
{
    if (group.size() == 1) {
        refuse(items[group.first()], answer);
        m_unresolved -= costOf(items, group);
        report(Stage::Checking, ++m_resolved, m_checked);
        return true;
    }
    const QList<int> first = group.first(group.size() / 2);
    const QList<int> second = group.sliced(group.size() / 2);
    // Sending each file alone costs what is left to check, no more: halving stops where it
    // could take the bytes sent in all past the budget, should every half be refused again.
    if (m_spent + costOf(items, first) + m_unresolved > m_budget)
        return fileByFile(items, group);
    QString firstAnswer;
    switch (attempt(items, first, &firstAnswer)) {
    case Tried::Stopped:
        return false;
    case Tried::Accepted:
        // What the phone refused is in the other half, which need not be sent whole again.
        return refusedGroup(items, second, answer);
    case Tried::Refused:
        break;
    }
    return refusedGroup(items, first, firstAnswer) && untriedGroup(items, second);
}

bool DecryptTask::untriedGroup(QList<Item>& items, const QList<int>& group)
{
    if (group.size() == 1 || m_spent + costOf(items, group) + m_unresolved > m_budget)
        return fileByFile(items, group);
    QString answer;
    switch (attempt(items, group, &answer)) {
    case Tried::Stopped:
        return false;
    case Tried::Accepted:
        return true;
    case Tried::Refused:
        break;
    }
    return refusedGroup(items, group, answer);
}

OperationTask::Result DecryptTask::run()
{
    // Only the marked files are sent; a result matching no file sent stays out.
    QList<Item> items;
    for (const Intake& f : m_files) {
        if (!f.marked)
            continue;
        const QString name = resultName(f.path);
        items.append({ f.path, name, { name, UniqueNames::asInPartHeader(name) }, 0, {}, {}, false });
        m_sentNames.insert(name);
        m_sentNames.insert(UniqueNames::asInPartHeader(name));
    }
    if (!refuseUnreadable(items))
        return conclude(items);
    QList<int> sendable;
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items.at(i).problem.isEmpty())
            sendable.append(int(i));
    }
    Result failure;
    const auto folder = openFolder(&failure);
    if (!folder)
        return failAll(failure, items);
    m_folder = folder.get();
    const qint64 batch = costOf(items, sendable);
    m_budget = 3 * batch;
    QString answer;
    const Tried whole = attempt(items, sendable, &answer);
    if (whole == Tried::Stopped)
        return m_stop.outcome == Outcome::Cancelled ? m_stop : failAll(m_stop, items);
    if (whole == Tried::Refused && sendable.size() == 1) {
        refuse(items[sendable.first()], answer);
    } else if (whole == Tried::Refused) {
        // Each file left to check costs its bytes and a request of its own when sent alone.
        m_unresolved = batch + overheadBytes * (sendable.size() - 1);
        m_checked = int(sendable.size());
        m_quietTransfers = true;
        report(Stage::Checking, 0, m_checked);
        if (!refusedGroup(items, sendable, answer)) {
            if (m_stop.outcome == Outcome::Cancelled)
                return m_stop;
            // What was accepted still lands; the files not checked yet say why they were not.
            for (Item& item : items) {
                if (item.tempPath.isEmpty() && item.problem.isEmpty())
                    item.problem = m_stop.message;
            }
        }
        m_quietTransfers = false;
    }
    return conclude(items);
}
