#include "screens/FileCellDelegate.h"

#include "files/FileListModel.h"
#include "widgets/Colors.h"
#include "widgets/MarkBox.h"

#include <QApplication>
#include <QIcon>
#include <QPainter>
#include <QStyle>

namespace {

constexpr int margin = 14;
constexpr int checkSize = MarkBox::boxSize;
constexpr int previewSize = 26;
constexpr int sizeWidth = 84;
constexpr int typeWidth = 64;
constexpr int modifiedWidth = 112;

} // namespace

FileCellDelegate::FileCellDelegate(Outlets outlets, QString identifier, QObject* parent)
    : QStyledItemDelegate(parent)
    , m_outlets(outlets)
    , m_identifier(std::move(identifier))
{
}

QRect FileCellDelegate::checkBoxRect(const QRect& row) const
{
    if (!m_outlets.isChecked)
        return {};
    return QRect(row.left() + margin, row.center().y() - checkSize / 2, checkSize, checkSize);
}

QRect FileCellDelegate::previewRect(const QRect& row) const
{
    if (!m_outlets.previewFileButton)
        return {};
    return QRect(
        row.right() - margin - previewSize, row.center().y() - previewSize / 2, previewSize, previewSize);
}

FileCellDelegate::Part FileCellDelegate::hitTest(const QRect& rect, const QPoint& position) const
{
    if (!rect.contains(position))
        return Part::None;
    if (checkBoxRect(rect).adjusted(-6, -6, 6, 6).contains(position))
        return Part::CheckBox;
    if (previewRect(rect).adjusted(-4, -4, 4, 4).contains(position))
        return Part::Preview;
    return Part::Row;
}

QSize FileCellDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const
{
    return QSize(400, rowHeight);
}

void FileCellDelegate::paint(QPainter* p, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QRect row = option.rect;
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    const Colors::Scheme& colours = Colors::scheme();
    p->fillRect(row, colours.card);
    // The separator runs along the row's foot, so the first row does not double the box's edge.
    p->fillRect(
        QRect(row.left(), row.bottom() - 1, row.width(), 2), colours.dark ? colours.panel : gridColor);
    if (option.state.testFlag(QStyle::State_HasFocus)) {
        // The keyboard's row: a dark amber frame on the white rows (over 4:1), the amber itself
        // on the dark ones.
        p->setPen(QPen(colours.dark ? Colors::primaryColor : focusColor, 2));
        p->setBrush(Qt::NoBrush);
        p->drawRoundedRect(QRectF(row).adjusted(3, 3, -3, -4), 6, 6);
    }

    int left = row.left() + margin;
    if (m_outlets.isChecked) {
        const QRect box = checkBoxRect(row);
        const bool checked = index.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
        MarkBox::paint(p, box, checked);
        left = box.right() + 12;
    }
    int right = row.right() - margin;
    if (m_outlets.previewFileButton) {
        const QRect eye = previewRect(row);
        const bool hovered = m_hoveredPreviewRow == index.row();
        QIcon(hovered ? QStringLiteral(":/images/preview_hover.svg") : QStringLiteral(":/images/preview.svg"))
            .paint(p, eye);
        right = eye.left() - 10;
    }

    const QFontMetrics metrics(option.font);
    auto column = [&](int width, const QString& text, const QColor& color, Qt::Alignment align) {
        const QRect cell(right - width, row.top(), width, row.height() - 2);
        p->setPen(color);
        p->drawText(cell, align | Qt::AlignVCenter, metrics.elidedText(text, Qt::ElideRight, width));
        right -= width + 8;
    };
    if (m_outlets.fileModified)
        column(
            modifiedWidth, index.data(FileListModel::ModifiedRole).toString(), colours.muted, Qt::AlignRight);
    column(typeWidth, index.data(FileListModel::TypeRole).toString(), colours.amberText, Qt::AlignHCenter);
    column(sizeWidth, index.data(FileListModel::SizeRole).toString(), colours.muted, Qt::AlignRight);

    QFont nameFont = option.font;
    nameFont.setWeight(QFont::Medium);
    p->setFont(nameFont);
    p->setPen(colours.text);
    const QRect name(left, row.top(), qMax(0, right - left), row.height() - 2);
    p->drawText(name, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(nameFont).elidedText(
            index.data(FileListModel::NameRole).toString(), Qt::ElideMiddle, name.width()));
    p->restore();
}
