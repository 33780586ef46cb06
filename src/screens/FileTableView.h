#pragma once

#include "widgets/CheckableListView.h"

class FileCellDelegate;

// A table of file rows. Rows are never selected; a click on a row or its check box asks to
// flip the mark, a click on the eye asks to preview. An intake table also takes files
// dropped from the file manager, between rows only.
class FileTableView : public CheckableListView
{
    Q_OBJECT

public:
    FileTableView(const QString& identifier, FileCellDelegate* cell, bool acceptsFileDrops, QWidget* parent = nullptr);

    QString identifier() const { return objectName(); }
    FileCellDelegate* cell() const { return m_cell; }

    void setModel(QAbstractItemModel* model) override;

    // Whether a drop at `position` (viewport coordinates) would land between rows.
    bool isBetweenRows(const QPoint& position) const;

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

private:
    bool acceptsDropAt(const QMimeData* data, const QPoint& position) const;
    void setHoveredPreview(int row);
    void updateTabStop();

    FileCellDelegate* m_cell;
    bool m_acceptsFileDrops;
};
