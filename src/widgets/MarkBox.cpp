#include "widgets/MarkBox.h"

#include "widgets/Colors.h"

#include <QPainter>

namespace {
const QColor idleEdge(190, 190, 190);
constexpr int ring = 4; // room for the focus ring around the box
} // namespace

MarkBox::MarkBox(QWidget* parent)
    : QCheckBox(parent)
{
    setCursor(Qt::PointingHandCursor);
}

void MarkBox::paint(QPainter* p, const QRect& box, bool checked, bool focused)
{
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    p->setPen(QPen(checked ? Colors::darkOrange : idleEdge, 1.5));
    p->setBrush(checked ? Colors::primaryColor : QColor(Qt::white));
    p->drawRoundedRect(QRectF(box).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    if (checked) {
        p->setPen(QPen(Colors::ink, 2.2, // a white tick would vanish on the amber
            Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p->drawPolyline(QList<QPointF> { QPointF(box.left() + 4.5, box.center().y() + 0.5),
            QPointF(box.left() + 7.8, box.bottom() - 4.5), QPointF(box.right() - 3.8, box.top() + 5) });
    }
    if (focused) {
        p->setPen(QPen(Colors::darkOrange, 1, Qt::DotLine));
        p->setBrush(Qt::NoBrush);
        p->drawRoundedRect(QRectF(box).adjusted(-3, -3, 3, 3), 5, 5);
    }
    p->restore();
}

QSize MarkBox::sizeHint() const
{
    return { boxSize + 2 * ring, boxSize + 2 * ring };
}

void MarkBox::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    const QRect box((width() - boxSize) / 2, (height() - boxSize) / 2, boxSize, boxSize);
    paint(&p, box, isChecked(), hasFocus());
}

bool MarkBox::hitButton(const QPoint& position) const
{
    return rect().contains(position);
}
