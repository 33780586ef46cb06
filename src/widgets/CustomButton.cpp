#include "widgets/CustomButton.h"

#include "widgets/AnimationDelegate.h"
#include "widgets/RoundedPanel.h"
#include "widgets/TabList.h"

#include <QAccessibleWidget>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QVariantAnimation>

#include <cmath>

namespace {

// Assistive technology presses the button as a click does: it offers Press (not the Toggle
// a checkable button would), and does not report the state, which is only the button's look.
// A button in a tab list is a page tab of that list, selected or not.
class CustomButtonAccessible final : public QAccessibleWidget
{
public:
    explicit CustomButtonAccessible(CustomButton* button)
        : QAccessibleWidget(button, QAccessible::Button)
    {
    }

    CustomButton* button() const { return static_cast<CustomButton*>(widget()); }

    QAccessible::Role role() const override
    {
        return TabList::of(button()) ? QAccessible::PageTab : QAccessible::Button;
    }

    QAccessibleInterface* parent() const override
    {
        if (TabList* list = TabList::of(button()))
            return QAccessible::queryAccessibleInterface(list);
        return QAccessibleWidget::parent();
    }

    QString text(QAccessible::Text t) const override
    {
        const QString text = QAccessibleWidget::text(t);
        return t == QAccessible::Name && text.isEmpty() ? button()->title() : text;
    }

    QAccessible::State state() const override
    {
        QAccessible::State s = QAccessibleWidget::state();
        s.pressed = button()->isDown() || button()->isMouseDown();
        if (TabList::of(button())) {
            s.selectable = true;
            s.selected = TabList::isSelected(button());
        }
        return s;
    }

    QStringList actionNames() const override
    {
        QStringList names;
        if (button()->isEnabled())
            names << pressAction();
        return names + QAccessibleWidget::actionNames();
    }

    void doAction(const QString& action) override
    {
        if (action == pressAction()) {
            if (button()->isEnabled())
                button()->click();
            return;
        }
        QAccessibleWidget::doAction(action);
    }

    QStringList keyBindingsForAction(const QString& action) const override
    {
        return action == pressAction() ? QStringList { QStringLiteral("Space") } : QAccessibleWidget::keyBindingsForAction(action);
    }
};

QAccessibleInterface* customButtonFactory(const QString&, QObject* object)
{
    if (auto* button = qobject_cast<CustomButton*>(object))
        return new CustomButtonAccessible(button);
    return nullptr;
}

} // namespace

CustomButton::CustomButton(QWidget* parent)
    : QAbstractButton(parent)
    , m_textColor(palette().color(QPalette::WindowText))
    , m_activeTextColor(m_textColor)
    , m_trackingArea(this)
{
    static const bool accessible = [] {
        QAccessible::installFactory(customButtonFactory);
        return true;
    }();
    Q_UNUSED(accessible);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setMouseTracking(false);
    setup();
}

CustomButton::~CustomButton()
{
    // Running animations must not write into a button that is going away.
    for (const auto& animation : std::as_const(m_animations)) {
        if (animation) {
            animation->disconnect();
            delete animation.data();
        }
    }
}

CustomButton* CustomButton::roundButton(const QString& title, qreal radius, const QPointF& center, QWidget* parent)
{
    auto* button = new CustomButton(parent);
    button->setTitle(title);
    button->setGeometry(QRectF(center.x() - radius, center.y() - radius, 2 * radius, 2 * radius).toRect());
    button->setCornerRadius(radius);
    QFont font = button->font();
    font.setPointSizeF(2 * radius / 3);
    button->setFont(font);
    return button;
}

void CustomButton::setup()
{
    const bool on = isChecked();
    m_shown.background = on ? m_activeBackgroundColor : m_backgroundColor;
    m_shown.border = on ? m_activeBorderColor : m_borderColor;
    m_shown.shadow = on && m_activeShadowColor ? *m_activeShadowColor : m_shadowColor;
    m_shown.text = on ? m_activeTextColor : m_textColor;
    applyShadowNumbers();
    update();
}

void CustomButton::applyShadowNumbers()
{
    const bool on = isChecked();
    m_shown.shadowRadius = on && m_activeShadowRadius != -1 ? m_activeShadowRadius : m_shadowRadius;
    m_shown.shadowOpacity = on && m_activeShadowOpacity != -1 ? m_activeShadowOpacity : m_shadowOpacity;
}

void CustomButton::setTitle(const QString& title)
{
    setText(title);
    if (accessibleName().isEmpty() || accessibleName() == text())
        setAccessibleName(title);
    updateGeometry();
    update();
}

// Setters: store, and show at once what the table of immediate effects asks for.
void CustomButton::setTextColor(const QColor& color)
{
    m_textColor = color;
    setDisplayedText(color);
}

void CustomButton::setActiveTextColor(const QColor& color)
{
    m_activeTextColor = color;
    if (isChecked())
        setDisplayedText(color);
}

void CustomButton::setBorderColor(const QColor& color)
{
    m_borderColor = color;
    setDisplayedBorder(color);
}

void CustomButton::setActiveBorderColor(const QColor& color)
{
    m_activeBorderColor = color;
    if (isChecked())
        setDisplayedBorder(color);
}

void CustomButton::setBackgroundColor(const QColor& color)
{
    m_backgroundColor = color;
    setDisplayedBackground(color);
}

void CustomButton::setActiveBackgroundColor(const QColor& color)
{
    m_activeBackgroundColor = color;
    if (isChecked())
        setDisplayedBackground(color);
}

void CustomButton::setShadowColor(const QColor& color)
{
    m_shadowColor = color;
    setDisplayedShadow(color);
}

void CustomButton::setActiveShadowColor(std::optional<QColor> color)
{
    m_activeShadowColor = color;
    if (isChecked() && color)
        setDisplayedShadow(*color);
}

void CustomButton::setCornerRadius(qreal radius)
{
    m_cornerRadius = radius;
    update();
}

void CustomButton::setRoundedCorners(int corners)
{
    m_roundedCorners = corners;
    update();
}

void CustomButton::setHasContinuousCorners(bool continuous)
{
    // Qt draws circular arcs only; the flag is kept for callers that set it.
    m_hasContinuousCorners = continuous;
}

void CustomButton::setBorderWidth(qreal width)
{
    m_borderWidth = width;
    update();
}

void CustomButton::setShadowRadius(qreal radius)
{
    m_shadowRadius = radius;
    m_shown.shadowRadius = radius;
    update();
}

void CustomButton::setActiveShadowRadius(qreal radius)
{
    m_activeShadowRadius = radius;
    if (isChecked()) {
        applyShadowNumbers(); // -1 puts the normal radius back on show
        update();
    }
}

void CustomButton::setShadowOpacity(qreal opacity)
{
    m_shadowOpacity = opacity;
    m_shown.shadowOpacity = opacity;
    update();
}

void CustomButton::setActiveShadowOpacity(qreal opacity)
{
    m_activeShadowOpacity = opacity;
    if (isChecked()) {
        applyShadowNumbers();
        update();
    }
}

void CustomButton::setColorGenerator(ColorProperty property, std::function<QColor()> generator)
{
    if (generator)
        m_colorGenerators.insert(property, std::move(generator));
    else
        m_colorGenerators.remove(property);
}

QColor CustomButton::colorOf(ColorProperty property, const QColor& stored) const
{
    const auto generator = m_colorGenerators.value(property);
    return generator ? generator() : stored;
}

void CustomButton::refresh()
{
    const bool on = isChecked();
    const int duration = on ? activeDurationMs : normalDurationMs;
    const QColor background = on ? colorOf(ColorProperty::ActiveBackground, m_activeBackgroundColor)
                                 : colorOf(ColorProperty::Background, m_backgroundColor);
    const QColor text = on ? colorOf(ColorProperty::ActiveText, m_activeTextColor) : colorOf(ColorProperty::Text, m_textColor);
    const QColor border = on ? colorOf(ColorProperty::ActiveBorder, m_activeBorderColor)
                             : colorOf(ColorProperty::Border, m_borderColor);
    const QColor shadow = on && m_activeShadowColor ? *m_activeShadowColor : colorOf(ColorProperty::Shadow, m_shadowColor);
    animate("displayedBackground", background, duration);
    animate("displayedBorder", border, duration);
    animate("displayedShadow", shadow, duration);
    animate("displayedText", text, duration);
}

void CustomButton::animate(const QByteArray& property, const QColor& target, int durationMs)
{
    if (auto running = m_animations.value(property))
        running->stop(); // a new animation of the same property replaces the running one
    auto* animation = new QVariantAnimation(this);
    animation->setStartValue(this->property(property.constData()).value<QColor>());
    animation->setEndValue(target);
    animation->setDuration(durationMs);
    connect(animation, &QVariantAnimation::valueChanged, this,
            [this, property](const QVariant& value) { setProperty(property.constData(), value); });
    QPointer<CustomButton> self(this);
    // Whether it finished or was replaced, the model value ends at the target.
    AnimationDelegate::attach(animation, [self, property, target](bool) {
        if (self)
            self->setProperty(property.constData(), target);
    });
    m_animations.insert(property, animation);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

void CustomButton::flip()
{
    setChecked(!isChecked());
}

QRectF CustomButton::titleRect() const
{
    const QFontMetricsF metrics(font());
    const qreal w = metrics.horizontalAdvance(text());
    const qreal h = metrics.height();
    // Halves round away from zero, like the platform's rounding.
    return QRectF(std::round((width() - w) / 2), std::round((height() - h) / 2), w, h);
}

QSize CustomButton::sizeHint() const
{
    const QFontMetrics metrics(font());
    return QSize(metrics.horizontalAdvance(text()) + 32, metrics.height() + 16);
}

void CustomButton::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(displayedOpacity());
    const qreal inset = qMax<qreal>(m_shown.shadowRadius, m_borderWidth / 2);
    QRectF box = QRectF(rect()).adjusted(inset, inset, -inset, -inset);
    const qreal radius = qMin(m_cornerRadius, qMin(box.width(), box.height()) / 2);

    // A soft shadow: concentric strokes fading out over the shadow radius.
    if (m_shown.shadowRadius > 0 && m_shown.shadowOpacity > 0 && m_shown.shadow.alpha() > 0) {
        const int steps = int(std::ceil(m_shown.shadowRadius));
        for (int i = steps; i >= 1; --i) {
            QColor c = m_shown.shadow;
            c.setAlphaF(c.alphaF() * m_shown.shadowOpacity * (1.0 - qreal(i) / (steps + 1)) / steps * 2);
            p.setPen(Qt::NoPen);
            p.setBrush(c);
            p.drawRoundedRect(box.adjusted(-i, -i + 1, i, i + 1), radius + i, radius + i);
        }
    }
    p.setBrush(m_shown.background);
    if (m_borderWidth > 0 && m_shown.border.alpha() > 0)
        p.setPen(QPen(m_shown.border, m_borderWidth));
    else
        p.setPen(Qt::NoPen);
    p.drawPath(roundedRectPath(box, radius, m_roundedCorners));

    p.setPen(m_shown.text);
    p.setFont(font());
    p.drawText(titleRect(), Qt::AlignCenter, text());

    if (hasFocus()) {
        QColor ring = m_shown.text;
        ring.setAlphaF(0.55);
        p.setPen(QPen(ring, 1.5, Qt::DashLine));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(box.adjusted(3, 3, -3, -3), qMax<qreal>(0, radius - 3), qMax<qreal>(0, radius - 3));
    }
}

bool CustomButton::hitButton(const QPoint& position) const
{
    return isEnabled() && rect().contains(position);
}

void CustomButton::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || !isEnabled()) {
        event->ignore();
        return;
    }
    m_isMouseDown = true;
    flip();
    refresh();
    event->accept();
}

void CustomButton::mouseMoveEvent(QMouseEvent* event)
{
    // While pressed, leaving the tracked area ends the press and restores the look.
    if (m_isMouseDown && !m_trackingArea.contains(event->position().toPoint())) {
        flip();
        refresh();
        m_isMouseDown = false;
    }
    event->accept();
}

void CustomButton::mouseReleaseEvent(QMouseEvent* event)
{
    event->accept();
    if (!m_isMouseDown || event->button() != Qt::LeftButton)
        return;
    m_isMouseDown = false;
    flip();
    refresh();
    Q_EMIT clicked(isChecked());
}

void CustomButton::keyPressEvent(QKeyEvent* event)
{
    const bool trigger = event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!trigger || event->isAutoRepeat() || !isEnabled()) {
        if (!trigger)
            QAbstractButton::keyPressEvent(event);
        return;
    }
    // The keyboard presses the same way the mouse does: the other look while held.
    m_keyDown = true;
    flip();
    refresh();
}

void CustomButton::keyReleaseEvent(QKeyEvent* event)
{
    const bool trigger = event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!trigger || event->isAutoRepeat() || !m_keyDown) {
        if (!trigger)
            QAbstractButton::keyReleaseEvent(event);
        return;
    }
    m_keyDown = false;
    flip();
    refresh();
    Q_EMIT clicked(isChecked());
}

void CustomButton::changeEvent(QEvent* event)
{
    QAbstractButton::changeEvent(event);
    if (event->type() == QEvent::EnabledChange) {
        // Disabled: drawn at 0.6 opacity and transparent to the mouse.
        setAttribute(Qt::WA_TransparentForMouseEvents, !isEnabled());
        if (!isEnabled() && m_isMouseDown) {
            m_isMouseDown = false;
            flip();
            refresh();
        }
        update();
    }
}

void CustomButton::resizeEvent(QResizeEvent* event)
{
    QAbstractButton::resizeEvent(event);
    m_trackingArea.update();
}
