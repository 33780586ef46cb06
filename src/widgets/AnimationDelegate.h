#pragma once

#include <functional>

class QAbstractAnimation;

// Calls didStopHandler when an animation stops: with true when it ran to its end, with
// false when it was stopped early (replaced by a newer animation of the same property).
class AnimationDelegate
{
public:
    std::function<void(bool finished)> didStopHandler;

    // Watches `animation` until it stops; the delegate is owned by the animation.
    static void attach(QAbstractAnimation* animation, std::function<void(bool finished)> handler);
};
