#pragma once

#include <QObject>

#include <functional>

class QWidget;

// Quitting (Ctrl+Q, or closing the window) while an operation runs asks first: quitting
// cancels the operation. Watches the window it is made for and gives it the Quit shortcut.
class QuitGuard : public QObject
{
    Q_OBJECT

public:
    explicit QuitGuard(QWidget* window);

    // What the Quit shortcut does instead of closing the window (with a tray icon, closing only
    // hides it).
    void setQuit(std::function<void()> quit) { m_quit = std::move(quit); }

    // True when the window may close now: no operation runs, or the user chose to quit.
    static bool confirmQuit(QWidget* window);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* m_window;
    std::function<void()> m_quit;
};
