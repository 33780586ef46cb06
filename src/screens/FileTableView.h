#pragma once

#include "widgets/CheckableListView.h"

class FileCellDelegate;

// A table of file rows. Rows are never selected; a click on a row or its check box asks to
// flip the mark, a click on the eye asks to preview. An intake table also takes files
// dropped from the file manager, anywhere on it. A result table's rows can be dragged out
// (file URLs) and opened with a double-click; its newest results are drawn highlighted.
class FileTableView : public CheckableListView
{
    Q_OBJECT

public:
    FileTableView(const QString& identifier, FileCellDelegate* cell, bool acceptsFileDrops, QWidget* parent = nullptr);

    QString identifier() const { return objectName(); }
    FileCellDelegate* cell() const { return m_cell; }

    void setModel(QAbstractItemModel* model) override;

    // Result tables: rows can be dragged out to other applications.
    void setDragOut(bool on) { m_dragOut = on; }
    bool dragsOut() const { return m_dragOut; }
    // The model role that marks a row as one of the newest results (drawn highlighted).
    void setHighlightRole(int role) { m_highlightRole = role; }
    // Files of an intake list's drag, as local paths; empty when it carries none.
    static QStringList droppedPaths(const QMimeData* data);

Q_SIGNALS:
    void rowClicked(int row);
    void checkBoxClicked(int row);
    void previewClicked(int row);
    void filesDropped(const QStringList& paths);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool acceptsDrop(const QMimeData* data) const;
    void setHoveredPreview(int row);
    void updateTabStop();

    FileCellDelegate* m_cell;
    bool m_acceptsFileDrops;
    bool m_dragOut = false;
    int m_highlightRole = -1;
    QPoint m_pressPosition;
    QPersistentModelIndex m_pressed; // the row a drag out would take
};
