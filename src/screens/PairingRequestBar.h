#pragma once

#include <QFrame>

class PhoneConnection;
class QLabel;
class QPushButton;

// The bar that shows a phone asking to pair: who asks (name, the address its message came
// from, its e-mail, and where its base URL points when that is another host), and Pair (or
// Switch while another phone is connected) or Ignore. It shows the request its buttons act on
// until the user answers or the request lapses; newer requests wait behind it and are only
// counted. It never takes the focus, so typing elsewhere cannot answer it by accident; it is
// reached with Tab like any other control.
class PairingRequestBar : public QFrame
{
    Q_OBJECT

public:
    PairingRequestBar(PhoneConnection& phone, QWidget* parent);

    // Where Tab goes on from the bar's own controls.
    QWidget* lastControl() const;

private:
    void refresh();

    PhoneConnection& m_phone;
    QLabel* messageLabel = nullptr;
    QLabel* moreLabel = nullptr;
    QPushButton* acceptButton = nullptr; // "Pair", or "Switch" while a phone is connected
    QPushButton* ignoreButton = nullptr;
    quint64 m_pendingId = 0;
};
