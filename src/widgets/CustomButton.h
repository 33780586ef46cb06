#pragma once

#include "widgets/TrackingArea.h"

#include <QAbstractButton>
#include <QColor>
#include <QHash>
#include <QPointer>

#include <functional>
#include <optional>

class QVariantAnimation;

// A push button that draws itself: fill, border, rounded corners, shadow and a centred title.
// It has two looks, normal while its state is off and active while it is on (its checked
// state), and animates between them: 0.1 s back to normal, 0.2 s to active. A press shows
// the other look while the mouse is held; releasing inside restores it and sends clicked()
// once; dragging out restores it and ends the press without a click. The keyboard, click()
// and assistive technology's press action end the same way and send clicked() once.
class CustomButton : public QAbstractButton
{
    Q_OBJECT
    Q_PROPERTY(QColor displayedBackground READ displayedBackground WRITE setDisplayedBackground)
    Q_PROPERTY(QColor displayedBorder READ displayedBorder WRITE setDisplayedBorder)
    Q_PROPERTY(QColor displayedShadow READ displayedShadow WRITE setDisplayedShadow)
    Q_PROPERTY(QColor displayedText READ displayedText WRITE setDisplayedText)

public:
    enum class ColorProperty { Text, ActiveText, Border, ActiveBorder, Background, ActiveBackground, Shadow };

    static constexpr int normalDurationMs = 100;
    static constexpr int activeDurationMs = 200;

    explicit CustomButton(QWidget* parent = nullptr);
    ~CustomButton() override;
    // Which corners are rounded (RoundedPanel's corner bits); all four by default.
    void setRoundedCorners(int corners);
    int roundedCorners() const { return m_roundedCorners; }

    // A round button of radius r centred on `center`, its font 2r/3 points.
    static CustomButton* roundButton(const QString& title, qreal radius, const QPointF& center,
                                     QWidget* parent = nullptr);

    QString title() const { return text(); }
    void setTitle(const QString& title);

    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor& color);
    QColor activeTextColor() const { return m_activeTextColor; }
    void setActiveTextColor(const QColor& color);
    QColor borderColor() const { return m_borderColor; }
    void setBorderColor(const QColor& color);
    QColor activeBorderColor() const { return m_activeBorderColor; }
    void setActiveBorderColor(const QColor& color);
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor& color);
    QColor activeBackgroundColor() const { return m_activeBackgroundColor; }
    void setActiveBackgroundColor(const QColor& color);
    QColor shadowColor() const { return m_shadowColor; }
    void setShadowColor(const QColor& color);
    std::optional<QColor> activeShadowColor() const { return m_activeShadowColor; }
    void setActiveShadowColor(std::optional<QColor> color);

    qreal cornerRadius() const { return m_cornerRadius; }
    void setCornerRadius(qreal radius);
    bool hasContinuousCorners() const { return m_hasContinuousCorners; }
    void setHasContinuousCorners(bool continuous);
    qreal borderWidth() const { return m_borderWidth; }
    void setBorderWidth(qreal width);
    qreal shadowRadius() const { return m_shadowRadius; }
    void setShadowRadius(qreal radius);
    // -1 (exactly) means "not set": the normal value applies.
    qreal activeShadowRadius() const { return m_activeShadowRadius; }
    void setActiveShadowRadius(qreal radius);
    qreal shadowOpacity() const { return m_shadowOpacity; }
    void setShadowOpacity(qreal opacity);
    qreal activeShadowOpacity() const { return m_activeShadowOpacity; }
    void setActiveShadowOpacity(qreal opacity);

    // A live source for a colour property, consulted by the refresh instead of the stored value.
    void setColorGenerator(ColorProperty property, std::function<QColor()> generator);

    bool isMouseDown() const { return m_isMouseDown; }
    // The look on screen, as painted now (animated values).
    QColor displayedBackground() const { return m_shown.background; }
    QColor displayedBorder() const { return m_shown.border; }
    QColor displayedShadow() const { return m_shown.shadow; }
    QColor displayedText() const { return m_shown.text; }
    qreal displayedShadowRadius() const { return m_shown.shadowRadius; }
    qreal displayedShadowOpacity() const { return m_shown.shadowOpacity; }
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
    struct Look
    {
        QColor background;
        QColor border;
        QColor shadow;
        QColor text;
        qreal shadowRadius = 0;
        qreal shadowOpacity = 0;
    };

    void setup();
    void flip();
    QColor colorOf(ColorProperty property, const QColor& stored) const;
    void animate(const QByteArray& property, const QColor& target, int durationMs);
    void setDisplayedBackground(const QColor& c) { m_shown.background = c; update(); }
    void setDisplayedBorder(const QColor& c) { m_shown.border = c; update(); }
    void setDisplayedShadow(const QColor& c) { m_shown.shadow = c; update(); }
    void setDisplayedText(const QColor& c) { m_shown.text = c; update(); }
    void applyShadowNumbers();

    QColor m_textColor;
    QColor m_activeTextColor;
    qreal m_cornerRadius = 0;
    int m_roundedCorners = 15;
    bool m_hasContinuousCorners = true;
    qreal m_borderWidth = 0;
    QColor m_borderColor = Qt::transparent;
    QColor m_activeBorderColor = Qt::transparent;
    QColor m_backgroundColor = Qt::transparent;
    QColor m_activeBackgroundColor = Qt::transparent;
    qreal m_shadowRadius = 0;
    qreal m_activeShadowRadius = -1;
    qreal m_shadowOpacity = 0;
    qreal m_activeShadowOpacity = -1;
    QColor m_shadowColor = Qt::transparent;
    std::optional<QColor> m_activeShadowColor;
    QHash<ColorProperty, std::function<QColor()>> m_colorGenerators;

    bool m_isMouseDown = false;
    bool m_keyDown = false;
    TrackingArea m_trackingArea;
    Look m_shown;
    QHash<QByteArray, QPointer<QVariantAnimation>> m_animations;
};
