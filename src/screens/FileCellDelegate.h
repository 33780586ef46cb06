#pragma once

#include <QStyledItemDelegate>

// Draws one file row: a white cell with a grey 2-point separator at its foot, then the mark,
// the name, size, type and modification time, and the preview button, as the cell has them.
class FileCellDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    struct Outlets
    {
        bool isChecked = false;
        bool fileModified = false;
        bool previewFileButton = false;
    };
    enum class Part { None, CheckBox, Preview, Row };

    static constexpr int rowHeight = 42;
    static inline const QColor gridColor { 247, 247, 247 };
    static inline const QColor focusColor { 168, 100, 0 };

    FileCellDelegate(Outlets outlets, QString identifier, QObject* parent = nullptr);

    QString identifier() const { return m_identifier; }
    Outlets outlets() const { return m_outlets; }
    // What part of a row `position` is on, for a row drawn in `rect`.
    Part hitTest(const QRect& rect, const QPoint& position) const;
    QRect checkBoxRect(const QRect& row) const;
    QRect previewRect(const QRect& row) const;

    void setHoveredPreviewRow(int row) { m_hoveredPreviewRow = row; }
    int hoveredPreviewRow() const { return m_hoveredPreviewRow; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    Outlets m_outlets;
    QString m_identifier;
    int m_hoveredPreviewRow = -1;
};

// The four file cells, by the lists that use them.
class FileToEncryptCellView : public FileCellDelegate
{
    Q_OBJECT
public:
    explicit FileToEncryptCellView(QObject* parent = nullptr)
        : FileCellDelegate({ true, false, true }, QStringLiteral("fileToEncryptCell"), parent)
    {
    }
};

class EncryptedFileCellView : public FileCellDelegate
{
    Q_OBJECT
public:
    explicit EncryptedFileCellView(QObject* parent = nullptr)
        : FileCellDelegate({ false, true, false }, QStringLiteral("encryptedFileCell"), parent)
    {
    }
};

class FileToDecryptCellView : public FileCellDelegate
{
    Q_OBJECT
public:
    explicit FileToDecryptCellView(QObject* parent = nullptr)
        : FileCellDelegate({ true, false, false }, QStringLiteral("fileToDecryptCell"), parent)
    {
    }
};

class DecryptedFileCellView : public FileCellDelegate
{
    Q_OBJECT
public:
    explicit DecryptedFileCellView(QObject* parent = nullptr)
        : FileCellDelegate({ false, true, true }, QStringLiteral("decryptedFileCell"), parent)
    {
    }
};
