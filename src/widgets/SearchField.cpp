#include "widgets/SearchField.h"

#include <QFocusEvent>
#include <QTimer>

SearchField::SearchField(QWidget* parent)
    : QLineEdit(parent)
{
}

void SearchField::focusInEvent(QFocusEvent* event)
{
    const Qt::FocusReason reason = event->reason();
    if (reason != Qt::TabFocusReason && reason != Qt::BacktabFocusReason
        && reason != Qt::ShortcutFocusReason) {
        QLineEdit::focusInEvent(event);
        return;
    }
    // The focus is told when this returns; the selection follows from the event loop.
    QFocusEvent plain(QEvent::FocusIn, Qt::OtherFocusReason);
    QLineEdit::focusInEvent(&plain);
    QTimer::singleShot(0, this, [this] {
        if (hasFocus() && !hasSelectedText())
            selectAll();
    });
}
