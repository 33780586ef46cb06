#pragma once

#include <QPointer>
#include <QWidget>

class QVBoxLayout;

// The application's single window. It shows one content screen at a time: the pairing
// screen while no phone is connected, the main window's content while one is, and moves
// between them with a fade.
class AppWindow : public QWidget
{
    Q_OBJECT

public:
    explicit AppWindow(QWidget* parent = nullptr);

    QWidget* content() const { return m_content; }
    // Replaces the content screen at once; the old one is deleted (once no dialog is open).
    void setContent(QWidget* screen);

    // The flow: pairing screen first; main window after a pairing, and a fresh one when the
    // user switches to another phone; back on a lost phone.
    void showPairing();
    void showMain();
    // Back to pairing once no modal dialog is open: a dialog's nested event loop runs on the
    // stack of the screen that opened it, and the swap deletes that screen.
    void showPairingWhenNoDialog();
    bool isPairingPending() const { return m_pairingPending; }

    // Files from the command line or a later start: ".vx" ones to Decrypt, the others to
    // Encrypt, and that screen shown. Before pairing they wait for the main screens.
    void openFiles(const QStringList& paths);

Q_SIGNALS:
    void contentChanged(QWidget* screen);

private:
    void present(QWidget* screen);
    void retire(QWidget* screen);
    void deliverWaitingFiles();

    QVBoxLayout* m_layout = nullptr;
    QPointer<QWidget> m_content;
    QPointer<QWidget> m_main; // the main window's content of the phone paired now, if any
    bool m_pairingPending = false;
    QStringList m_waitingFiles; // handed over before the main screens existed
};
