#pragma once

#include "widgets/TrackingArea.h"

#include <QAbstractButton>
#include <QColor>
#include <QHash>
#include <QPointer>

#include <functional>

class QVariantAnimation;

// A push button that draws itself: fill, rounded corners and a centred title. It has two
// looks, normal while its state is off and active while it is on (its checked state), and
// animates between them: 0.1 s back to normal, 0.2 s to active. A press shows the other look
// while the mouse is held; releasing inside restores it and sends clicked() once; dragging
// out restores it and ends the press without a click. The keyboard, click() and assistive
// technology's press action end the same way and send clicked() once.
class CustomButton : public QAbstractButton
{
    Q_OBJECT
    Q_PROPERTY(QColor displayedBackground READ displayedBackground WRITE setDisplayedBackground)
    Q_PROPERTY(QColor displayedText READ displayedText WRITE setDisplayedText)

public:
    enum class ColorProperty { Text, ActiveText };

    static constexpr int normalDurationMs = 100;
    static constexpr int activeDurationMs = 200;

    explicit CustomButton(QWidget* parent = nullptr);
    ~CustomButton() override;

    QString title() const { return text(); }
    void setTitle(const QString& title);

    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor& color);
    QColor activeTextColor() const { return m_activeTextColor; }
    void setActiveTextColor(const QColor& color);
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor& color);
    QColor activeBackgroundColor() const { return m_activeBackgroundColor; }
    void setActiveBackgroundColor(const QColor& color);

    void setCornerRadius(qreal radius);
    // Which corners are rounded (RoundedPanel's corner bits); all four by default.
    void setRoundedCorners(int corners);

    // A live source for a text colour, consulted by the refresh instead of the stored value.
    void setColorGenerator(ColorProperty property, std::function<QColor()> generator);

    bool isMouseDown() const { return m_isMouseDown; }
    // The look on screen, as painted now (animated values).
    QColor displayedBackground() const { return m_shownBackground; }
    QColor displayedText() const { return m_shownText; }
    qreal displayedOpacity() const { return isEnabled() ? 1.0 : 0.6; }
    QRectF titleRect() const;

    // Animates to the look of the current state.
    void refresh();

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    bool hitButton(const QPoint& position) const override;
    // click(), animateClick() and the accessible press end in the state they started from, as
    // a press and release of the mouse does: the state is the look, set by the owner.
    void nextCheckState() override { }

private:
    void flip();
    QColor colorOf(ColorProperty property, const QColor& stored) const;
    void animate(const QByteArray& property, const QColor& target, int durationMs);
    void setDisplayedBackground(const QColor& c)
    {
        m_shownBackground = c;
        update();
    }
    void setDisplayedText(const QColor& c)
    {
        m_shownText = c;
        update();
    }

    QColor m_textColor;
    QColor m_activeTextColor;
    qreal m_cornerRadius = 0;
    int m_roundedCorners = 15;
    QColor m_backgroundColor = Qt::transparent;
    QColor m_activeBackgroundColor = Qt::transparent;
    QHash<ColorProperty, std::function<QColor()>> m_colorGenerators;

    bool m_isMouseDown = false;
    bool m_keyDown = false;
    TrackingArea m_trackingArea;
    QColor m_shownBackground = m_backgroundColor;
    QColor m_shownText = m_textColor;
    QHash<QByteArray, QPointer<QVariantAnimation>> m_animations;
};
