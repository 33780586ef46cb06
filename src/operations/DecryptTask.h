#pragma once

#include "operations/OperationTask.h"
#include "storage/File.h"

// Sends the marked encrypted files to the phone and copies each decrypted file into the
// decrypted-results folder under a name that takes no earlier result.
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

protected:
    Result run() override;

private:
    QList<Intake> m_files;
};
