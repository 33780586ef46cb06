#include "shell/ReplacePresentationAnimator.h"

#include <QPainter>
#include <QPropertyAnimation>

namespace {

// Paints a still picture of a screen at a given opacity over the window's background.
// Fading a picture, not the live screen, keeps screens free to use their own effects
// (shadows), which Qt cannot nest inside an opacity effect.
class FadeCurtain : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(qreal opacity READ opacity WRITE setOpacity)

public:
    explicit FadeCurtain(QWidget* window)
        : QWidget(window)
    {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setGeometry(window->rect());
    }

    void setPicture(const QPixmap& picture)
    {
        m_picture = picture;
        update();
    }
    qreal opacity() const { return m_opacity; }
    void setOpacity(qreal opacity)
    {
        m_opacity = opacity;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.fillRect(rect(), parentWidget()->palette().window());
        p.setOpacity(m_opacity);
        p.drawPixmap(0, 0, m_picture);
    }

private:
    QPixmap m_picture;
    qreal m_opacity = 1;
};

QPropertyAnimation* fade(FadeCurtain* curtain, qreal from, qreal to)
{
    auto* animation = new QPropertyAnimation(curtain, "opacity", curtain);
    animation->setDuration(ReplacePresentationAnimator::fadeMilliseconds / 2);
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
    QWidget* window = outgoing ? outgoing->window() : nullptr;
    if (!window) {
        delete incoming;
        Q_EMIT finished();
        return;
    }
    auto* curtain = new FadeCurtain(window);
    curtain->setPicture(outgoing->grab());
    curtain->show();
    curtain->raise();

    QPointer<QWidget> in(incoming);
    QPointer<QWidget> target(window);
    auto* fadeOut = fade(curtain, 1.0, 0.0);
    connect(fadeOut, &QPropertyAnimation::finished, this, [this, curtain, in, target] {
        if (!target || !in) {
            curtain->deleteLater();
            Q_EMIT finished();
            return;
        }
        Q_EMIT swapContent(in); // the old screen is not used again
        in->resize(target->size());
        curtain->setPicture(in->grab());
        curtain->raise();
        auto* fadeIn = fade(curtain, 0.0, 1.0);
        connect(fadeIn, &QPropertyAnimation::finished, this, [this, curtain] {
            curtain->deleteLater();
            Q_EMIT finished();
        });
        fadeIn->start(QAbstractAnimation::DeleteWhenStopped);
    });
    fadeOut->start(QAbstractAnimation::DeleteWhenStopped);
}

#include "ReplacePresentationAnimator.moc"
