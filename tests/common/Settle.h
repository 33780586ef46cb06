#pragma once

#include <QImage>
#include <QTest>
#include <QWidget>

// Waits until what `widget` draws stops changing (animations over, data shown): the same
// picture several polls in a row. For screenshots, which want the finished look.
inline bool waitUntilDrawingSettles(QWidget* widget, int timeoutMs = 5000)
{
    QImage last;
    int same = 0;
    return QTest::qWaitFor(
        [&] {
            QImage now = widget->grab().toImage();
            same = now == last ? same + 1 : 0;
            last = std::move(now);
            return same >= 5;
        },
        timeoutMs);
}
