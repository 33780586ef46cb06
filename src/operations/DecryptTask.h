#pragma once

#include "operations/OperationTask.h"
#include "storage/File.h"

// Sends the marked encrypted files to the phone and copies each decrypted file into the
// decrypted-results folder under a name that takes no earlier result. When the phone refuses
// the batch (a file it cannot open), the files are tried again in halves, and the halves of
// refused halves, to land every file it can open; a group is sent file by file instead once
// halving could send more than three times the batch's bytes in all.
class DecryptTask : public OperationTask
{
    Q_OBJECT

public:
    struct Intake
    {
        QString path;
        bool marked = false;
    };

    DecryptTask(QList<Intake> files, QString resultsFolder, QString url, QObject* parent = nullptr);
    ~DecryptTask() override { stopWorker(); }

    static QList<MultipartUpload::Part> parts(const QList<Intake>& files);
    // The name a file's result comes back under, and the name of its part.
    static QString resultName(const QString& path);

protected:
    Result run() override;

private:
    enum class Tried { Accepted, Refused, Stopped };
    // Sends the files `group` of `items`; an accepted group has its results matched.
    Tried attempt(QList<Item>& items, const QList<int>& group, QString* answer);
    // `group` was refused as a whole, the phone saying `answer`: finds the files it can open.
    bool refusedGroup(QList<Item>& items, const QList<int>& group, const QString& answer);
    // `group` was not sent yet on its own.
    bool untriedGroup(QList<Item>& items, const QList<int>& group);
    bool fileByFile(QList<Item>& items, const QList<int>& group);
    // What sending `group` costs, in bytes: its files, and a share for each part and request.
    static qint64 costOf(const QList<Item>& items, const QList<int>& group);
    void refuse(Item& item, const QString& answer);

    QList<Intake> m_files;
    const OperationFolder* m_folder = nullptr;
    QSet<QString> m_sentNames;
    qint64 m_budget = 0; // bytes all requests may send together
    qint64 m_spent = 0;
    qint64 m_unresolved = 0; // what sending each unresolved file alone would cost
    int m_resolved = 0;
    int m_checked = 0; // files to check
    Result m_stop; // why the checking stopped
};
