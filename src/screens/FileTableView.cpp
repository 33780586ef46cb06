#include "screens/FileTableView.h"

#include "widgets/Colors.h"

#include "screens/FileCellDelegate.h"

#include <QApplication>
#include <QDrag>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QUrl>

FileTableView::FileTableView(
    const QString& identifier, FileCellDelegate* cell, bool acceptsFileDrops, QWidget* parent)
    : CheckableListView(parent)
    , m_cell(cell)
    , m_acceptsFileDrops(acceptsFileDrops)
{
    setObjectName(identifier);
    cell->setParent(this);
    setItemDelegate(cell);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformItemSizes(true);
    setMouseTracking(true);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setAcceptDrops(acceptsFileDrops);
    setDropIndicatorShown(false);
    viewport()->setAutoFillBackground(true);
    QPalette p = viewport()->palette();
    p.setColor(QPalette::Base, Colors::scheme().card);
    viewport()->setPalette(p);
}

void FileTableView::setModel(QAbstractItemModel* model)
{
    CheckableListView::setModel(model);
    updateTabStop();
    if (!model)
        return;
    // Models only ever come from the screen and live as long as this view.
    for (auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        connect(model, signal, this, &FileTableView::updateTabStop);
    connect(model, &QAbstractItemModel::modelReset, this, &FileTableView::updateTabStop);
}

void FileTableView::updateTabStop()
{
    // An empty table has no row to show focus on: the keyboard passes it by (its hint names
    // the button to press instead).
    const bool rows = model() && model()->rowCount(rootIndex()) > 0;
    setFocusPolicy(rows ? Qt::StrongFocus : Qt::NoFocus);
    if (!rows && hasFocus())
        focusNextChild();
}

bool FileTableView::acceptsDrop(const QMimeData* data) const
{
    // Anywhere on the list: a full list would otherwise leave almost nowhere to drop.
    return m_acceptsFileDrops && data && data->hasUrls();
}

QStringList FileTableView::droppedPaths(const QMimeData* data)
{
    QStringList paths;
    if (!data)
        return paths;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile())
            paths.append(url.toLocalFile());
    }
    return paths;
}

void FileTableView::dragEnterEvent(QDragEnterEvent* event)
{
    if (m_acceptsFileDrops && event->mimeData()->hasUrls())
        event->acceptProposedAction();
    else
        event->ignore();
}

void FileTableView::dragMoveEvent(QDragMoveEvent* event)
{
    if (acceptsDrop(event->mimeData())) {
        event->setDropAction(Qt::CopyAction);
        event->accept();
    } else {
        event->ignore();
    }
}

void FileTableView::dropEvent(QDropEvent* event)
{
    if (!acceptsDrop(event->mimeData())) {
        event->ignore();
        return;
    }
    const QStringList paths = droppedPaths(event->mimeData());
    if (paths.isEmpty()) {
        event->ignore();
        return;
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT filesDropped(paths);
}

void FileTableView::mousePressEvent(QMouseEvent* event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    m_pressed = event->button() == Qt::LeftButton && m_dragOut ? QPersistentModelIndex(index)
                                                               : QPersistentModelIndex();
    m_pressPosition = event->position().toPoint();
    if (event->button() != Qt::LeftButton || !index.isValid()) {
        QListView::mousePressEvent(event);
        return;
    }
    setCurrentIndex(index);
    switch (m_cell->hitTest(visualRect(index), event->position().toPoint())) {
    case FileCellDelegate::Part::CheckBox:
        if (m_cell->outlets().isChecked)
            Q_EMIT checkBoxClicked(index.row());
        break;
    case FileCellDelegate::Part::Preview:
        Q_EMIT previewClicked(index.row());
        break;
    case FileCellDelegate::Part::Row:
        if (m_cell->outlets().isChecked)
            Q_EMIT rowClicked(index.row());
        break;
    case FileCellDelegate::Part::None:
        break;
    }
    event->accept();
}

void FileTableView::mouseDoubleClickEvent(QMouseEvent* event)
{
    // A result row opens, as its eye does; on an intake list two quick clicks are two flips,
    // as two single clicks are.
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!m_cell->outlets().isChecked && index.isValid() && event->button() == Qt::LeftButton) {
        Q_EMIT previewClicked(index.row());
        event->accept();
        return;
    }
    mousePressEvent(event);
}

void FileTableView::mouseReleaseEvent(QMouseEvent* event)
{
    m_pressed = QPersistentModelIndex();
    event->accept();
}

void FileTableView::mouseMoveEvent(QMouseEvent* event)
{
    if (m_pressed.isValid() && (event->buttons() & Qt::LeftButton)
        && (event->position().toPoint() - m_pressPosition).manhattanLength()
            >= QApplication::startDragDistance()) {
        const QModelIndex index = m_pressed;
        m_pressed = QPersistentModelIndex();
        if (QMimeData* data = model()->mimeData({ index })) {
            auto* drag = new QDrag(this);
            drag->setMimeData(data);
            drag->exec(Qt::CopyAction, Qt::CopyAction);
        }
        return;
    }
    const QModelIndex index = indexAt(event->position().toPoint());
    const bool onEye = index.isValid()
        && m_cell->hitTest(visualRect(index), event->position().toPoint()) == FileCellDelegate::Part::Preview;
    setHoveredPreview(onEye ? index.row() : -1);
    viewport()->setCursor(onEye ? Qt::PointingHandCursor : Qt::ArrowCursor);
    QListView::mouseMoveEvent(event);
}

void FileTableView::paintEvent(QPaintEvent* event)
{
    CheckableListView::paintEvent(event);
    if (m_highlightRole < 0 || !model())
        return;
    // The newest results: an amber bar at the start of the row and a light amber wash.
    // Only the rows in sight: thousands of new results must not be walked at every paint.
    QPainter painter(viewport());
    const QModelIndex top = indexAt(event->rect().topLeft());
    for (int row = top.isValid() ? top.row() : 0; row < model()->rowCount(rootIndex()); ++row) {
        const QModelIndex index = model()->index(row, 0, rootIndex());
        if (!index.data(m_highlightRole).toBool())
            break; // the newest come first
        const QRect rect = visualRect(index);
        if (rect.top() > event->rect().bottom())
            break;
        if (!rect.intersects(event->rect()))
            continue;
        painter.fillRect(rect, QColor(255, 192, 0, 40));
        painter.fillRect(QRect(rect.left(), rect.top() + 2, 4, rect.height() - 2), QColor(255, 192, 0));
    }
}

void FileTableView::leaveEvent(QEvent* event)
{
    setHoveredPreview(-1);
    QListView::leaveEvent(event);
}

void FileTableView::setHoveredPreview(int row)
{
    if (m_cell->hoveredPreviewRow() == row)
        return;
    m_cell->setHoveredPreviewRow(row);
    viewport()->update();
}

void FileTableView::keyPressEvent(QKeyEvent* event)
{
    const QModelIndex current = currentIndex();
    if (current.isValid() && event->key() == Qt::Key_Space && m_cell->outlets().isChecked) {
        Q_EMIT rowClicked(current.row());
        return;
    }
    if (current.isValid() && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        && m_cell->outlets().previewFileButton) {
        Q_EMIT previewClicked(current.row());
        return;
    }
    QListView::keyPressEvent(event);
}
