#include "files/FileListModel.h"

#include <QMimeData>
#include <QUrl>

#include <optional>

FileListModel::FileListModel(std::function<const FileList&()> files, QObject* parent)
    : QAbstractListModel(parent)
    , m_files(std::move(files))
    , m_rows(m_files())
{
}

int FileListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant FileListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const File& file = *m_rows.at(index.row());
    switch (role) {
    case Qt::ToolTipRole:
        if (const QString problem = m_problems.value(file.filePath.value_or(QString())); !problem.isEmpty())
            return QString(file.fileName() + u": " + problem);
        return file.fileName();
    case Qt::AccessibleDescriptionRole:
        return m_problems.value(file.filePath.value_or(QString()));
    case Qt::DisplayRole:
    case NameRole:
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
    if (wanted != m_rows.at(index.row())->isChecked)
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

QStringList FileListModel::mimeTypes() const
{
    return { QStringLiteral("text/uri-list") };
}

QMimeData* FileListModel::mimeData(const QModelIndexList& indexes) const
{
    QList<QUrl> urls;
    for (const QModelIndex& index : indexes) {
        const QString path = data(index, PathRole).toString();
        if (!path.isEmpty())
            urls.append(QUrl::fromLocalFile(path));
    }
    if (urls.isEmpty())
        return nullptr;
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

void FileListModel::setProblems(const QHash<QString, QString>& problems)
{
    if (problems.isEmpty() && m_problems.isEmpty())
        return;
    m_problems = problems;
    if (!m_rows.isEmpty())
        Q_EMIT dataChanged(
            index(0), index(rowCount() - 1), { Qt::ToolTipRole, Qt::AccessibleDescriptionRole });
}

namespace {

bool sameFile(const FilePtr& a, const FilePtr& b)
{
    return a == b || *a == *b;
}

// The rows of `from` that are not in `to`, when `to` is `from` with some rows taken out (order
// kept); nothing when `to` is anything else.
std::optional<QList<int>> removedRows(const FileList& from, const FileList& to)
{
    QList<int> removed;
    qsizetype kept = 0;
    for (qsizetype row = 0; row < from.size(); ++row) {
        if (kept < to.size() && sameFile(from.at(row), to.at(kept)))
            ++kept;
        else
            removed.append(int(row));
    }
    if (kept != to.size())
        return std::nullopt;
    return removed;
}

} // namespace

void FileListModel::reload()
{
    const FileList now = m_files();
    const qsizetype shared = std::min(now.size(), m_rows.size());
    bool prefix = true;
    for (qsizetype i = 0; i < shared && prefix; ++i)
        prefix = sameFile(now.at(i), m_rows.at(i));
    if (prefix && now.size() >= m_rows.size()) {
        const int old = int(m_rows.size());
        if (old > 0) {
            m_rows = now.mid(0, old);
            Q_EMIT dataChanged(index(0), index(old - 1));
        }
        if (now.size() > old) {
            beginInsertRows({}, old, int(now.size()) - 1);
            m_rows = now;
            endInsertRows();
        }
        return;
    }
    // Many rows gone at once (a result folder emptied) are cheaper as one reset.
    const auto removed = removedRows(m_rows, now);
    if (removed && removed->size() <= 64) {
        // From the last row up, so the row numbers still to go stay right.
        for (auto it = removed->crbegin(); it != removed->crend(); ++it) {
            beginRemoveRows({}, *it, *it);
            m_rows.removeAt(*it);
            endRemoveRows();
        }
        m_rows = now;
        if (!m_rows.isEmpty())
            Q_EMIT dataChanged(index(0), index(rowCount() - 1));
        return;
    }
    beginResetModel();
    m_rows = now;
    endResetModel();
}
