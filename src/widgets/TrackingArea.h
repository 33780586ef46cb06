#pragma once

#include <QPointer>
#include <QRect>
#include <QWidget>

// Tells whether the mouse is over a widget's tracked rectangle, also while a press grabs
// the mouse (Qt sends no enter/leave events then).
class TrackingArea
{
public:
    static constexpr int options = 65; // entered/exited (1) + active in the active application (64)

    explicit TrackingArea(QWidget* view)
        : m_view(view)
        , m_rect(view ? view->rect() : QRect())
    {
    }

    QRect rect() const { return m_rect; }
    // Follows the view's size: a resized button keeps tracking its whole area.
    void update() { m_rect = m_view ? m_view->rect() : QRect(); }
    bool contains(const QPoint& position) const { return m_rect.contains(position); }

private:
    QPointer<QWidget> m_view;
    QRect m_rect;
};
