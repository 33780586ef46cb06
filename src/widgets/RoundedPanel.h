#pragma once

#include <QColor>
#include <QPainterPath>
#include <QWidget>

// A flat panel of one colour with the chosen corners rounded: the grey panel of the main
// window, the tab backings, the white box behind the QR code, the overlays' amber panel.
class RoundedPanel : public QWidget
{
    Q_OBJECT

public:
    enum Corner { TopLeft = 1, TopRight = 2, BottomRight = 4, BottomLeft = 8, AllCorners = 15 };

    RoundedPanel(QColor color, qreal radius, int corners = AllCorners, QWidget* parent = nullptr);

    QColor color() const { return m_color; }
    void setColor(const QColor& color);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QColor m_color;
    qreal m_radius;
    int m_corners;
};

// A rectangle with the chosen corners (RoundedPanel::Corner bits) rounded.
QPainterPath roundedRectPath(const QRectF& rect, qreal radius, int corners);

// The look of the screens' amber push buttons. The focus border is always there (clear when
// unfocused), so focus never changes the button's size or clips its title.
QString amberButtonStyle();
// A text field on the program's own surfaces, its text `fontPixels` high.
QString fieldStyle(int fontPixels);
