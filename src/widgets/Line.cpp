#include "widgets/Line.h"

#include <QPainter>

Line::Line(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(2);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void Line::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setPen(QPen(QColor(224, 224, 224), 1));
    p.drawLine(QPointF(0, height() / 2.0), QPointF(width(), height() / 2.0));
}
