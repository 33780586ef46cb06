#include "screens/AboutViewController.h"

#include "app/Session.h"
#include "pairing/PairingGate.h"
#include "widgets/Colors.h"
#include "widgets/RoundedPanel.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <QSvgWidget>

AboutViewController::AboutViewController(QWidget* parent)
    : QWidget(parent)
    , version(new QLabel(this))
    , versionNum(new QLabel(this))
    , pairedPhone(new QLabel(this))
    , disconnectButton(new QPushButton(this))
{
    setObjectName(QStringLiteral("AboutViewController"));
    auto* logo = new QSvgWidget(QStringLiteral(":/images/varnex.svg"), this);
    logo->setFixedSize(112, 112);
    logo->setAccessibleName(QStringLiteral("Varnex"));

    auto* name = new QLabel(QStringLiteral("Varnex Desktop"), this);
    QFont nameFont = name->font();
    nameFont.setPointSize(22);
    nameFont.setBold(true);
    name->setFont(nameFont);

    //: Version text
    //% "Version"
    version->setText(qtTrId("version"));
    versionNum->setText(QCoreApplication::applicationVersion());
    versionNum->setAccessibleName(version->text());
    auto* versionRow = new QHBoxLayout;
    versionRow->addStretch();
    versionRow->addWidget(version);
    versionRow->addWidget(versionNum);
    versionRow->addStretch();

    //: About screen: what the desktop application does
    //% "Your phone holds your identity and does all encryption and decryption. This application sends it the files you choose and keeps the results in Documents/Varnex."
    auto* blurb = new QLabel(qtTrId("aboutDescription"), this);
    blurb->setWordWrap(true);
    blurb->setAlignment(Qt::AlignCenter);
    blurb->setFixedWidth(460);
    blurb->setMinimumHeight(blurb->heightForWidth(460));
    QPalette muted = blurb->palette();
    muted.setColor(QPalette::WindowText, QColor(90, 90, 90));
    blurb->setPalette(muted);

    pairedPhone->setTextFormat(Qt::PlainText); // the name comes from the network
    pairedPhone->setAlignment(Qt::AlignCenter);
    pairedPhone->setWordWrap(true);
    pairedPhone->setFixedWidth(460);
    //: About screen: forget the paired phone and show the pairing screen again
    //% "Disconnect"
    disconnectButton->setText(qtTrId("aboutDisconnect"));
    disconnectButton->setAccessibleName(disconnectButton->text());
    disconnectButton->setAutoDefault(false);
    disconnectButton->setStyleSheet(amberButtonStyle());
    disconnectButton->setCursor(Qt::PointingHandCursor);
    connect(disconnectButton, &QPushButton::clicked, this, &AboutViewController::disconnectRequested);
    connect(&PairingGate::instance(), &PairingGate::pairingApplied, this, &AboutViewController::showPairedPhone);
    showPairedPhone();

    auto* layout = new QVBoxLayout(this);
    layout->addStretch();
    layout->addWidget(logo, 0, Qt::AlignHCenter);
    layout->addSpacing(12);
    layout->addWidget(name, 0, Qt::AlignHCenter);
    layout->addLayout(versionRow);
    layout->addSpacing(16);
    layout->addWidget(blurb, 0, Qt::AlignHCenter);
    layout->addSpacing(20);
    layout->addWidget(pairedPhone, 0, Qt::AlignHCenter);
    layout->addSpacing(6);
    layout->addWidget(disconnectButton, 0, Qt::AlignHCenter);
    layout->addStretch();
}

void AboutViewController::showPairedPhone()
{
    const Session& session = Session::instance();
    //: About screen: the phone this computer is paired with. %1 is its name, %2 its address.
    //% "Paired with %1 (%2)"
    pairedPhone->setText(qtTrId("aboutPairedWith").arg(session.mobileDeviceName(), session.phoneIPAddress()));
    pairedPhone->setAccessibleName(pairedPhone->text());
}

void AboutViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    showPairedPhone();
}
