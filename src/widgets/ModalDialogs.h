#pragma once

#include <QObject>

#include <functional>

// Counts the modal dialogs that are open. Each runs a nested event loop on the stack of the
// code that opened it, so whatever would delete that code's screen (the swap back to pairing
// when the phone leaves) waits until none is open.
class ModalDialogs : public QObject
{
    Q_OBJECT

public:
    static ModalDialogs& instance();
    static bool anyOpen() { return instance().m_open > 0; }
    // Runs `then` once the last open dialog has closed and its stack has unwound (queued, so
    // callers check anyOpen() again: another dialog may have opened by then).
    static void afterAllClosed(QObject* context, std::function<void()> then);

    // Marks one dialog open for as long as it lives.
    class Scope
    {
    public:
        Scope();
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };

Q_SIGNALS:
    // The last open dialog closed.
    void allClosed();

private:
    ModalDialogs() = default;
    int m_open = 0;
};
