#include "tray/TrayIcon.h"

#include "app/Settings.h"
#include "app/Texts.h"
#include "operations/OperationRun.h"
#include "pairing/PhoneConnection.h"

#include <QApplication>
#include <QCloseEvent>
#include <QWidget>

bool TrayIcon::isAvailable()
{
    return QSystemTrayIcon::isSystemTrayAvailable();
}

TrayIcon::TrayIcon(
    QWidget& window, const PhoneConnection& phone, std::function<bool()> mayQuit, QObject* parent)
    : QObject(parent)
    , m_window(window)
    , m_phone(phone)
    , m_mayQuit(std::move(mayQuit))
{
    const QIcon logo(QStringLiteral(":/images/varnex.svg"));
    m_connectedIcon = logo;
    // Greyed while no phone answers: the state shows at a glance.
    m_waitingIcon = QIcon(logo.pixmap(64, QIcon::Disabled));
    m_state = m_menu.addAction(QString());
    m_state->setEnabled(false);
    m_operation = m_menu.addAction(QString());
    m_operation->setEnabled(false);
    m_menu.addSeparator();
    //: Tray menu: brings the window forward
    //% "Show Varnex Desktop"
    connect(m_menu.addAction(qtTrId("trayShow")), &QAction::triggered, this, &TrayIcon::show);
    //: Tray menu: quits the program
    //% "Quit"
    connect(m_menu.addAction(qtTrId("trayQuit")), &QAction::triggered, this, &TrayIcon::quit);
    m_icon.setContextMenu(&m_menu);
    connect(&m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
            show();
    });
    connect(&phone, &PhoneConnection::stateChanged, this, &TrayIcon::update);
    connect(&phone, &PhoneConnection::pairingApplied, this, &TrayIcon::update);
    m_tick.setInterval(1000);
    connect(&m_tick, &QTimer::timeout, this, &TrayIcon::update);
    m_tick.start();
    window.installEventFilter(this);
    update();
    m_icon.show();
}

QString TrayIcon::stateText() const
{
    const auto trusted = m_phone.trustedPhone();
    const QString name = Texts::deviceName(trusted ? trusted->name : QString());
    switch (m_phone.state()) {
    case PhoneConnection::State::Connected:
        //: Tray tool tip and menu: the phone is connected; %1 is its name
        //% "Connected to %1"
        return qtTrId("trayConnected").arg(name);
    case PhoneConnection::State::Seeking:
        //: Tray tool tip and menu: looking for the trusted phone; %1 is its name
        //% "Looking for %1…"
        return qtTrId("traySeeking").arg(name);
    case PhoneConnection::State::Lost:
        //: Tray tool tip and menu: the trusted phone stopped answering; %1 is its name
        //% "Lost contact with %1"
        return qtTrId("trayLost").arg(name);
    case PhoneConnection::State::NoPhone:
        break;
    }
    //: Tray tool tip and menu: no phone is paired
    //% "No phone paired"
    return qtTrId("trayNoPhone");
}

QString TrayIcon::operationText() const
{
    const QList<OperationRun*> runs = OperationRun::running();
    if (runs.isEmpty())
        return {};
    const OperationRun* run = runs.first();
    QString text = run->encrypts()
        //: Tray tool tip and menu while an encryption runs; %1 is how many files, %2 its stage
        //% "Encrypting %1 file(s): %2"
        ? qtTrId("trayEncrypting").arg(run->fileCount()).arg(run->stageText())
        //: Tray tool tip and menu while a decryption runs; %1 is how many files, %2 its stage
        //% "Decrypting %1 file(s): %2"
        : qtTrId("trayDecrypting").arg(run->fileCount()).arg(run->stageText());
    if (runs.size() > 1)
        text += QStringLiteral(" (+%1)").arg(runs.size() - 1);
    return text;
}

void TrayIcon::update()
{
    const QString state = stateText();
    const QString operation = operationText();
    m_state->setText(state);
    m_operation->setText(operation);
    m_operation->setVisible(!operation.isEmpty());
    m_icon.setToolTip(operation.isEmpty() ? state : state + u'\n' + operation);
    m_icon.setIcon(m_phone.state() == PhoneConnection::State::Connected ? m_connectedIcon : m_waitingIcon);
}

void TrayIcon::show()
{
    if (m_window.isMinimized())
        m_window.showNormal();
    m_window.show();
    m_window.raise();
    m_window.activateWindow();
}

void TrayIcon::quit()
{
    if (!m_mayQuit || m_mayQuit())
        QCoreApplication::quit();
}

bool TrayIcon::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != &m_window || event->type() != QEvent::Close)
        return QObject::eventFilter(watched, event);
    // The window goes, the program stays in the tray (quitting is the menu's, and Ctrl+Q's).
    event->ignore();
    m_window.hide();
    if (!Settings::open()->value(QString::fromLatin1(closeNoticeKey)).toBool()) {
        Settings::open()->setValue(QString::fromLatin1(closeNoticeKey), true);
        Settings::protectFile();
        //: Tray message the first time the window is closed while the tray icon shows
        //% "Varnex Desktop keeps running here, so your phone stays connected. Quit it from this icon's menu."
        m_icon.showMessage(
            QStringLiteral("Varnex Desktop"), qtTrId("trayStillRunning"), QSystemTrayIcon::Information, 8000);
    }
    return true;
}
