#pragma once

#include <QPointer>
#include <QWidget>

struct AppServices;
class MainViewController;
class QVBoxLayout;
class SingleInstance;

// The application's single window, and the one place that swaps screens. It shows one content
// screen at a time: the pairing screen while no phone is connected, the main window's content
// while one is, and moves between them with a fade as the phone connection's state changes. The main window
// belongs to the trusted phone: when that phone is lost it is put aside as it is (lists, marks, recipients,
// search, tab) and comes back when the phone answers again; only another phone, or forgetting this one,
// replaces it.
class AppWindow : public QWidget
{
    Q_OBJECT

public:
    explicit AppWindow(AppServices& services, QWidget* parent = nullptr);

    QWidget* content() const { return m_content; }
    MainViewController* mainScreen() const;
    // Replaces the content screen at once; the old one is deleted (once no dialog is open),
    // unless it is the main window, which is kept for its phone.
    void setContent(QWidget* screen);

    // The flow: pairing screen first; the main window once a phone is connected; back to
    // pairing when it is lost.
    void showPairing();
    void showMain();
    // Back to pairing once no modal dialog is open: a dialog's nested event loop runs on the
    // stack of the screen that opened it.
    void showPairingWhenNoDialog();
    bool isPairingPending() const { return m_pairingPending; }

    // Files from the command line or a later start: ".vx" ones to Decrypt, the others to
    // Encrypt, marked (the user chose them to be worked on), and that screen shown. Before
    // pairing they wait for the main screens.
    void openFiles(const QStringList& paths);

    // Files a later start hands over are opened here, and the window comes forward.
    void takeHandOvers(SingleInstance& instance);
    // In front of the user's other windows, out of the task bar if minimised.
    void bringForward();

Q_SIGNALS:
    void contentChanged(QWidget* screen);

private:
    void present(QWidget* screen);
    void retire(QWidget* screen);
    void phoneReplaced();
    void phoneStateChanged();
    void deliverWaitingFiles();
    void openFiles(const QStringList& paths, const QStringList& marked);

    AppServices& m_services;
    QVBoxLayout* m_layout = nullptr;
    QPointer<QWidget> m_content;
    QPointer<QWidget> m_wanted; // what the last swap asked for; an older fade gives way to it
    QPointer<MainViewController> m_main; // the main window of the trusted phone, if made
    bool m_pairingPending = false;
    QStringList m_waitingFiles; // handed over before the main screens existed
    QStringList m_waitingMarked; // those of them to be marked
};
