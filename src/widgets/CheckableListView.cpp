#include "widgets/CheckableListView.h"

#include "widgets/Accessibility.h"
#include "widgets/Colors.h"

#include <QAccessibleWidget>
#include <QPainter>
#include <QPointer>
#include <QScrollBar>

namespace {

// One row as assistive technology sees it. Rows have no QObject of their own, so the view
// keeps them registered by row and drops them whenever rows come or go.
class RowAccessible final : public QAccessibleInterface, public QAccessibleActionInterface
{
public:
    RowAccessible(CheckableListView* view, int row)
        : m_view(view)
        , m_row(row)
    {
    }

    int row() const { return m_row; }
    QModelIndex index() const
    {
        return m_view && m_view->model() ? m_view->model()->index(m_row, 0, m_view->rootIndex())
                                         : QModelIndex();
    }

    bool isValid() const override { return index().isValid(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return m_view ? m_view->window()->windowHandle() : nullptr; }
    QAccessibleInterface* parent() const override
    {
        return QAccessible::queryAccessibleInterface(m_view.data());
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    // A row with a mark is a check box: Qt 6.4's AT-SPI bridge drops the checked and checkable
    // states of a list item, so a screen reader would never say whether the row is marked.
    QAccessible::Role role() const override
    {
        const QModelIndex i = index();
        return i.isValid() && i.flags().testFlag(Qt::ItemIsUserCheckable) ? QAccessible::CheckBox
                                                                          : QAccessible::ListItem;
    }
    void setText(QAccessible::Text, const QString&) override { }

    QString text(QAccessible::Text t) const override
    {
        const QModelIndex i = index();
        if (!i.isValid())
            return {};
        if (t == QAccessible::Name) {
            const QString text = i.data(Qt::AccessibleTextRole).toString();
            return text.isEmpty() ? i.data(Qt::DisplayRole).toString() : text;
        }
        if (t == QAccessible::Description)
            return i.data(Qt::AccessibleDescriptionRole).toString();
        return {};
    }

    QRect rect() const override
    {
        const QModelIndex i = index();
        if (!i.isValid())
            return {};
        const QRect r = m_view->visualRect(i);
        return QRect(m_view->viewport()->mapToGlobal(r.topLeft()), r.size());
    }

    QAccessible::State state() const override
    {
        QAccessible::State s;
        const QModelIndex i = index();
        if (!i.isValid()) {
            s.invalid = true;
            return s;
        }
        s.focusable = true;
        s.focused = m_view->hasFocus() && m_view->currentIndex() == i;
        s.active = m_view->currentIndex() == i;
        if (!m_view->viewport()->rect().intersects(m_view->visualRect(i)))
            s.invisible = s.offscreen = true;
        if (i.flags().testFlag(Qt::ItemIsUserCheckable)) {
            s.checkable = true;
            s.checked = i.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
        }
        if (m_view->expandedRole() >= 0) {
            const QVariant expanded = i.data(m_view->expandedRole());
            if (expanded.isValid()) {
                s.expandable = true;
                s.expanded = expanded.toBool();
                s.collapsed = !s.expanded;
            }
        }
        return s;
    }

    void* interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this)
                                                    : nullptr;
    }

    QStringList actionNames() const override
    {
        const QModelIndex i = index();
        QStringList names;
        if (i.isValid() && i.flags().testFlag(Qt::ItemIsUserCheckable))
            names << toggleAction() << pressAction();
        if (i.isValid() && m_view->hasRowMenu(i))
            names << showMenuAction();
        return names;
    }

    QStringList keyBindingsForAction(const QString& action) const override
    {
        if (action == showMenuAction())
            return { QStringLiteral("Return") };
        return actionNames().contains(action) ? QStringList { QStringLiteral("Space") } : QStringList();
    }

    void doAction(const QString& action) override
    {
        if (!actionNames().contains(action))
            return;
        const QModelIndex i = index();
        if (action == showMenuAction()) {
            m_view->setCurrentIndex(i);
            m_view->showRowMenu(i);
            return;
        }
        // The row becomes the current one, as after a click, so the keyboard carries on here.
        m_view->setCurrentIndex(i);
        const bool checked = i.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
        m_view->model()->setData(i, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    }

private:
    QPointer<CheckableListView> m_view;
    int m_row;
};

// The list itself: its children are its rows (not its viewport and scroll bars).
class ListAccessible final : public QAccessibleWidget
{
public:
    explicit ListAccessible(CheckableListView* view)
        : QAccessibleWidget(view, QAccessible::List)
    {
    }

    CheckableListView* view() const { return static_cast<CheckableListView*>(widget()); }

    int childCount() const override
    {
        const QAbstractItemModel* model = view()->model();
        return model ? model->rowCount(view()->rootIndex()) : 0;
    }

    QAccessibleInterface* child(int index) const override { return view()->accessibleRow(index); }

    QString text(QAccessible::Text t) const override
    {
        // An empty list tells what sighted users read in its middle.
        const QString own = QAccessibleWidget::text(t);
        if (t == QAccessible::Description && own.isEmpty() && childCount() == 0)
            return view()->emptyText();
        return own;
    }

    int indexOfChild(const QAccessibleInterface* child) const override
    {
        const auto* row = dynamic_cast<const RowAccessible*>(child);
        return row && row->parent() == this && row->isValid() ? row->row() : -1;
    }

    QAccessibleInterface* childAt(int x, int y) const override
    {
        const QModelIndex i = view()->indexAt(view()->viewport()->mapFromGlobal(QPoint(x, y)));
        return i.isValid() ? view()->accessibleRow(i.row()) : nullptr;
    }

    QAccessibleInterface* focusChild() const override
    {
        const QModelIndex current = view()->currentIndex();
        return view()->hasFocus() && current.isValid() ? view()->accessibleRow(current.row()) : nullptr;
    }
};

QAccessibleInterface* listFactory(const QString&, QObject* object)
{
    if (auto* view = qobject_cast<CheckableListView*>(object))
        return new ListAccessible(view);
    return nullptr;
}

} // namespace

QString thinScrollBarStyle()
{
    return QStringLiteral(
        "QScrollBar:vertical { background: transparent; width: 10px; margin: 6px 2px 6px 0; }"
        "QScrollBar::handle:vertical { background: rgba(0,0,0,55); border-radius: 4px; min-height: 32px; }"
        "QScrollBar::handle:vertical:hover, QScrollBar::handle:vertical:pressed { background: "
        "rgba(0,0,0,105); }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; border: none; }"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }");
}

CheckableListView::CheckableListView(QWidget* parent)
    : QListView(parent)
{
    static const bool installed = [] {
        QAccessible::installFactory(listFactory);
        return true;
    }();
    Q_UNUSED(installed);
    verticalScrollBar()->setStyleSheet(thinScrollBarStyle());
}

CheckableListView::~CheckableListView()
{
    forgetAccessibleRows();
}

void CheckableListView::setModel(QAbstractItemModel* model)
{
    if (model == this->model())
        return;
    // Only the connections made below (lambdas and the slots of this class) go with the old
    // model; the view's own are the base class's business.
    for (const QMetaObject::Connection& c : std::as_const(m_modelConnections))
        disconnect(c);
    m_modelConnections.clear();
    forgetAccessibleRows();
    QListView::setModel(model);
    if (!model)
        return;
    rememberStates();
    m_modelConnections << connect(model, &QAbstractItemModel::modelAboutToBeReset, this, [this] {
        m_savedRow = currentIndex().row();
        m_savedScroll = verticalScrollBar()->value();
    });
    m_modelConnections << connect(model, &QAbstractItemModel::modelReset, this, [this] {
        forgetAccessibleRows();
        announceChangesByKey();
        const int rows = this->model()->rowCount(rootIndex());
        if (m_savedRow < 0 || rows == 0)
            return;
        // Lay out now, so the scroll range is the new one before the old position goes back.
        doItemsLayout();
        setCurrentIndex(this->model()->index(qMin(m_savedRow, rows - 1), 0, rootIndex()));
        verticalScrollBar()->setValue(m_savedScroll);
    });
    // Rows that come, go or move are matched to what they were by their names.
    for (auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        m_modelConnections << connect(model, signal, this, [this] {
            forgetAccessibleRows();
            announceChangesByKey();
        });
    m_modelConnections << connect(model, &QAbstractItemModel::layoutChanged, this, [this] {
        forgetAccessibleRows();
        announceChangesByKey();
    });
    m_modelConnections << connect(model, &QAbstractItemModel::dataChanged, this,
        [this](const QModelIndex& first, const QModelIndex& last, const QList<int>& roles) {
            announceRows(first.row(), last.row(), roles);
        });
}

void CheckableListView::setEmptyText(const QString& text)
{
    m_emptyText = text;
    viewport()->update();
}

QAccessibleInterface* CheckableListView::accessibleRow(int row)
{
    if (!model() || row < 0 || row >= model()->rowCount(rootIndex()))
        return nullptr;
    if (const QAccessible::Id id = m_rowIds.value(row))
        return QAccessible::accessibleInterface(id);
    auto* iface = new RowAccessible(this, row);
    m_rowIds.insert(row, QAccessible::registerAccessibleInterface(iface));
    return iface;
}

void CheckableListView::forgetAccessibleRows()
{
    for (const QAccessible::Id id : std::as_const(m_rowIds))
        QAccessible::deleteAccessibleInterface(id);
    m_rowIds.clear();
}

CheckableListView::RowState CheckableListView::stateOf(int row) const
{
    const QModelIndex i = model()->index(row, 0, rootIndex());
    RowState state;
    if (i.flags().testFlag(Qt::ItemIsUserCheckable))
        state.mark = i.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked ? 1 : 0;
    if (m_expandedRole >= 0) {
        const QVariant expanded = i.data(m_expandedRole);
        if (expanded.isValid())
            state.fold = expanded.toBool() ? 1 : 0;
    }
    return state;
}

QStringList CheckableListView::rowKeys() const
{
    // A row's name, with a count for names that repeat, stands for it across a rebuild.
    QStringList keys;
    QHash<QString, int> seen;
    const int rows = model() ? model()->rowCount(rootIndex()) : 0;
    for (int row = 0; row < rows; ++row) {
        const QModelIndex i = model()->index(row, 0, rootIndex());
        QString name = i.data(Qt::AccessibleTextRole).toString();
        if (name.isEmpty())
            name = i.data(Qt::DisplayRole).toString();
        keys.append(name + u'\x1f' + QString::number(seen[name]++));
    }
    return keys;
}

void CheckableListView::rememberStates()
{
    m_states.clear();
    m_stateKeys = rowKeys();
    for (int row = 0; row < m_stateKeys.size(); ++row)
        m_states.append(stateOf(row));
}

void CheckableListView::announceChangesByKey()
{
    QHash<QString, RowState> before;
    for (int row = 0; row < m_stateKeys.size() && row < m_states.size(); ++row)
        before.insert(m_stateKeys.at(row), m_states.at(row));
    rememberStates();
    QList<std::pair<int, RowState>> changed;
    for (int row = 0; row < m_stateKeys.size(); ++row) {
        const auto was = before.constFind(m_stateKeys.at(row));
        if (was != before.cend())
            changed.append({ row, *was });
    }
    announce(changed);
}

void CheckableListView::announce(const QList<std::pair<int, RowState>>& rows)
{
    if (!Accessibility::listening())
        return;
    QList<std::pair<int, QAccessible::State>> changes;
    for (const auto& [row, was] : rows) {
        const RowState now = row < m_states.size() ? m_states.at(row) : RowState();
        QAccessible::State changed;
        changed.checked = now.mark >= 0 && was.mark >= 0 && now.mark != was.mark;
        changed.expanded = changed.collapsed = now.fold >= 0 && was.fold >= 0 && now.fold != was.fold;
        if (changed.checked || changed.expanded)
            changes.append({ row, changed });
    }
    // A bulk change (every row marked at once) is told once for its range: an event per row
    // would keep the window busy for seconds with thousands of rows and a screen reader
    // listening, and the reader would not read them all anyway.
    if (changes.size() > bulkRows) {
        QAccessibleTableModelChangeEvent event(this, QAccessibleTableModelChangeEvent::DataChanged);
        event.setFirstRow(changes.constFirst().first);
        event.setLastRow(changes.constLast().first);
        event.setFirstColumn(0);
        event.setLastColumn(0);
        Accessibility::send(&event);
        return;
    }
    for (const auto& [row, changed] : changes) {
        if (QAccessibleInterface* iface = accessibleRow(row)) {
            QAccessibleStateChangeEvent event(iface, changed);
            Accessibility::send(&event);
        }
    }
}

void CheckableListView::announceRows(int first, int last, const QList<int>& roles)
{
    // A model may report a whole range as changed; only the rows whose mark or folding really
    // changed are told, however that happened (a click, Space, select all, a refresh).
    const bool marks = roles.isEmpty() || roles.contains(Qt::CheckStateRole);
    const bool folds = m_expandedRole >= 0 && (roles.isEmpty() || roles.contains(m_expandedRole));
    if (!marks && !folds)
        return;
    if (m_states.size() != model()->rowCount(rootIndex()))
        return announceChangesByKey();
    QList<std::pair<int, RowState>> changed;
    for (int row = qMax(0, first); row <= last && row < m_states.size(); ++row) {
        const RowState was = m_states.at(row);
        m_states[row] = stateOf(row);
        changed.append({ row, was });
    }
    announce(changed);
}

void CheckableListView::focusInEvent(QFocusEvent* event)
{
    if (!currentIndex().isValid() && model() && model()->rowCount(rootIndex()) > 0
        && (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason))
        setCurrentIndex(model()->index(0, 0, rootIndex()));
    QListView::focusInEvent(event);
}

void CheckableListView::paintEvent(QPaintEvent* event)
{
    QListView::paintEvent(event);
    if (m_emptyText.isEmpty() || (model() && model()->rowCount(rootIndex()) > 0))
        return;
    QPainter p(viewport());
    QFont hint = font();
    hint.setPointSizeF(hint.pointSizeF() + 1);
    p.setFont(hint);
    p.setPen(Colors::scheme().muted); // 4.5:1 on the list
    p.drawText(viewport()->rect().adjusted(16, 0, -16, 0), Qt::AlignCenter | Qt::TextWordWrap, m_emptyText);
}
