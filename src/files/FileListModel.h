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
        SizeRole,                    // fileSize, empty when unknown
        TypeRole,                    // fileType
        ModifiedRole,                // fileModified, empty when unknown
        PathRole,                    // filePath
    };

    // `files` gives the list shown; the model reads it afresh after every reset.
    explicit FileListModel(std::function<const FileList&()> files, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QHash<int, QByteArray> roleNames() const override;

    // Called when the list changed: the whole table is shown again.
    void reload();
    // Called when only marks changed.
    void marksChanged();

    // Asked to flip a row's mark by the check box (the list's rules decide).
    std::function<void(int row)> onFlip;

private:
    std::function<const FileList&()> m_files;
};
