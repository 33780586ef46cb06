#include "screens/PairingRequestBar.h"

#include "app/Session.h"
#include "app/Texts.h"
#include "pairing/PhoneConnection.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QString requestText(const PendingPairing& pending)
{
    const PairingMessage& message = pending.message;
    QString name = Texts::deviceName(message.mobileDeviceName);
    if (name.isEmpty()) {
        //: Pairing bar: stands for the name of a phone that sent none
        //% "A phone without a name"
        name = qtTrId("pairingRequestUnnamed");
    }
    QString text;
    if (message.email) {
        //: Pairing bar: a phone sent a pairing message. %1 is its name, %2 the address it came from, %3 the
        //: e-mail of its user.
        //% "%1 (%2, %3) wants to pair with this computer"
        text = qtTrId("pairingRequestTextEmail").arg(name, pending.peer, *message.email);
    } else {
        //: Pairing bar: a phone sent a pairing message. %1 is its name, %2 the address it came from.
        //% "%1 (%2) wants to pair with this computer"
        text = qtTrId("pairingRequestText").arg(name, pending.peer);
    }
    // The base URL is where group changes would go: the user sees it when it is not the phone.
    const QString host = message.baseURL ? QUrl(*message.baseURL).host() : QString();
    if (!host.isEmpty() && host != pending.peer) {
        //: Pairing bar, second line when the phone's group service is on another host. %1 is that host.
        //% "Its group service is at %1"
        text += u'\n' + qtTrId("pairingRequestServiceHost").arg(host);
    }
    return text;
}

} // namespace

PairingRequestBar::PairingRequestBar(PhoneConnection& phone, QWidget* parent)
    : QFrame(parent)
    , m_phone(phone)
    , messageLabel(new QLabel(this))
    , moreLabel(new QLabel(this))
    , acceptButton(new QPushButton(this))
    , ignoreButton(new QPushButton(this))
{
    setObjectName(QStringLiteral("PairingRequestBar"));
    messageLabel->setObjectName(QStringLiteral("pairingRequestMessage"));
    acceptButton->setObjectName(QStringLiteral("pairingAccept"));
    ignoreButton->setObjectName(QStringLiteral("pairingIgnore"));
    // The bar is white whatever the system's colours, so its text and buttons carry their own
    // colours too (a dark desktop would otherwise give light text on white).
    setStyleSheet(
        QStringLiteral("#PairingRequestBar { background: white; border-radius: 10px; }"
                       "#PairingRequestBar QLabel { color: rgb(45,45,45); }"
                       "#PairingRequestBar QLabel#moreRequests { color: rgb(90,90,90); }"
                       "#PairingRequestBar QPushButton { color: rgb(45,45,45); background: rgb(238,238,238);"
                       " border: 1px solid rgb(200,200,200); border-radius: 6px; padding: 5px 14px; }"
                       "#PairingRequestBar QPushButton:hover { background: rgb(228,228,228); }"
                       "#PairingRequestBar QPushButton:focus { border: 2px solid rgb(150,100,0); }"));
    messageLabel->setTextFormat(Qt::PlainText);
    messageLabel->setWordWrap(true);
    moreLabel->setObjectName(QStringLiteral("moreRequests"));
    moreLabel->setTextFormat(Qt::PlainText);
    //: Pairing bar: keep things as they are
    //% "Ignore"
    ignoreButton->setText(qtTrId("pairingRequestIgnore"));
    ignoreButton->setAccessibleName(ignoreButton->text());
    for (QPushButton* button : { acceptButton, ignoreButton })
        button->setAutoDefault(false);

    auto* texts = new QVBoxLayout;
    texts->setSpacing(2);
    texts->addWidget(messageLabel);
    texts->addWidget(moreLabel);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 12, 8);
    layout->addLayout(texts, 1);
    layout->addWidget(acceptButton);
    layout->addWidget(ignoreButton);

    // The buttons act on the request shown, whatever arrived since.
    connect(acceptButton, &QPushButton::clicked, this, [this] { m_phone.acceptPending(m_pendingId); });
    connect(ignoreButton, &QPushButton::clicked, this, [this] { m_phone.ignorePending(m_pendingId); });
    connect(&phone, &PhoneConnection::pendingChanged, this, &PairingRequestBar::refresh);
    connect(&phone.session(), &Session::phoneConnectedChanged, this, &PairingRequestBar::refresh);
    setTabOrder(acceptButton, ignoreButton);
    refresh();
}

QWidget* PairingRequestBar::lastControl() const
{
    return ignoreButton;
}

void PairingRequestBar::refresh()
{
    const auto pending = m_phone.pending();
    if (!pending) {
        m_pendingId = 0;
        hide();
        return;
    }
    m_pendingId = pending->id;
    messageLabel->setText(requestText(*pending));
    const int more = m_phone.waitingBehind();
    if (more == 1) {
        //: Pairing bar: one more phone asks to pair after this one
        //% "1 more request"
        moreLabel->setText(qtTrId("pairingOneMoreRequest"));
    } else {
        //: Pairing bar: more phones ask to pair after this one. %1 is how many (2 or more).
        //% "%1 more requests"
        moreLabel->setText(qtTrId("pairingMoreRequests").arg(more));
    }
    moreLabel->setVisible(more > 0);
    if (m_phone.session().isPhoneConnected()) {
        //: Pairing bar while a phone is connected: use the phone that asks instead
        //% "Switch"
        acceptButton->setText(qtTrId("pairingRequestSwitch"));
    } else {
        //: Pairing bar on the pairing screen: accept the phone that asks
        //% "Pair"
        acceptButton->setText(qtTrId("pairingRequestPair"));
    }
    acceptButton->setAccessibleName(acceptButton->text());
    setAccessibleName(messageLabel->text());
    show();
}
