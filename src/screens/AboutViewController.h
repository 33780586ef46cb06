#pragma once

#include <QWidget>

class PhoneConnection;
class QCheckBox;
class QLabel;
class QPushButton;

// The About screen: the product, its version, how the desktop and the phone share work, and
// which phone this computer trusts, with a way to forget it.
class AboutViewController : public QWidget
{
    Q_OBJECT

public:
    AboutViewController(const PhoneConnection& phone, QWidget* parent);

    // Shows the trusted phone's current name, address and e-mail.
    void showPairedPhone();

Q_SIGNALS:
    // The user confirmed: forget this phone.
    void forgetRequested();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void confirmForget();

    const PhoneConnection& m_phone;
    QLabel* version = nullptr;
    QLabel* versionNum = nullptr;
    QLabel* pairedPhone = nullptr;
    QPushButton* forgetButton = nullptr;
    QCheckBox* startAtLogin = nullptr; // an autostart entry that starts the program hidden
};
