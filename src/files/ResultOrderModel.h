#pragma once

#include <QSet>
#include <QSortFilterProxyModel>
#include <QStringList>

// A result list as shown: the results of the last operation first (in the order it wrote
// them), then the others as the folder lists them; the new ones answer NewResultRole.
class ResultOrderModel : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    // Source role of a file's path (FileListModel::PathRole) and the role added here.
    ResultOrderModel(int pathRole, QObject* parent = nullptr);

    static constexpr int NewResultRole = Qt::UserRole + 100;

    // The paths of the newest results; none once the next operation starts.
    void setNewResults(const QStringList& paths);
    QStringList newResults() const { return m_newResults; }

    QVariant data(const QModelIndex& index, int role) const override;

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    int rank(const QModelIndex& source) const;

    int m_pathRole;
    QStringList m_newResults;
};
