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
        return action == pressAction() ? QStringList { QStringLiteral("Space") }
                                       : QAccessibleWidget::keyBindingsForAction(action);
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

void CustomButton::setTitle(const QString& title)
{
    setText(title);
    if (accessibleName().isEmpty() || accessibleName() == text())
        setAccessibleName(title);
    updateGeometry();
    update();
}

// The normal colours show at once whatever the state (the next refresh puts the look of the
// state back); the active ones show at once only while the state is on.
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

void CustomButton::setColorGenerator(ColorProperty property, std::function<QColor()> generator)
{
    m_colorGenerators.insert(property, std::move(generator));
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
    const QColor background = on ? m_activeBackgroundColor : m_backgroundColor;
    const QColor text = on ? colorOf(ColorProperty::ActiveText, m_activeTextColor)
                           : colorOf(ColorProperty::Text, m_textColor);
    animate("displayedBackground", background, duration);
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
    const QRectF box(rect());
    const qreal radius = qMin(m_cornerRadius, qMin(box.width(), box.height()) / 2);
    p.setBrush(m_shownBackground);
    p.setPen(Qt::NoPen);
    p.drawPath(roundedRectPath(box, radius, m_roundedCorners));

    p.setPen(m_shownText);
    p.setFont(font());
    p.drawText(titleRect(), Qt::AlignCenter, text());

    if (hasFocus()) {
        QColor ring = m_shownText;
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
    const bool trigger
        = event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
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
    const bool trigger
        = event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
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
