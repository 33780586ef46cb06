#include "screens/AssociatedUserCellView.h"

#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "widgets/Colors.h"
#include "widgets/MarkBox.h"

#include <cmath>

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

namespace {

const QColor amber(255, 192, 0);
const QColor orange(254, 173, 2);
const QColor idle(190, 190, 190);

using Kind = AssociatedUserRowType::Kind;

QRect card(const QRect& row)
{
    return row.adjusted(4, 3, -8, -5);
}

void drawCard(QPainter* p, const QRect& r, const QColor& fill, qreal radius, bool shadow)
{
    if (shadow) {
        for (int i = 3; i >= 1; --i) {
            p->setPen(Qt::NoPen);
            p->setBrush(QColor(0, 0, 0, 14 * (4 - i)));
            p->drawRoundedRect(QRectF(r).adjusted(2 - i, i, 2 + i, 2 + i), radius + i, radius + i);
        }
    }
    p->setPen(Qt::NoPen);
    p->setBrush(fill);
    p->drawRoundedRect(QRectF(r), radius, radius);
}

void drawPerson(QPainter* p, const QPointF& centre, qreal size, const QColor& color)
{
    p->setPen(Qt::NoPen);
    p->setBrush(color);
    const qreal head = size * 0.34;
    p->drawEllipse(QPointF(centre.x(), centre.y() - size * 0.2), head / 1.1, head / 1.1);
    QPainterPath body;
    body.addRoundedRect(QRectF(centre.x() - size * 0.42, centre.y() + size * 0.12, size * 0.84, size * 0.42),
        size * 0.2, size * 0.2);
    p->drawPath(body);
}

} // namespace

AssociatedUserCellView::AssociatedUserCellView(QObject* parent)
    : QStyledItemDelegate(parent)
{
}

QRect AssociatedUserCellView::checkBoxRect(const QRect& row) const
{
    const QRect c = card(row);
    return QRect(c.left() + 12, c.center().y() - MarkBox::boxSize / 2, MarkBox::boxSize, MarkBox::boxSize);
}

QRect AssociatedUserCellView::disclosureRect(const QRect& row) const
{
    const QRect c = card(row);
    return QRect(c.left() + 36, c.center().y() - 10, 20, 20);
}

QRect AssociatedUserCellView::menuRect(const QRect& row) const
{
    const QRect c = card(row);
    return QRect(c.right() - 38, c.center().y() - 14, 28, 28);
}

QRect AssociatedUserCellView::infoRect(const QRect& row) const
{
    const QRect c = card(row);
    return QRect(c.left() + 38, c.center().y() - 16, 32, 32);
}

QString AssociatedUserCellView::groupOptionsText()
{
    //: Tool tip and accessible name of a group's menu button
    //% "Group options"
    return qtTrId("groupOptions");
}

bool AssociatedUserCellView::helpEvent(
    QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option, const QModelIndex& index)
{
    if (event->type() != QEvent::ToolTip || !index.isValid())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    const Kind kind = Kind(index.data(RecipientsModel::KindRole).toInt());
    QString tip = index.data(Qt::ToolTipRole).toString();
    if (kind == Kind::groupHeader && menuRect(option.rect).contains(event->pos()))
        tip = groupOptionsText();
    else if (kind == Kind::user && infoRect(option.rect).contains(event->pos()))
        tip = index.data(RecipientsModel::SummaryRole).toString();
    if (tip.isEmpty()) {
        QToolTip::hideText();
        return true;
    }
    QToolTip::showText(event->globalPos(), tip, view, option.rect);
    return true;
}

AssociatedUserCellView::Part AssociatedUserCellView::hitTest(
    int kind, const QRect& rect, const QPoint& position) const
{
    if (!rect.contains(position))
        return Part::None;
    if (Kind(kind) == Kind::groupMember)
        return Part::Row;
    if (checkBoxRect(rect).adjusted(-5, -5, 5, 5).contains(position))
        return Part::CheckBox;
    if (Kind(kind) == Kind::groupHeader && disclosureRect(rect).adjusted(-3, -3, 3, 3).contains(position))
        return Part::Disclosure;
    if (Kind(kind) == Kind::groupHeader && menuRect(rect).contains(position))
        return Part::Menu;
    return Part::Row;
}

AssociatedUserCellView::PhoneLayout AssociatedUserCellView::phoneLayout(
    const QString& phone, const QString& name, int lineWidth, const QFont& font)
{
    // The phone takes what the name leaves, and at least 45% of the line; it is shortened
    // with "..." rather than dropped.
    QFont small = font;
    small.setPointSize(9);
    QFont bold = font;
    bold.setPointSize(10);
    bold.setBold(true);
    const int nameWidth = QFontMetrics(bold).horizontalAdvance(name);
    const int room = std::max(lineWidth * 45 / 100, lineWidth - nameWidth - 10);
    // Rounded up: a width rounded down makes elidedText() shorten a number that fits.
    const int width = std::min(int(std::ceil(QFontMetricsF(small).horizontalAdvance(phone))), room);
    if (width <= 0)
        return {};
    return { QFontMetrics(small).elidedText(phone, Qt::ElideRight, width), width };
}

QSize AssociatedUserCellView::sizeHint(const QStyleOptionViewItem&, const QModelIndex& index) const
{
    return QSize(300,
        Kind(index.data(RecipientsModel::KindRole).toInt()) == Kind::groupMember ? memberHeight : cardHeight);
}

void AssociatedUserCellView::paint(
    QPainter* p, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const Kind kind = Kind(index.data(RecipientsModel::KindRole).toInt());
    const QRect row = option.rect;
    p->save();
    p->setRenderHint(QPainter::Antialiasing);
    QFont font = option.font;
    const bool checked = index.data(RecipientsModel::CheckedRole).toBool();

    if (kind == Kind::groupMember) {
        const QRect r = row.adjusted(46, 2, -8, -4);
        drawCard(p, r, Colors::scheme().memberCard, 8, false);
        drawPerson(p, QPointF(r.left() + 22, r.center().y()), 18, idle);
        font.setPointSize(10);
        p->setFont(font);
        p->setPen(Colors::scheme().text);
        p->drawText(QRect(r.left() + 42, r.top(), r.width() - 50, r.height() / 2),
            Qt::AlignLeft | Qt::AlignBottom, index.data(RecipientsModel::NameRole).toString());
        font.setPointSize(8);
        p->setFont(font);
        p->setPen(Colors::scheme().muted);
        p->drawText(QRect(r.left() + 42, r.center().y() + 2, r.width() - 50, r.height() / 2 - 2),
            Qt::AlignLeft | Qt::AlignTop, index.data(RecipientsModel::EmailRole).toString());
        p->restore();
        return;
    }

    const QRect c = card(row);
    drawCard(p, c, Colors::scheme().card, 10, true);
    MarkBox::paint(p, checkBoxRect(row), checked);
    if (option.state.testFlag(QStyle::State_HasFocus)) {
        p->setPen(QPen(orange, 1, Qt::DotLine));
        p->setBrush(Qt::NoBrush);
        p->drawRoundedRect(QRectF(c).adjusted(2, 2, -2, -2), 8, 8);
    }
    int textLeft = 0;
    if (kind == Kind::user) {
        drawPerson(p, QPointF(c.left() + 54, c.center().y()), 26, checked ? amber : idle);
        textLeft = c.left() + 78;
    } else {
        p->setPen(Colors::scheme().text);
        font.setPointSize(9);
        p->setFont(font);
        p->drawText(disclosureRect(row), Qt::AlignCenter,
            index.data(RecipientsModel::ExpandedRole).toBool() ? QStringLiteral("▼") : QStringLiteral("▶"));
        const QColor tint = checked ? amber : idle;
        drawPerson(p, QPointF(c.left() + 82, c.center().y() + 1), 22, tint.lighter(115));
        drawPerson(p, QPointF(c.left() + 72, c.center().y() + 3), 24, tint);
        textLeft = c.left() + 100;
        // The options button: an ellipsis in a circle.
        const QRect m = menuRect(row);
        p->setPen(QPen(Colors::scheme().muted, 1.4));
        p->setBrush(Qt::NoBrush);
        p->drawEllipse(QRectF(m).adjusted(4, 4, -4, -4));
        p->setPen(Qt::NoPen);
        p->setBrush(Colors::scheme().muted);
        for (int i = -1; i <= 1; ++i)
            p->drawEllipse(QPointF(m.center().x() + 0.5 + i * 5, m.center().y() + 0.5), 1.6, 1.6);
    }
    const int textRight = kind == Kind::groupHeader ? menuRect(row).left() - 8 : c.right() - 12;
    QFont small = font;
    small.setPointSize(kind == Kind::user ? 9 : 8);
    const QFontMetrics smallMetrics(small);
    QRect top(textLeft, c.top() + 8, textRight - textLeft, c.height() / 2 - 6);
    if (kind == Kind::user) {
        const PhoneLayout phone = phoneLayout(index.data(RecipientsModel::PhoneRole).toString(),
            index.data(RecipientsModel::NameRole).toString(), top.width(), font);
        if (phone.width > 0) {
            p->setFont(small);
            p->setPen(Colors::scheme().muted);
            p->drawText(QRect(textRight - phone.width, top.top(), phone.width, top.height()),
                Qt::AlignRight | Qt::AlignBottom, phone.text);
            top.setRight(textRight - phone.width - 10);
        }
    }
    font.setPointSize(kind == Kind::user ? 10 : 11);
    font.setBold(true);
    p->setFont(font);
    p->setPen(Colors::scheme().text);
    p->drawText(top, Qt::AlignLeft | Qt::AlignBottom,
        QFontMetrics(font).elidedText(
            index.data(RecipientsModel::NameRole).toString(), Qt::ElideRight, top.width()));
    p->setFont(small);
    p->setPen(Colors::scheme().muted);
    const QRect bottom(textLeft, c.center().y() + 3, textRight - textLeft, c.height() / 2 - 8);
    const QString second = kind == Kind::user ? index.data(RecipientsModel::EmailRole).toString()
                                              : index.data(RecipientsModel::MemberCountRole).toString();
    p->drawText(bottom, Qt::AlignLeft | Qt::AlignTop,
        smallMetrics.elidedText(second, Qt::ElideRight, bottom.width()));
    p->restore();
}
