#pragma once

#include "pairing/QrPayload.h"

#include <QColor>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>

class PairingRequestBar;
class PhoneConnection;
class QComboBox;
class QLabel;

// The screen shown while no phone is connected: this computer's LAN address as text and as
// a QR code, with the steps to pair. It only shows: the window leaves it when a phone connects.
class QRCodeViewController : public QWidget
{
    Q_OBJECT

public:
    QRCodeViewController(PhoneConnection& phone, QWidget* parent);

    // Where the addresses come from: candidates, the preferred one by the rule first. Tests
    // replace it; by default it reads this machine's interfaces.
    using AddressSource = std::function<QStringList()>;
    static void setAddressSourceForTesting(AddressSource source);

    static constexpr int moduleSize = 15;
    static constexpr int refreshMilliseconds = 4000;

    // Shows `text` (an address, or the not-found text) in the label and the code.
    void showAddress(const QString& text);
    // One round of the refresher: finds the address and redraws only when it changed.
    void refreshAddress();

    int redrawCount() const { return m_redraws; }
    QrMatrix currentMatrix() const { return m_matrix; }
    QComboBox* addressSelector() const { return m_selector; }
    // The QR image as drawn: each module moduleSize x moduleSize, with a quiet zone.
    static QImage renderQr(const QrMatrix& matrix, qreal devicePixelRatio = 1.0);
    static int quietZoneModules() { return 1; } // the white box around it adds the rest

protected:
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void viewDidLoad();
    void chooseAddress(int index);
    void placeVersionLabel();
    void showContact();

    PhoneConnection& m_phone;
    QLabel* qrCodeImage = nullptr;
    QLabel* openVarnex = nullptr;
    QLabel* toUseVarnex = nullptr;
    QLabel* tapMenu = nullptr;
    QLabel* pointPhone = nullptr;
    QLabel* ipAdressLabel = nullptr;
    QWidget* QRCodeView = nullptr;
    const QColor primaryColor { 255, 192, 0 };
    QPointer<QWidget> qrCodeWhiteBackground;
    QLabel* versionLabel = nullptr;
    // Why the window is here again: contact with the trusted phone was lost (and when), or the
    // desktop is looking for it after a start. Hidden on a first pairing.
    QLabel* contactLabel = nullptr;
    PairingRequestBar* pairingRequestBar = nullptr;
    QComboBox* m_selector = nullptr;
    QTimer m_refresher;
    QrMatrix m_matrix;
    int m_redraws = 0;
};
