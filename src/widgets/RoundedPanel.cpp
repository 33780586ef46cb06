#include "widgets/RoundedPanel.h"

#include "widgets/Colors.h"

#include <QPainter>
#include <QPainterPath>

RoundedPanel::RoundedPanel(QColor color, qreal radius, int corners, QWidget* parent)
    : QWidget(parent)
    , m_color(color)
    , m_radius(radius)
    , m_corners(corners)
{
}

void RoundedPanel::setColor(const QColor& color)
{
    m_color = color;
    update();
}

QPainterPath roundedRectPath(const QRectF& r, qreal radius, int corners)
{
    const qreal d = radius * 2;
    auto rounded = [corners](int corner) { return (corners & corner) != 0; };
    QPainterPath path;
    path.moveTo(r.left(), r.top() + (rounded(RoundedPanel::TopLeft) ? radius : 0));
    if (rounded(RoundedPanel::TopLeft))
        path.arcTo(QRectF(r.left(), r.top(), d, d), 180, -90);
    path.lineTo(r.right() - (rounded(RoundedPanel::TopRight) ? radius : 0), r.top());
    if (rounded(RoundedPanel::TopRight))
        path.arcTo(QRectF(r.right() - d, r.top(), d, d), 90, -90);
    path.lineTo(r.right(), r.bottom() - (rounded(RoundedPanel::BottomRight) ? radius : 0));
    if (rounded(RoundedPanel::BottomRight))
        path.arcTo(QRectF(r.right() - d, r.bottom() - d, d, d), 0, -90);
    path.lineTo(r.left() + (rounded(RoundedPanel::BottomLeft) ? radius : 0), r.bottom());
    if (rounded(RoundedPanel::BottomLeft))
        path.arcTo(QRectF(r.left(), r.bottom() - d, d, d), 270, -90);
    path.closeSubpath();
    return path;
}

void RoundedPanel::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(m_color);
    p.drawPath(roundedRectPath(rect(), m_radius, m_corners));
}

QString fieldStyle(int fontPixels)
{
    // A card-coloured field with a thin outline, amber while focused.
    const Colors::Scheme& colours = Colors::scheme();
    // Its text and hint follow the field's palette (Colors::schemePalette, set before this).
    return QStringLiteral(
        "QLineEdit { background: %1; border: 1px solid %2; border-radius: 10px;"
        " padding: %3px 12px; font-size: %4px; } QLineEdit:focus { border: 1px solid rgb(254,173,2); }")
        .arg(colours.card.name(), colours.border.name())
        .arg(fontPixels >= 15 ? 7 : 4)
        .arg(fontPixels);
}

QString amberButtonStyle()
{
    // Dark text on the amber (white on it reads at about 1.6:1); switched off, a pale amber
    // with a brown text that still reads at 4.5:1.
    return QStringLiteral(
        "QPushButton { color: rgb(45,45,45); background: rgb(255,192,0); border: 2px solid transparent;"
        " border-radius: 8px; padding: 5px 12px; font-weight: bold; letter-spacing: 1px; }"
        "QPushButton:hover { background: rgb(254,173,2); }"
        "QPushButton:pressed { background: rgb(235,160,0); }"
        "QPushButton:focus { border: 2px solid rgb(120,75,0); }"
        "QPushButton:disabled { background: rgb(255,226,150); color: rgb(100,82,40); }");
}
