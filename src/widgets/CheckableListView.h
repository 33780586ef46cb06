#pragma once

#include <QAccessible>
#include <QHash>
#include <QListView>

class QAccessibleInterface;

// A list whose rows carry a mark: rows flagged Qt::ItemIsUserCheckable report their
// Qt::CheckStateRole. Assistive technology sees one item per row, a check box with its checked
// state for rows with a mark (expanded too for rows that fold), is told when a row's mark
// or folding changes (only that row's; a bulk change once, for its range), and the item's Toggle and Press
// actions ask the model to flip the mark through setData, so the model applies the same rule as a click. A
// reset keeps the current row and the scroll position, so a keyboard user does not lose their place. An empty
// list shows a hint; the scroll bar is the thin one of the screens.
class CheckableListView : public QListView
{
    Q_OBJECT

public:
    explicit CheckableListView(QWidget* parent = nullptr);

    // More rows than this changing at once are told to assistive technology as one change of
    // the list's range, not row by row.
    static constexpr int bulkRows = 8;
    ~CheckableListView() override;

    void setModel(QAbstractItemModel* model) override;

    // A role whose value is true for an expanded row and false for a folded one; rows without a
    // value do not fold. -1 (the default): no row folds.
    void setExpandedRole(int role) { m_expandedRole = role; }
    int expandedRole() const { return m_expandedRole; }

    // The text shown in the middle of the list while it has no rows.
    void setEmptyText(const QString& text);
    QString emptyText() const { return m_emptyText; }

    // The accessible item of a row (owned by the accessibility registry), nullptr past the end.
    QAccessibleInterface* accessibleRow(int row);

    // Rows with a menu of their own offer assistive technology a Show Menu action.
    virtual bool hasRowMenu(const QModelIndex& index) const
    {
        Q_UNUSED(index);
        return false;
    }
    virtual void showRowMenu(const QModelIndex& index) { Q_UNUSED(index); }

protected:
    void paintEvent(QPaintEvent* event) override;
    // Reached by the keyboard with no current row, the first row becomes current: a screen
    // reader then says which row the keys act on, not just "list".
    void focusInEvent(QFocusEvent* event) override;

private:
    void forgetAccessibleRows();
    void announceRows(int first, int last, const QList<int>& roles);
    // A row's mark and folding as last told (-1: it has none), with the names that match the
    // rows up after a rebuild.
    struct RowState
    {
        int mark = -1;
        int fold = -1;
    };
    RowState stateOf(int row) const;
    QStringList rowKeys() const;
    void rememberStates();
    void announceChangesByKey();
    // Tells of each row whose state differs from the one given with it.
    void announce(const QList<std::pair<int, RowState>>& rows);

    int m_expandedRole = -1;
    QString m_emptyText;
    QHash<int, QAccessible::Id> m_rowIds;
    QList<RowState> m_states;
    QStringList m_stateKeys;
    QList<QMetaObject::Connection> m_modelConnections;
    int m_savedRow = -1;
    int m_savedScroll = 0;
};

// The look of the screens' scroll bars: thin, rounded, no arrow buttons.
QString thinScrollBarStyle();
