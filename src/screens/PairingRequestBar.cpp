#include "screens/PairingRequestBar.h"

#include "app/Session.h"
#include "app/Texts.h"
#include "pairing/PhoneConnection.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QString quotedName(const PairingMessage& message)
{
    const QString name = Texts::deviceName(message.mobileDeviceName);
    if (name.isEmpty()) {
        //: Pairing bar: stands for the name of a device that sent none
        //% "no name"
        return qtTrId("pairingRequestNoName");
    }
    //: Pairing bar: a device's name as it gives it, quoted so that nothing in it runs into the facts around it
    //% "“%1”"
    return qtTrId("pairingQuotedName").arg(name);
}

QString emailText(const PairingMessage& message)
{
    //: Pairing bar: the device sent no e-mail
    //% "no e-mail"
    return message.email ? *message.email : qtTrId("pairingRequestNoEmail");
}

// What the desktop knows of the request itself: where it came from, for whom, and where its
// group service is when that is another host.
QString factsOf(const PendingPairing& request)
{
    //: Pairing bar: facts the desktop itself knows about the request. %1 is the address the message came from, %2 the e-mail (or "no e-mail").
    //% "Sent from %1 · E-mail: %2"
    QString facts = qtTrId("pairingRequestFacts").arg(request.peer, emailText(request.message));
    const QString host = request.message.baseURL ? QUrl(*request.message.baseURL).host() : QString();
    if (!host.isEmpty() && host != request.peer) {
        //: Pairing bar, after the facts, when the device's group service is on another host. %1 is that host.
        //% "Group service at %1"
        facts += u" · " + qtTrId("pairingRequestServiceHost").arg(host);
    }
    return facts;
}

QStringList marksOf(const PhoneConnection& phone, const PendingPairing& request)
{
    const Resemblance alike = phone.resemblance(request);
    QStringList marks;
    if (alike.claimsTrusted) {
        const auto trusted = phone.trustedPhone();
        //: Pairing bar: the request carries the paired phone's e-mail from another address. %1 is the paired phone's name, %2 its address, %3 the address this request came from.
        //% "It carries the e-mail of your paired phone %1, which answers at %2; this request comes from %3."
        marks.append(qtTrId("pairingClaimsTrusted")
                         .arg(Texts::deviceName(trusted ? trusted->name : QString()),
                             trusted ? trusted->address : QString(), request.peer));
    } else if (alike.emailOfTrusted) {
        //: Pairing bar: a mark on a request
        //% "Your paired phone has the same e-mail."
        marks.append(qtTrId("pairingSameEmailTrusted"));
    }
    if (alike.nameOfTrusted) {
        //: Pairing bar: a mark on a request
        //% "Your paired phone has the same name."
        marks.append(qtTrId("pairingSameNameTrusted"));
    }
    if (alike.nameOfAnotherWaiting) {
        //: Pairing bar: a mark on a request
        //% "Another device asking has the same name."
        marks.append(qtTrId("pairingSameNameWaiting"));
    }
    if (alike.emailOfAnotherWaiting) {
        //: Pairing bar: a mark on a request
        //% "Another device asking has the same e-mail."
        marks.append(qtTrId("pairingSameEmailWaiting"));
    }
    return marks;
}

QLabel* textLabel(QWidget* parent, const char* name)
{
    auto* label = new QLabel(parent);
    label->setObjectName(QString::fromLatin1(name));
    label->setTextFormat(Qt::PlainText); // names and e-mails come from the network
    label->setWordWrap(true);
    return label;
}

} // namespace

PairingRequestBar::PairingRequestBar(PhoneConnection& phone, QWidget* parent)
    : QFrame(parent)
    , m_phone(phone)
    , messageLabel(textLabel(this, "pairingRequestMessage"))
    , choice(new QComboBox(this))
    , nameLabel(textLabel(this, "pairingRequestName"))
    , factsLabel(textLabel(this, "pairingRequestFacts"))
    , marksLabel(textLabel(this, "pairingRequestMarks"))
    , reminderLabel(textLabel(this, "pairingRequestReminder"))
    , acceptButton(new QPushButton(this))
    , ignoreButton(new QPushButton(this))
{
    setObjectName(QStringLiteral("PairingRequestBar"));
    choice->setObjectName(QStringLiteral("pairingRequestChoice"));
    acceptButton->setObjectName(QStringLiteral("pairingAccept"));
    ignoreButton->setObjectName(QStringLiteral("pairingIgnore"));
    // The bar is white whatever the system's colours, so its text and buttons carry their own
    // colours too (a dark desktop would otherwise give light text on white).
    setStyleSheet(QStringLiteral(
        "#PairingRequestBar { background: white; border-radius: 10px; }"
        "#PairingRequestBar QLabel { color: rgb(45,45,45); }"
        "#PairingRequestBar QLabel#pairingRequestMarks { color: rgb(160,40,0); }"
        "#PairingRequestBar QLabel#pairingRequestReminder { color: rgb(90,90,90); }"
        "#PairingRequestBar QComboBox, #PairingRequestBar QComboBox QAbstractItemView {"
        " color: rgb(45,45,45); background: white; selection-color: white;"
        " selection-background-color: rgb(150,100,0); }"
        "#PairingRequestBar QComboBox { border: 1px solid rgb(200,200,200); border-radius: 6px;"
        " padding: 3px 8px; }"
        "#PairingRequestBar QPushButton { color: rgb(45,45,45); background: rgb(238,238,238);"
        " border: 1px solid rgb(200,200,200); border-radius: 6px; padding: 5px 14px; }"
        "#PairingRequestBar QPushButton:hover { background: rgb(228,228,228); }"
        "#PairingRequestBar QPushButton:focus, #PairingRequestBar QComboBox:focus {"
        " border: 2px solid rgb(150,100,0); }"));
    QFont bold = nameLabel->font();
    bold.setBold(true);
    nameLabel->setFont(bold);
    //: Accessible name of the choice among several devices asking to pair
    //% "Device to pair with"
    choice->setAccessibleName(qtTrId("pairingChoiceName"));
    //: Pairing bar: what to check before pairing
    //% "Pair only if this name is the one on your phone's own screen."
    reminderLabel->setText(qtTrId("pairingCompareName"));
    //: Pairing bar: keep things as they are
    //% "Ignore"
    ignoreButton->setText(qtTrId("pairingRequestIgnore"));
    ignoreButton->setAccessibleName(ignoreButton->text());
    for (QPushButton* button : { acceptButton, ignoreButton })
        button->setAutoDefault(false);

    auto* texts = new QVBoxLayout;
    texts->setSpacing(3);
    for (QWidget* w : std::initializer_list<QWidget*> {
             messageLabel, choice, nameLabel, factsLabel, marksLabel, reminderLabel })
        texts->addWidget(w);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 12, 8);
    layout->addLayout(texts, 1);
    layout->addWidget(acceptButton);
    layout->addWidget(ignoreButton);

    connect(choice, &QComboBox::activated, this,
        [this](int index) { m_phone.choosePending(choice->itemData(index).toULongLong()); });
    connect(acceptButton, &QPushButton::clicked, this, [this] { answer(true); });
    connect(ignoreButton, &QPushButton::clicked, this, [this] { answer(false); });
    connect(&phone, &PhoneConnection::pendingChanged, this, &PairingRequestBar::refresh);
    connect(&phone.session(), &Session::phoneConnectedChanged, this, &PairingRequestBar::refresh);
    setTabOrder(choice, acceptButton);
    setTabOrder(acceptButton, ignoreButton);
    refresh();
}

QWidget* PairingRequestBar::lastControl() const
{
    return ignoreButton;
}

void PairingRequestBar::answer(bool accept)
{
    // The buttons act on the request shown, and only once it has been seen for a moment.
    if (m_shownSince.elapsed() < settleMilliseconds)
        return;
    if (accept)
        m_phone.acceptPending(m_pendingId);
    else
        m_phone.ignorePending(m_pendingId);
}

void PairingRequestBar::refresh()
{
    const auto pending = m_phone.pending();
    if (!pending) {
        m_pendingId = 0;
        hide();
        return;
    }
    if (std::exchange(m_pendingId, pending->id) != pending->id)
        m_shownSince.start();
    const QList<PendingPairing> waiting = m_phone.waiting();
    if (waiting.size() > 1) {
        //: Pairing bar when several devices ask at once. %1 is how many (2 or more).
        //% "%1 devices ask to pair with this computer at once. Only one can be your phone: choose it."
        messageLabel->setText(qtTrId("pairingRequestSeveral").arg(waiting.size()));
    } else {
        //: Pairing bar when one device asks
        //% "A device asks to pair with this computer."
        messageLabel->setText(qtTrId("pairingRequestOne"));
    }
    {
        const QSignalBlocker block(choice);
        choice->clear();
        for (const PendingPairing& request : waiting) {
            choice->addItem(
                QStringList { quotedName(request.message), request.peer, emailText(request.message) }.join(
                    u" · "),
                request.id);
        }
        choice->setCurrentIndex(choice->findData(pending->id));
    }
    choice->setVisible(waiting.size() > 1);
    //: Pairing bar: the name the device gives itself, apart from what the desktop knows of it. %1 is the quoted name.
    //% "Name it gives itself: %1"
    nameLabel->setText(qtTrId("pairingRequestName").arg(quotedName(pending->message)));
    factsLabel->setText(factsOf(*pending));
    const QStringList marks = marksOf(m_phone, *pending);
    marksLabel->setText(marks.join(u'\n'));
    marksLabel->setVisible(!marks.isEmpty());
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
    setAccessibleName(QStringList { messageLabel->text(), nameLabel->text(), factsLabel->text() }.join(u' '));
    show();
}
