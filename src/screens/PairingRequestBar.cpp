#include "screens/PairingRequestBar.h"

#include "pairing/PairingGate.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace {

// A phone's name is text from the network: drop control and formatting characters (line
// breaks, bidirectional overrides) and keep it short, so it cannot disguise the message.
QString displayName(const QString& name)
{
    QString shown;
    for (QChar c : name) {
        if (c.category() != QChar::Other_Control && c.category() != QChar::Other_Format)
            shown += c;
    }
    constexpr qsizetype longest = 40;
    if (shown.size() > longest)
        shown = shown.left(longest - 1) + u'…';
    return shown;
}

} // namespace

PairingRequestBar::PairingRequestBar(QWidget* parent)
    : QFrame(parent)
    , messageLabel(new QLabel(this))
    , switchButton(new QPushButton(this))
    , ignoreButton(new QPushButton(this))
{
    setObjectName(QStringLiteral("PairingRequestBar"));
    // The bar is white whatever the system's colours, so its text and buttons carry their own
    // colours too (a dark desktop would otherwise give light text on white).
    setStyleSheet(
        QStringLiteral("#PairingRequestBar { background: white; border-radius: 10px; }"
                       "#PairingRequestBar QLabel { color: rgb(45,45,45); }"
                       "#PairingRequestBar QPushButton { color: rgb(45,45,45); background: rgb(238,238,238);"
                       " border: 1px solid rgb(200,200,200); border-radius: 6px; padding: 5px 14px; }"
                       "#PairingRequestBar QPushButton:hover { background: rgb(228,228,228); }"
                       "#PairingRequestBar QPushButton:focus { border: 2px solid rgb(150,100,0); }"));
    messageLabel->setTextFormat(Qt::PlainText);
    messageLabel->setWordWrap(true);
    //: Main window bar: switch to the phone that asks to pair
    //% "Switch"
    switchButton->setText(qtTrId("pairingRequestSwitch"));
    //: Main window bar: keep the current phone
    //% "Ignore"
    ignoreButton->setText(qtTrId("pairingRequestIgnore"));
    for (QPushButton* button : { switchButton, ignoreButton }) {
        button->setAutoDefault(false);
        button->setAccessibleName(button->text());
    }

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 12, 8);
    layout->addWidget(messageLabel, 1);
    layout->addWidget(switchButton);
    layout->addWidget(ignoreButton);

    connect(switchButton, &QPushButton::clicked, this,
        [this] { PairingGate::instance().acceptPending(m_pendingId); });
    connect(ignoreButton, &QPushButton::clicked, this,
        [this] { PairingGate::instance().ignorePending(m_pendingId); });
    connect(&PairingGate::instance(), &PairingGate::pendingChanged, this, &PairingRequestBar::refresh);
    refresh();
}

void PairingRequestBar::refresh()
{
    const auto pending = PairingGate::instance().pending();
    if (!pending) {
        m_pendingId = 0;
        hide();
        return;
    }
    m_pendingId = pending->id;
    //: Main window bar: another phone sent a pairing message. %1 is its name, %2 its address.
    //% "%1 (%2) wants to pair with this computer"
    messageLabel->setText(qtTrId("pairingRequestText")
                              .arg(displayName(pending->message.mobileDeviceName), pending->message.ip));
    setAccessibleName(messageLabel->text());
    show();
}
