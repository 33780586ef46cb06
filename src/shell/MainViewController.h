#pragma once

#include <QPointer>
#include <QWidget>

struct AppServices;
class AboutViewController;
class CustomButton;
class DecryptViewController;
class EncryptViewController;
class PairingRequestBar;
class QStackedLayout;
class QToolButton;

// The window's content while a phone is connected: the Encrypt, Decrypt and About screens
// (made once, kept while hidden) and the navigation between them. It lives as long as its
// phone is the trusted one, through losses of contact.
class MainViewController : public QWidget
{
    Q_OBJECT

public:
    explicit MainViewController(AppServices& services, QWidget* parent = nullptr);

    void selectEncrypt();
    void selectDecrypt();
    void selectAbout();

    QWidget* currentScreen() const;
    EncryptViewController* encryptScreen() const { return vc1; }
    DecryptViewController* decryptScreen() const { return vc2; }
    AboutViewController* aboutScreen() const { return vc3; }

    // ".vx" files to the Decrypt list, the others to Encrypt, each through the list's own
    // admission (as a drop); shows the screen of the first file. The listed files at `marked`
    // are marked then.
    void openFiles(const QStringList& paths, const QStringList& marked = {});
    // The files in both intake lists, Encrypt's first: they are the user's, not the phone's,
    // and move on to the screens of a phone the user switches to, with their marks.
    QStringList intakeFiles(bool markedOnly = false) const;

    // The colour the Encrypt tab's backing shows (dark orange once Decrypt was selected).
    QColor encryptButtonBackground() const;
    QString aboutIconName() const { return m_aboutIcon; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void viewDidLoad();
    // Ctrl+1, Ctrl+2, F1 and Find, shown in the tool tips.
    void installShortcuts();
    void viewDidAppear();
    void showScreen(QWidget* screen);
    void setAboutIcon(const QString& name);
    void updateTitle();

    AppServices& m_services;
    // The widgets the navigation drives.
    QWidget* container = nullptr;
    QWidget* encryptButton = nullptr; // backing of the Encrypt tab
    CustomButton* encryptButtonTest = nullptr;
    QWidget* decryptButton = nullptr; // backing of the Decrypt tab
    CustomButton* decryptButtonCustom = nullptr;
    QToolButton* aboutButton = nullptr;
    QPointer<QWidget> grayBackground;
    EncryptViewController* vc1 = nullptr;
    DecryptViewController* vc2 = nullptr;
    AboutViewController* vc3 = nullptr;
    PairingRequestBar* pairingRequestBar = nullptr;
    QStackedLayout* m_stack = nullptr;
    QString m_aboutIcon;
};
