#include "widgets/ModalDialogs.h"

ModalDialogs& ModalDialogs::instance()
{
    static ModalDialogs dialogs;
    return dialogs;
}

ModalDialogs::Scope::Scope()
{
    ++instance().m_open;
}

ModalDialogs::Scope::~Scope()
{
    if (--instance().m_open == 0)
        Q_EMIT instance().allClosed();
}
