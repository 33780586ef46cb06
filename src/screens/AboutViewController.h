#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

// The About screen: the product, its version, how the desktop and the phone share work, and
// which phone this computer is paired with, with a way to let it go.
class AboutViewController : public QWidget
{
    Q_OBJECT

public:
    explicit AboutViewController(QWidget* parent = nullptr);

    QLabel* version = nullptr;
    QLabel* versionNum = nullptr;
    QLabel* pairedPhone = nullptr;
    QPushButton* disconnectButton = nullptr;

    // Shows the paired phone's current name and address.
    void showPairedPhone();

Q_SIGNALS:
    void disconnectRequested();

protected:
    void showEvent(QShowEvent* event) override;
};
