#include "widgets/ShortcutTip.h"

#include <QAbstractButton>

void showShortcutInToolTip(QAbstractButton* button)
{
    const QString key = button->shortcut().toString(QKeySequence::NativeText);
    if (key.isEmpty())
        return;
    const QString tip = button->toolTip().isEmpty() ? button->accessibleName() : button->toolTip();
    button->setToolTip(tip + QStringLiteral(" (") + key + u')');
}
