#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

// Swaps the window's content screen with a fade: the old screen fades out, the new one
// takes its place and fades in. Used in both directions (pairing -> main, main -> pairing).
class ReplacePresentationAnimator : public QObject
{
    Q_OBJECT

public:
    static constexpr int fadeMilliseconds = 250;

    explicit ReplacePresentationAnimator(QObject* parent = nullptr)
        : QObject(parent)
    {
    }

    // Presents `presented` in place of `presenting`. Whoever owns the content slot puts the
    // new screen in place when `swapContent` fires, between the fade out and the fade in.
    void animatePresentation(QWidget* presented, QWidget* presenting);
    // The same swap the other way: `presenting` becomes the content again.
    void animateDismissal(QWidget* presented, QWidget* presenting);

Q_SIGNALS:
    void swapContent(QWidget* incoming);
    void finished();

private:
    void swap(QWidget* incoming, QWidget* outgoing);
};
