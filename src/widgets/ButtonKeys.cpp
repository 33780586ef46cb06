#include "widgets/ButtonKeys.h"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QKeyEvent>
#include <QRadioButton>

namespace {

class EnterPresses final : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() != QEvent::KeyPress)
            return false;
        const auto* key = static_cast<QKeyEvent*>(event);
        if ((key->key() != Qt::Key_Return && key->key() != Qt::Key_Enter)
            || (key->modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier)
            return false;
        auto* button = qobject_cast<QAbstractButton*>(watched);
        // Marks toggle with Space only, as everywhere.
        if (!button || qobject_cast<QCheckBox*>(button) || qobject_cast<QRadioButton*>(button)
            || qobject_cast<QDialog*>(button->window()) || !button->isEnabled() || !button->isVisible())
            return false;
        if (!key->isAutoRepeat())
            button->animateClick();
        return true;
    }
};

} // namespace

void pressButtonsOnEnter()
{
    static EnterPresses* installed = nullptr;
    if (installed || !qApp)
        return;
    installed = new EnterPresses(qApp);
    qApp->installEventFilter(installed);
}
