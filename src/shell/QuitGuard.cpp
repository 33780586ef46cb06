#include "shell/QuitGuard.h"

#include "operations/OperationRun.h"
#include "widgets/Dialogs.h"

#include <QCloseEvent>
#include <QShortcut>
#include <QWidget>
#include <algorithm>

QuitGuard::QuitGuard(QWidget* window)
    : QObject(window)
    , m_window(window)
{
    window->installEventFilter(this);
    // The desktop's own Quit key where its theme names one, Ctrl+Q everywhere else.
    const QKeySequence standard(QKeySequence::Quit);
    auto* quit = new QShortcut(standard.isEmpty() ? QKeySequence(Qt::CTRL | Qt::Key_Q) : standard, window);
    connect(quit, &QShortcut::activated, window, [this] { m_quit ? m_quit() : void(m_window->close()); });
}

bool QuitGuard::confirmQuit(QWidget* window)
{
    // Any operation counts: a screen's, or one a command or the session bus started.
    const QList<OperationRun*> runs = OperationRun::running();
    if (std::none_of(runs.begin(), runs.end(), [](const OperationRun* run) { return run->isRunning(); }))
        return true;
    //: Dialog title when the user quits while the phone works on files
    //% "An operation is still running"
    const QString title = qtTrId("quitWhileRunningTitle");
    //: Dialog description when the user quits while the phone works on files
    //% "Quitting now cancels it. Your files stay as they are."
    const QString message = qtTrId("quitWhileRunningDescription");
    //: Button of the dialog when quitting while an operation runs: quit and cancel it
    //% "Quit"
    const QString quit = qtTrId("quitWhileRunningQuit");
    //: Button of the dialog when quitting while an operation runs: go on with it
    //% "Keep running"
    const QString keep = qtTrId("quitWhileRunningKeep");
    // The safe choice comes first, so Enter and Escape keep the operation.
    return Dialogs::current().ask(window, title, message, { keep, quit }, Dialogs::Style::Warning) == 1;
}

bool QuitGuard::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_window && event->type() == QEvent::Close && !confirmQuit(m_window)) {
        event->ignore();
        return true;
    }
    return QObject::eventFilter(watched, event);
}
