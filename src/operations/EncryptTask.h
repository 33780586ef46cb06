#pragma once

#include "operations/OperationTask.h"

// Sends the marked files to the phone for the recipients and lands the encrypted files in
// the encrypted-results folder under names that take no earlier result.
class EncryptTask : public OperationTask
{
    Q_OBJECT

public:
    EncryptTask(
        QStringList files, QString recipients, QString resultsFolder, QString url, QObject* parent = nullptr);
    ~EncryptTask() override { stopWorker(); }

    // The upload name of each file, by the unique-name rule against the results folder.
    static QStringList stagedNames(const QStringList& files, const QString& resultsFolder);
    static QList<MultipartUpload::Part> parts(
        const QStringList& files, const QStringList& staged, const QString& recipients);

protected:
    Result run() override;

private:
    QStringList m_files;
    QString m_recipients;
};
