#include "shell/AppWindow.h"

#include "app/Session.h"
#include "app/Texts.h"
#include "desktop/SingleInstance.h"
#include "pairing/PhoneConnection.h"
#include "shell/AppServices.h"
#include "shell/MainViewController.h"
#include "shell/ReplacePresentationAnimator.h"
#include "shell/ScreenFactory.h"
#include "widgets/ButtonKeys.h"
#include "widgets/Colors.h"
#include "widgets/ModalDialogs.h"

#include <QApplication>
#include <QIcon>
#include <QVBoxLayout>

AppWindow::AppWindow(AppServices& services, QWidget* parent)
    : QWidget(parent)
    , m_services(services)
    , m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    setWindowTitle(Texts::varnexDesktopNotConnected());
    setWindowIcon(QIcon(QStringLiteral(":/images/varnex.svg")));
    resize(1100, 720);
    // The Encrypt screen's two columns of titles and buttons need this width to show whole.
    setMinimumSize(1100, 640);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Colors::primaryColor);
    setPalette(palette);
    setAutoFillBackground(true);
    pressButtonsOnEnter();
    connect(&services.phone.session(), &Session::phoneReplaced, this, &AppWindow::phoneReplaced);
    connect(&services.phone, &PhoneConnection::stateChanged, this, &AppWindow::phoneStateChanged);
}

void AppWindow::phoneStateChanged()
{
    if (m_services.phone.state() == PhoneConnection::State::Connected) {
        // From the pairing screen; a phone found again while its main window still shows
        // (the loss waited behind a dialog) stays where it is.
        if (m_wanted != m_main || !m_main)
            showMain();
    } else if (m_main && m_wanted == m_main) {
        showPairingWhenNoDialog();
    }
}

void AppWindow::setContent(QWidget* screen)
{
    if (m_content == screen)
        return;
    if (m_content) {
        m_layout->removeWidget(m_content);
        m_content->hide();
        if (m_content != m_main)
            retire(m_content);
    }
    m_content = screen;
    m_wanted = screen;
    if (screen) {
        m_layout->addWidget(screen);
        screen->show();
        // The keyboard goes back where it was on a screen that comes back, else to the screen's
        // first control, with its focus ring showing (on the screen itself nothing shows it).
        QWidget* focus = screen->focusWidget();
        for (QWidget* next = screen; !focus || focus == screen || !focus->isVisibleTo(screen);) {
            next = next->nextInFocusChain();
            if (next == screen || !next) {
                focus = screen;
                break;
            }
            if (screen->isAncestorOf(next) && next->isVisibleTo(screen) && next->isEnabled()
                && (next->focusPolicy() & Qt::TabFocus))
                focus = next;
        }
        focus->setFocus(Qt::TabFocusReason);
    }
    Q_EMIT contentChanged(screen);
}

void AppWindow::retire(QWidget* screen)
{
    if (!ModalDialogs::anyOpen()) {
        screen->deleteLater();
        return;
    }
    // A dialog that opened while the fade ran has this screen's code on its stack: the screen
    // goes once no dialog is open (checked again then, as another may have opened).
    const QPointer<QWidget> guard(screen);
    ModalDialogs::afterAllClosed(this, [this, guard] {
        if (guard && guard != m_content && guard != m_main)
            retire(guard);
    });
}

void AppWindow::present(QWidget* screen)
{
    m_wanted = screen;
    if (screen == m_content)
        return;
    if (!m_content || !isVisible()) {
        setContent(screen);
        return;
    }
    auto* animator = new ReplacePresentationAnimator(this);
    // A phone that blips can ask for two swaps within one fade: only the latest one lands.
    connect(animator, &ReplacePresentationAnimator::swapContent, this, [this](QWidget* incoming) {
        if (incoming == m_wanted)
            setContent(incoming);
        else if (incoming != m_main && incoming != m_content)
            retire(incoming);
    });
    connect(animator, &ReplacePresentationAnimator::finished, animator, &QObject::deleteLater);
    animator->animatePresentation(screen, m_content);
}

void AppWindow::showPairing()
{
    present(ScreenFactory::make(QStringLiteral("qrCode_vc"), m_services));
}

void AppWindow::showMain()
{
    if (!m_main)
        m_main = static_cast<MainViewController*>(ScreenFactory::make(QStringLiteral("main_vc"), m_services));
    present(m_main);
    deliverWaitingFiles();
}

void AppWindow::phoneReplaced()
{
    // The old phone's screens go (once no dialog of theirs is open); a phone connected now
    // gets fresh ones at once.
    QPointer<MainViewController> old = m_main;
    m_main = nullptr;
    // The people and groups were the old phone's; the listed files are the user's and stay.
    if (old) {
        m_waitingFiles = old->intakeFiles() + m_waitingFiles;
        m_waitingMarked = old->intakeFiles(true) + m_waitingMarked;
    }
    if (m_services.phone.session().isPhoneConnected() && old && m_wanted == old)
        showMain();
    if (old && old != m_content && old != m_wanted)
        retire(old);
}

void AppWindow::showPairingWhenNoDialog()
{
    if (!ModalDialogs::anyOpen()) {
        m_pairingPending = false;
        // The phone may have come back while a dialog was open.
        if (!m_services.phone.session().isPhoneConnected() && (!m_wanted || m_wanted == m_main))
            showPairing();
        return;
    }
    if (m_pairingPending)
        return;
    m_pairingPending = true;
    ModalDialogs::afterAllClosed(this, [this] {
        m_pairingPending = false;
        showPairingWhenNoDialog();
    });
}

MainViewController* AppWindow::mainScreen() const
{
    return m_main;
}

void AppWindow::openFiles(const QStringList& paths)
{
    openFiles(paths, paths);
}

void AppWindow::openFiles(const QStringList& paths, const QStringList& marked)
{
    // Before any phone is connected the main screens are made at once, out of sight, so the
    // files wait in their own intake lists until the main window shows.
    if (!m_main) {
        m_main = static_cast<MainViewController*>(ScreenFactory::make(QStringLiteral("main_vc"), m_services));
        m_main->setParent(this);
        m_main->hide();
    }
    m_main->openFiles(paths, marked);
}

void AppWindow::deliverWaitingFiles()
{
    if (m_waitingFiles.isEmpty())
        return;
    // After the swap has begun: a refusal dialog must not hold up the main screens.
    QMetaObject::invokeMethod(
        this,
        [this] {
            const QStringList files = std::exchange(m_waitingFiles, {});
            openFiles(files, std::exchange(m_waitingMarked, {}));
        },
        Qt::QueuedConnection);
}

void AppWindow::takeHandOvers(SingleInstance& instance)
{
    connect(&instance, &SingleInstance::filesHandedOver, this, [this](const QStringList& paths) {
        if (!paths.isEmpty())
            openFiles(paths);
        bringForward();
    });
}

void AppWindow::bringForward()
{
    if (isMinimized())
        showNormal();
    show();
    raise();
    activateWindow();
    // Where the window manager refuses focus to a window that did not ask through the user,
    // the task bar at least marks it.
    if (!isActiveWindow())
        QApplication::alert(this);
}
