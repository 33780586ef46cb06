#pragma once

#include <QWidget>

// One thin horizontal stroke across the widget, for separating parts of a screen.
class Line : public QWidget
{
    Q_OBJECT

public:
    explicit Line(QWidget* parent = nullptr);
    QSize sizeHint() const override { return { 100, 2 }; }

protected:
    void paintEvent(QPaintEvent* event) override;
};
