#include "widgets/AnimationDelegate.h"

#include <QAbstractAnimation>

#include <memory>

void AnimationDelegate::attach(QAbstractAnimation* animation, std::function<void(bool)> handler)
{
    auto delegate = std::make_shared<AnimationDelegate>();
    delegate->didStopHandler = std::move(handler);
    QObject::connect(animation, &QAbstractAnimation::stateChanged, animation,
                     [animation, delegate](QAbstractAnimation::State now, QAbstractAnimation::State) {
                         if (now != QAbstractAnimation::Stopped || !delegate->didStopHandler)
                             return;
                         const bool finished = animation->currentTime() >= animation->totalDuration();
                         auto handler = std::exchange(delegate->didStopHandler, nullptr);
                         handler(finished);
                     });
}
