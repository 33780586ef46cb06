#include "files/ResultOrderModel.h"

#include <QFileInfo>

namespace {

// Names as people read them: "note-2" before "note-10" (runs of digits by their value), and
// case does not split the list in two. (QCollator's numeric mode does nothing in the C locale.)
int compareNames(const QString& a, const QString& b)
{
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (a.at(i).isDigit() && b.at(j).isDigit()) {
            const qsizetype si = i, sj = j;
            while (i < a.size() && a.at(i).isDigit())
                ++i;
            while (j < b.size() && b.at(j).isDigit())
                ++j;
            // By value, however long: without leading zeros, the longer run is the larger.
            QStringView x = QStringView(a).mid(si, i - si), y = QStringView(b).mid(sj, j - sj);
            while (x.size() > 1 && x.front() == u'0')
                x = x.mid(1);
            while (y.size() > 1 && y.front() == u'0')
                y = y.mid(1);
            if (x.size() != y.size())
                return x.size() < y.size() ? -1 : 1;
            if (const int c = x.compare(y); c != 0)
                return c;
            continue;
        }
        const int c = QString::compare(a.at(i), b.at(j), Qt::CaseInsensitive);
        if (c != 0)
            return c;
        ++i;
        ++j;
    }
    if (i < a.size() || j < b.size())
        return i < a.size() ? 1 : -1;
    return QString::compare(a, b); // the same but for case: a steady order
}

} // namespace

ResultOrderModel::ResultOrderModel(int pathRole, QObject* parent)
    : QSortFilterProxyModel(parent)
    , m_pathRole(pathRole)
{
    // Results that land later (the folder is listed again) take their place at once.
    setDynamicSortFilter(true);
    sort(0);
}

void ResultOrderModel::setSourceModel(QAbstractItemModel* source)
{
    // Connected before the proxy's own handlers, so a new listing is sorted by new facts.
    if (source) {
        const auto forget = [this] { m_facts.clear(); };
        connect(source, &QAbstractItemModel::modelReset, this, forget);
        connect(source, &QAbstractItemModel::layoutChanged, this, forget);
        connect(source, &QAbstractItemModel::dataChanged, this, forget);
    }
    m_facts.clear();
    QSortFilterProxyModel::setSourceModel(source);
}

void ResultOrderModel::setOrder(Order order)
{
    if (order == m_order)
        return;
    m_order = order;
    invalidate();
}

void ResultOrderModel::setFilterText(const QString& text)
{
    if (text == m_filter)
        return;
    m_filter = text;
    invalidateFilter();
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

const ResultOrderModel::Facts& ResultOrderModel::factsOf(const QModelIndex& source) const
{
    const QString path = source.data(m_pathRole).toString();
    auto it = m_facts.find(path);
    if (it == m_facts.end()) {
        const QFileInfo info(path);
        it = m_facts.insert(path, { info.fileName(), info.lastModified(), info.exists() ? info.size() : -1 });
    }
    return *it;
}

int ResultOrderModel::rank(const QString& path) const
{
    const qsizetype at = m_newResults.indexOf(path);
    return at < 0 ? int(m_newResults.size()) : int(at);
}

bool ResultOrderModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const Facts& a = factsOf(left);
    const Facts& b = factsOf(right);
    const auto byName = [&] {
        const int c = compareNames(a.name, b.name);
        return c != 0 ? c < 0 : left.row() < right.row();
    };
    switch (m_order) {
    case Order::Newest: {
        const int ra = rank(left.data(m_pathRole).toString());
        const int rb = rank(right.data(m_pathRole).toString());
        if (ra != rb)
            return ra < rb;
        return a.modified != b.modified ? a.modified > b.modified : byName();
    }
    case Order::Oldest:
        return a.modified != b.modified ? a.modified < b.modified : byName();
    case Order::NameAscending:
        return byName();
    case Order::NameDescending: {
        const int c = compareNames(a.name, b.name);
        return c != 0 ? c > 0 : left.row() < right.row();
    }
    case Order::Largest:
        return a.size != b.size ? a.size > b.size : byName();
    case Order::Smallest:
        return a.size != b.size ? a.size < b.size : byName();
    }
    return false;
}

bool ResultOrderModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    if (m_filter.isEmpty())
        return true;
    const QModelIndex source = sourceModel()->index(sourceRow, 0, sourceParent);
    return source.data(m_pathRole).toString().section(u'/', -1).contains(m_filter, Qt::CaseInsensitive);
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
