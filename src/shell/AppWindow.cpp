#include "shell/AppWindow.h"

#include "app/Session.h"
#include "app/Texts.h"
#include "screens/QRCodeViewController.h"
#include "shell/MainViewController.h"
#include "shell/ReplacePresentationAnimator.h"
#include "shell/ScreenFactory.h"
#include "widgets/Colors.h"
#include "widgets/ModalDialogs.h"

#include <QIcon>
#include <QVBoxLayout>

AppWindow::AppWindow(QWidget* parent)
    : QWidget(parent)
    , m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    setWindowTitle(Texts::varnexDesktopNotConnected());
    setWindowIcon(QIcon(QStringLiteral(":/images/varnex.svg")));
    resize(1100, 720);
    setMinimumSize(980, 640);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Colors::primaryColor);
    setPalette(palette);
    setAutoFillBackground(true);
    connect(&Session::instance(), &Session::phoneReplaced, this, [this] {
        if (m_main)
            showMain();
    });
}

void AppWindow::setContent(QWidget* screen)
{
    if (m_content == screen)
        return;
    if (m_content) {
        m_layout->removeWidget(m_content);
        m_content->hide();
        retire(m_content);
    }
    m_content = screen;
    if (screen) {
        m_layout->addWidget(screen);
        screen->show();
        screen->setFocus();
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
        if (guard)
            retire(guard);
    });
}

void AppWindow::present(QWidget* screen)
{
    if (!m_content || !isVisible()) {
        setContent(screen);
        return;
    }
    auto* animator = new ReplacePresentationAnimator(this);
    connect(animator, &ReplacePresentationAnimator::swapContent, this, &AppWindow::setContent);
    connect(animator, &ReplacePresentationAnimator::finished, animator, &QObject::deleteLater);
    animator->animatePresentation(screen, m_content);
}

void AppWindow::showPairing()
{
    m_main = nullptr;
    auto* pairing = static_cast<QRCodeViewController*>(ScreenFactory::make(QStringLiteral("qrCode_vc")));
    connect(pairing, &QRCodeViewController::pairingAccepted, this, &AppWindow::showMain);
    present(pairing);
}

void AppWindow::showMain()
{
    auto* main = static_cast<MainViewController*>(ScreenFactory::make(QStringLiteral("main_vc")));
    m_main = main;
    // A replaced main window lives on while its dialogs close; only the current one may lead
    // back to pairing.
    connect(main, &MainViewController::connectionLost, this, [this, main] {
        if (m_main == main)
            showPairingWhenNoDialog();
    });
    present(main);
    deliverWaitingFiles();
}

void AppWindow::showPairingWhenNoDialog()
{
    if (!ModalDialogs::anyOpen()) {
        m_pairingPending = false;
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

void AppWindow::openFiles(const QStringList& paths)
{
    if (auto* main = qobject_cast<MainViewController*>(m_main.data())) {
        main->openFiles(paths);
        return;
    }
    m_waitingFiles.append(paths);
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
            openFiles(files);
        },
        Qt::QueuedConnection);
}
