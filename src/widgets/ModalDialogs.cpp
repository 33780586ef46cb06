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

void ModalDialogs::afterAllClosed(QObject* context, std::function<void()> then)
{
    connect(&instance(), &ModalDialogs::allClosed, context, std::move(then),
        static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::SingleShotConnection));
}
