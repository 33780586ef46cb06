#include "files/FileListModel.h"

FileListModel::FileListModel(std::function<const FileList&()> files, QObject* parent)
    : QAbstractListModel(parent)
    , m_files(std::move(files))
{
}

int FileListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_files().size());
}

QVariant FileListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const File& file = *m_files().at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
    case Qt::ToolTipRole:
        return file.fileName();
    case Qt::AccessibleTextRole:
        return QString(file.fileName() + u'.' + file.fileType().toLower());
    case SizeRole:
        return file.fileSize().value_or(QString());
    case TypeRole:
        return file.fileType();
    case ModifiedRole:
        return file.fileModified().value_or(QString());
    case PathRole:
        return file.filePath.value_or(QString());
    case Qt::CheckStateRole:
        return file.isChecked ? Qt::Checked : Qt::Unchecked;
    default:
        return {};
    }
}

bool FileListModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || !index.isValid() || !onFlip)
        return false;
    const bool wanted = value.value<Qt::CheckState>() == Qt::Checked;
    if (wanted != m_files().at(index.row())->isChecked)
        onFlip(index.row());
    return true;
}

Qt::ItemFlags FileListModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    // Rows are never selected: marks are the only selection.
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
    if (onFlip)
        f |= Qt::ItemIsUserCheckable;
    return f;
}

QHash<int, QByteArray> FileListModel::roleNames() const
{
    return { { NameRole, "fileName" }, { SizeRole, "fileSize" }, { TypeRole, "fileType" },
             { ModifiedRole, "fileModified" }, { PathRole, "filePath" }, { Qt::CheckStateRole, "isChecked" } };
}

void FileListModel::reload()
{
    beginResetModel();
    endResetModel();
}

void FileListModel::marksChanged()
{
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), { Qt::CheckStateRole });
}
