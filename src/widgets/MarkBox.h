#pragma once

#include <QCheckBox>

class QPainter;

// The screens' check box: a white rounded square with a grey edge, amber with a white tick when
// checked. It carries its own colours, so it reads the same on a light or a dark palette (the
// platform's box can all but vanish on a dark one).
class MarkBox : public QCheckBox
{
    Q_OBJECT

public:
    explicit MarkBox(QWidget* parent = nullptr);

    static constexpr int boxSize = 18;

    // Draws the box into `box` (boxSize square); `focused` adds the dotted keyboard ring.
    static void paint(QPainter* p, const QRect& box, bool checked, bool focused = false);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& position) const override;
};
