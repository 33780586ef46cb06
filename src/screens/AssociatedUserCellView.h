#pragma once

#include <QStyledItemDelegate>

class QAbstractItemView;
class QHelpEvent;

// Draws the recipients table's rows: a user card (mark, person icon, upper-case name, e-mail,
// phone), a group card (mark, disclosure, group icon, upper-case name, member count, options
// button), and the lighter row of a member of an expanded group.
class AssociatedUserCellView : public QStyledItemDelegate
{
    Q_OBJECT

public:
    enum class Part { None, Row, CheckBox, Disclosure, Menu };

    static constexpr int cardHeight = 62;
    static constexpr int memberHeight = 44;

    explicit AssociatedUserCellView(QObject* parent = nullptr);

    QString identifier() const { return QStringLiteral("associatedUserCell"); }
    Part hitTest(int kind, const QRect& rect, const QPoint& position) const;
    QRect checkBoxRect(const QRect& row) const;
    QRect disclosureRect(const QRect& row) const;
    QRect menuRect(const QRect& row) const;
    // The person icon of a user row, whose tool tip is the user's summary.
    QRect infoRect(const QRect& row) const;
    static QString groupOptionsText();

    // The phone number of a user row as drawn on the name's line (`lineWidth` wide, `font` the
    // row's font): whole when the name leaves room, else shortened with "...", never dropped.
    struct PhoneLayout
    {
        QString text;
        int width = 0;
    };
    static PhoneLayout phoneLayout(const QString& phone, const QString& name, int lineWidth, const QFont& font);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    // Tool tips by place: the user's summary over the person icon, "Group options" over a
    // group's menu button, the name elsewhere.
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
};
