#include "widgets/Line.h"

#include <QPainter>

Line::Line(QWidget* parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void Line::paintEvent(QPaintEvent*)
{
    // One stroke from x 1 to 285, 10 points above the bottom edge; a narrower view clips it.
    QPainter p(this);
    p.setPen(QPen(strokeColor, 1));
    const qreal y = height() - 10 + 0.5;
    p.drawLine(QPointF(1, y), QPointF(285, y));
}
