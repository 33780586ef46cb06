#include "files/ResultOrderModel.h"

ResultOrderModel::ResultOrderModel(int pathRole, QObject* parent)
    : QSortFilterProxyModel(parent)
    , m_pathRole(pathRole)
{
    // Results that land after the operation ended (the folder is listed again) move up too.
    setDynamicSortFilter(true);
    sort(0);
}

void ResultOrderModel::setNewResults(const QStringList& paths)
{
    if (paths == m_newResults)
        return;
    m_newResults = paths;
    invalidate();
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, 0), { NewResultRole });
}

int ResultOrderModel::rank(const QModelIndex& source) const
{
    const qsizetype at = m_newResults.indexOf(source.data(m_pathRole).toString());
    return at < 0 ? int(m_newResults.size()) : int(at);
}

bool ResultOrderModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const int a = rank(left);
    const int b = rank(right);
    // Everything that is not new keeps the folder's order.
    return a != b ? a < b : left.row() < right.row();
}

QVariant ResultOrderModel::data(const QModelIndex& index, int role) const
{
    if (role == NewResultRole)
        return index.isValid()
            && m_newResults.contains(QSortFilterProxyModel::data(index, m_pathRole).toString());
    // The highlight, in words for a screen reader.
    if (role == Qt::AccessibleDescriptionRole && data(index, NewResultRole).toBool()) {
        //: Accessible description of a result row made by the last operation
        //% "New"
        return qtTrId("newResult");
    }
    return QSortFilterProxyModel::data(index, role);
}
