#include "widgets/RoundedCornersBox.h"

#include "widgets/Colors.h"

#include <QGraphicsDropShadowEffect>
#include <QPainter>

RoundedCornersBox::RoundedCornersBox(QWidget* parent, qreal radius)
    : QFrame(parent)
    , m_radius(radius)
{
    auto* shadow = new QGraphicsDropShadowEffect(this);
    shadow->setBlurRadius(9);
    shadow->setOffset(2, 2);
    shadow->setColor(QColor(0, 0, 0, 102)); // opacity 0.4
    setGraphicsEffect(shadow);
    setContentsMargins(int(radius / 3), int(radius / 3), int(radius / 3), int(radius / 3));
}

void RoundedCornersBox::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::scheme().card);
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), m_radius, m_radius);
}
