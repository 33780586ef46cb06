#pragma once

#include <QElapsedTimer>
#include <QFrame>

class PhoneConnection;
class QComboBox;
class QLabel;
class QPushButton;

// The bar that shows a device asking to pair, and Pair (or Switch while another phone is
// connected) or Ignore. The name the device gives itself stands on a line of its own, quoted:
// nothing in it can pass for what the desktop measured itself (the address the message came
// from, the e-mail, where its group service is), which stands on the next line. A request
// that shares its name or e-mail with another one waiting, or with the paired phone, says so,
// and one with the paired phone's e-mail from elsewhere names both addresses. When several
// devices ask at once, the bar says so and lets the user choose among them. The request shown
// never changes under the user's eyes; when it does change (the user chose another, or it
// lapsed), the buttons ignore clicks for a second, so a click meant for the old one cannot
// land on the new one. The bar never takes the focus, so typing elsewhere cannot answer it by
// accident; it is reached with Tab like any other control.
class PairingRequestBar : public QFrame
{
    Q_OBJECT

public:
    PairingRequestBar(PhoneConnection& phone, QWidget* parent);

    static constexpr int settleMilliseconds = 1000;

    // Where Tab goes on from the bar's own controls.
    QWidget* lastControl() const;

private:
    void refresh();
    void answer(bool accept);

    PhoneConnection& m_phone;
    QLabel* messageLabel = nullptr;
    QComboBox* choice = nullptr;
    QLabel* nameLabel = nullptr;
    QLabel* factsLabel = nullptr;
    QLabel* marksLabel = nullptr;
    QLabel* reminderLabel = nullptr;
    QPushButton* acceptButton = nullptr; // "Pair", or "Switch" while a phone is connected
    QPushButton* ignoreButton = nullptr;
    quint64 m_pendingId = 0;
    QElapsedTimer m_shownSince;
};
