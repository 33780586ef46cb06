#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

// The bar across the top of the main window while another phone asks to pair: who asks, and
// Switch or Ignore. It never takes the focus, so typing elsewhere cannot answer it by
// accident; it is reached with Tab like any other control.
class PairingRequestBar : public QFrame
{
    Q_OBJECT

public:
    explicit PairingRequestBar(QWidget* parent = nullptr);

    QLabel* messageLabel = nullptr;
    QPushButton* switchButton = nullptr;
    QPushButton* ignoreButton = nullptr;

private:
    void refresh();

    quint64 m_pendingId = 0;
};
