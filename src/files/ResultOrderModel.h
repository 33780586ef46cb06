#pragma once

#include <QDateTime>
#include <QHash>
#include <QSortFilterProxyModel>
#include <QStringList>

// A result list as shown: in the order the user chose (the newest first unless told
// otherwise), narrowed to the names that contain the filter text. The results of the last
// operation answer NewResultRole and, among the newest, come first in the order it wrote them.
class ResultOrderModel : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    enum class Order { Newest, Oldest, NameAscending, NameDescending, Largest, Smallest };

    // Source role of a file's path (FileListModel::PathRole) and the role added here.
    ResultOrderModel(int pathRole, QObject* parent = nullptr);

    static constexpr int NewResultRole = Qt::UserRole + 100;

    void setOrder(Order order);
    Order order() const { return m_order; }
    // Shows only the files whose name contains `text`, ignoring case; all when it is empty.
    void setFilterText(const QString& text);

    // The paths of the newest results; none once the next operation starts.
    void setNewResults(const QStringList& paths);
    QStringList newResults() const { return m_newResults; }

    void setSourceModel(QAbstractItemModel* source) override;
    QVariant data(const QModelIndex& index, int role) const override;

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    // What a file is sorted by, read from the disk once per listing.
    struct Facts
    {
        QString name;
        QDateTime modified;
        qint64 size = -1;
    };
    const Facts& factsOf(const QModelIndex& source) const;
    int rank(const QString& path) const;

    int m_pathRole;
    Order m_order = Order::Newest;
    QString m_filter;
    QStringList m_newResults;
    mutable QHash<QString, Facts> m_facts;
};
