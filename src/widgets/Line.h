#pragma once

#include <QWidget>

// One thin horizontal stroke across the widget, for separating parts of a screen.
class Line : public QWidget
{
    Q_OBJECT

public:
    explicit Line(QWidget* parent = nullptr);
    static inline const QColor strokeColor { 221, 221, 221 };
    QSize sizeHint() const override { return { 285, 20 }; }

protected:
    void paintEvent(QPaintEvent* event) override;
};
