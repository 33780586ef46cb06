#pragma once

#include <QObject>

// Counts the modal dialogs that are open. Each runs a nested event loop on the stack of the
// code that opened it, so whatever would delete that code's screen (the swap back to pairing
// when the phone leaves) waits until none is open.
class ModalDialogs : public QObject
{
    Q_OBJECT

public:
    static ModalDialogs& instance();
    static bool anyOpen() { return instance().m_open > 0; }

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
