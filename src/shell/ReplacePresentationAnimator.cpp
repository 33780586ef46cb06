#include "shell/ReplacePresentationAnimator.h"

#include "shell/AppWindow.h"

#include <QGraphicsOpacityEffect>
#include <QPropertyAnimation>

namespace {

QPropertyAnimation* fade(QWidget* widget, qreal from, qreal to, QObject* parent)
{
    auto* effect = new QGraphicsOpacityEffect(widget);
    effect->setOpacity(from);
    widget->setGraphicsEffect(effect);
    auto* animation = new QPropertyAnimation(effect, "opacity", parent);
    animation->setDuration(ReplacePresentationAnimator::fadeMilliseconds);
    animation->setStartValue(from);
    animation->setEndValue(to);
    return animation;
}

} // namespace

void ReplacePresentationAnimator::animatePresentation(QWidget* presented, QWidget* presenting)
{
    swap(presented, presenting);
}

void ReplacePresentationAnimator::animateDismissal(QWidget* presented, QWidget* presenting)
{
    swap(presenting, presented);
}

void ReplacePresentationAnimator::swap(QWidget* incoming, QWidget* outgoing)
{
    auto* window = outgoing ? qobject_cast<AppWindow*>(outgoing->window()) : nullptr;
    if (!window) {
        delete incoming;
        return;
    }
    QPointer<QWidget> in(incoming);
    QPointer<QWidget> out(outgoing);
    QPointer<AppWindow> target(window);
    auto* fadeOut = fade(outgoing, 1.0, 0.0, this);
    connect(fadeOut, &QPropertyAnimation::finished, this, [this, in, out, target] {
        if (!target || !in) {
            Q_EMIT finished();
            return;
        }
        auto* fadeIn = fade(in, 0.0, 1.0, this);
        target->setContent(in); // the old screen is not used again
        connect(fadeIn, &QPropertyAnimation::finished, this, [this, in] {
            if (in)
                in->setGraphicsEffect(nullptr); // nothing to blend any more; keeps painting cheap
            Q_EMIT finished();
        });
        fadeIn->start(QAbstractAnimation::DeleteWhenStopped);
    });
    fadeOut->start(QAbstractAnimation::DeleteWhenStopped);
}
