#include "screens/AboutViewController.h"

#include "app/Texts.h"
#include "desktop/Autostart.h"
#include "pairing/PhoneConnection.h"
#include "widgets/Colors.h"
#include "widgets/Dialogs.h"
#include "widgets/RoundedPanel.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QSvgWidget>
#include <QVBoxLayout>

AboutViewController::AboutViewController(const PhoneConnection& phone, QWidget* parent)
    : QWidget(parent)
    , m_phone(phone)
    , version(new QLabel(this))
    , versionNum(new QLabel(this))
    , pairedPhone(new QLabel(this))
    , forgetButton(new QPushButton(this))
    , startAtLogin(new QCheckBox(this))
{
    setObjectName(QStringLiteral("AboutViewController"));
    version->setObjectName(QStringLiteral("version"));
    versionNum->setObjectName(QStringLiteral("versionNum"));
    pairedPhone->setObjectName(QStringLiteral("pairedPhone"));
    forgetButton->setObjectName(QStringLiteral("forgetButton"));
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
    muted.setColor(QPalette::WindowText, Colors::scheme().muted);
    blurb->setPalette(muted);

    pairedPhone->setTextFormat(Qt::PlainText); // the name comes from the network
    pairedPhone->setAlignment(Qt::AlignCenter);
    pairedPhone->setWordWrap(true);
    pairedPhone->setFixedWidth(460);
    //: About screen: stop trusting the paired phone and show the pairing screen again
    //% "Forget this phone"
    forgetButton->setText(qtTrId("aboutForgetPhone"));
    forgetButton->setAccessibleName(forgetButton->text());
    forgetButton->setAutoDefault(false);
    forgetButton->setStyleSheet(amberButtonStyle());
    forgetButton->setCursor(Qt::PointingHandCursor);
    connect(forgetButton, &QPushButton::clicked, this, &AboutViewController::confirmForget);
    connect(&phone, &PhoneConnection::pairingApplied, this, &AboutViewController::showPairedPhone);
    showPairedPhone();

    startAtLogin->setObjectName(QStringLiteral("startAtLogin"));
    //: About screen: opt-in to start the program hidden when the user logs in
    //% "Start at login, in the background"
    startAtLogin->setText(qtTrId("aboutStartAtLogin"));
    startAtLogin->setChecked(Autostart::isEnabled());
    connect(startAtLogin, &QCheckBox::toggled, this, [this](bool on) {
        // What is on disk decides: a folder that cannot be written leaves the box as it was.
        if (!Autostart::setEnabled(on, QCoreApplication::applicationFilePath()))
            startAtLogin->setChecked(Autostart::isEnabled());
    });

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
    layout->addWidget(forgetButton, 0, Qt::AlignHCenter);
    layout->addSpacing(12);
    layout->addWidget(startAtLogin, 0, Qt::AlignHCenter);
    layout->addStretch();
}

void AboutViewController::showPairedPhone()
{
    const auto trusted = m_phone.trustedPhone();
    if (!trusted) {
        pairedPhone->clear();
        return;
    }
    const QString name = Texts::deviceName(trusted->name);
    if (trusted->email.isEmpty()) {
        //: About screen: the phone this computer trusts. %1 is its name, %2 its address.
        //% "Paired with %1 (%2)"
        pairedPhone->setText(qtTrId("aboutPairedWith").arg(name, trusted->address));
    } else {
        //: About screen: the phone this computer trusts. %1 is its name, %2 its address, %3 the e-mail of its user.
        //% "Paired with %1 (%2, %3)"
        pairedPhone->setText(qtTrId("aboutPairedWithEmail").arg(name, trusted->address, trusted->email));
    }
    pairedPhone->setAccessibleName(pairedPhone->text());
}

void AboutViewController::confirmForget()
{
    const auto trusted = m_phone.trustedPhone();
    const QString name = trusted ? Texts::deviceName(trusted->name) : QString();
    //: Title of the question before forgetting the paired phone. %1 is its name.
    //% "Forget %1?"
    const QString title = qtTrId("forgetPhoneTitle").arg(name);
    //: Question before forgetting the paired phone
    //% "This computer will no longer connect to it by itself, and the next phone that scans the code asks to pair. The files in your lists stay."
    const QString message = qtTrId("forgetPhoneQuestion");
    //: Button that forgets the paired phone
    //% "Forget"
    const QStringList buttons { qtTrId("forgetPhoneButton"), Dialogs::cancelText() };
    const QPointer<AboutViewController> self(this);
    const int answer = Dialogs::current().ask(window(), title, message, buttons, Dialogs::Style::Warning);
    if (self && answer == 0)
        Q_EMIT forgetRequested();
}

void AboutViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    showPairedPhone();
}
