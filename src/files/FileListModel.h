#pragma once

#include "storage/File.h"

#include <QAbstractListModel>

#include <functional>

// One row per file of a list, with the values a file row shows.
class FileListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        NameRole = Qt::UserRole + 1, // fileName (also the tool tip)
        SizeRole, // fileSize, empty when unknown
        TypeRole, // fileType
        ModifiedRole, // fileModified, empty when unknown
        PathRole, // filePath
    };

    // `files` gives the list shown; the model takes it afresh at every reload().
    explicit FileListModel(std::function<const FileList&()> files, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QHash<int, QByteArray> roleNames() const override;
    // Rows dragged out carry their files as URLs (text/uri-list), as file managers expect.
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;

    // Called when the list changed. Rows that are still the same files are updated in place
    // (dataChanged), files appended at the end are inserted and files taken out are removed,
    // so a view keeps its current row and scroll position; anything else resets.
    void reload();

    // Why the files at these paths got no result in the last operation: their rows carry it as
    // their accessible description and in their tool tip. Empty: no row has a problem.
    void setProblems(const QHash<QString, QString>& problems);

    // Asked to flip a row's mark by the check box (the list's rules decide).
    std::function<void(int row)> onFlip;

private:
    std::function<const FileList&()> m_files;
    FileList m_rows; // what the rows show: the list as of the last reload()
    QHash<QString, QString> m_problems;
};
