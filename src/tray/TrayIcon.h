#pragma once

#include <QIcon>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>

#include <functional>

class PhoneConnection;
class QAction;
class QWidget;

// The program's icon in the desktop's tray (a StatusNotifierItem where the desktop hosts them,
// else the X11 tray): it shows the phone's state and the operations running, and offers Show and
// Quit. While it is there, closing the window only hides it, so the trusted phone stays found
// and commands answer at once; the first time, the tray says so. Quitting (its menu, Ctrl+Q)
// asks first while an operation runs, as closing does without a tray.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    // Whether the desktop shows tray icons at all; without one, closing quits as ever.
    static bool isAvailable();

    // `mayQuit` asks the user first while an operation runs (QuitGuard's question).
    TrayIcon(QWidget& window, const PhoneConnection& phone, std::function<bool()> mayQuit,
        QObject* parent = nullptr);

    // What the icon's tool tip and first menu lines say now.
    QString stateText() const;
    QString operationText() const;
    QMenu* menu() { return &m_menu; }
    // Quits the program, once the user agreed while an operation runs (the menu's Quit, Ctrl+Q).
    void quit();

    // Settings key: the tray has said once that closing keeps the program running.
    static constexpr const char* closeNoticeKey = "trayCloseNoticeShown";

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void update();
    void show();

    QWidget& m_window;
    const PhoneConnection& m_phone;
    std::function<bool()> m_mayQuit;
    QSystemTrayIcon m_icon;
    QMenu m_menu;
    QAction* m_state = nullptr;
    QAction* m_operation = nullptr;
    QIcon m_connectedIcon;
    QIcon m_waitingIcon;
    QTimer m_tick; // the operations' progress, while the menu or tool tip may show it
};
