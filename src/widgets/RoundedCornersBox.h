#pragma once

#include <QFrame>

// A box whose white background has rounded corners, with a soft drop shadow, for the
// screens' tables.
class RoundedCornersBox : public QFrame
{
    Q_OBJECT

public:
    explicit RoundedCornersBox(QWidget* parent = nullptr, qreal radius = 15);
    qreal radius() const { return m_radius; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    qreal m_radius;
};
