#pragma once

#include <QPointer>
#include <QWidget>

class AboutViewController;
class ConnectionWatchdog;
class CustomButton;
class DecryptViewController;
class EncryptViewController;
class PairingRequestBar;
class QStackedLayout;
class QToolButton;

// The window's content while a phone is connected: the Encrypt, Decrypt and About screens
// (made once, kept while hidden), the navigation between them, and the watchdog that sends
// the window back to pairing when the phone stops answering.
class MainViewController : public QWidget
{
    Q_OBJECT

public:
    explicit MainViewController(QWidget* parent = nullptr);

    // The watchdog pings every 3 seconds with a 3-second time-out; tests run it faster.
    static void setWatchdogTimingForTesting(std::chrono::milliseconds period, std::chrono::milliseconds pingTimeout);

    void selectEncrypt();
    void selectDecrypt();
    void selectAbout();

    QWidget* currentScreen() const;

    // ".vx" files to the Decrypt list, the others to Encrypt, each through the list's own
    // admission (as a drop); shows the screen of the first file.
    void openFiles(const QStringList& paths);

    // The widgets the navigation drives.
    QWidget* container = nullptr;
    QWidget* encryptButton = nullptr;        // backing of the Encrypt tab
    CustomButton* encryptButtonTest = nullptr;
    QWidget* decryptButton = nullptr;        // backing of the Decrypt tab
    CustomButton* decryptButtonCustom = nullptr;
    QToolButton* aboutButton = nullptr;
    QPointer<QWidget> grayBackground;
    EncryptViewController* vc1 = nullptr;
    DecryptViewController* vc2 = nullptr;
    AboutViewController* vc3 = nullptr;
    PairingRequestBar* pairingRequestBar = nullptr;

    // The colour the Encrypt tab's backing shows (dark orange once Decrypt was selected).
    QColor encryptButtonBackground() const;
    QString aboutIconName() const { return m_aboutIcon; }

Q_SIGNALS:
    void connectionLost();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void viewDidLoad();
    void viewDidAppear();
    void showScreen(QWidget* screen);
    void setAboutIcon(const QString& name);
    void updateTitle();
    void leave();

    ConnectionWatchdog* m_watchdog = nullptr;
    QStackedLayout* m_stack = nullptr;
    QString m_aboutIcon;
    bool m_left = false;
};
