#include "screens/QRCodeViewController.h"

#include "app/Session.h"
#include "app/Settings.h"
#include "app/Texts.h"
#include "pairing/AddressFinder.h"
#include "pairing/PhoneConnection.h"
#include "screens/PairingRequestBar.h"
#include "screens/ScreensLog.h"
#include "widgets/Colors.h"
#include "widgets/RoundedPanel.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QGraphicsDropShadowEffect>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QVBoxLayout>

namespace {

constexpr auto preferredAddressKey = "preferredPairingAddress";

QRCodeViewController::AddressSource& addressSource()
{
    static QRCodeViewController::AddressSource source;
    return source;
}

QStringList systemCandidates()
{
#ifdef Q_OS_MACOS
    return AddressFinder::candidateAddresses(AddressFinder::systemInterfaces(), true);
#else
    return AddressFinder::candidateAddresses(AddressFinder::systemInterfaces(), false);
#endif
}

QString cannotFindIP()
{
    //: Text when ip address is not found
    //% "Cannot find IP address"
    return qtTrId("cannotFindIP");
}

QString noLocalAddress()
{
    //: Shown in place of the pairing code when this computer has addresses but none on a local network
    //% "This computer has no local network address. Connect it to the same Wi-Fi network as your phone."
    return qtTrId("noLocalAddress");
}

QLabel* inkLabel(QWidget* parent, int pointSize, bool bold)
{
    auto* label = new QLabel(parent);
    QFont font = label->font();
    font.setPointSize(pointSize);
    font.setBold(bold);
    label->setFont(font);
    label->setStyleSheet(QStringLiteral("color: rgb(45,45,45);")); // white on the amber would not read
    label->setWordWrap(true);
    return label;
}

} // namespace

void QRCodeViewController::setAddressSourceForTesting(AddressSource source)
{
    addressSource() = std::move(source);
}

QRCodeViewController::QRCodeViewController(PhoneConnection& phone, QWidget* parent)
    : QWidget(parent)
    , m_phone(phone)
{
    setObjectName(QStringLiteral("qrCode_vc"));
    viewDidLoad();
}

void QRCodeViewController::viewDidLoad()
{
    toUseVarnex = inkLabel(this, 22, true);
    openVarnex = inkLabel(this, 15, false);
    tapMenu = inkLabel(this, 15, false);
    pointPhone = inkLabel(this, 15, false);
    //: QRCode window instructions title
    //% "TO USE VARNEX ON YOUR COMPUTER:"
    toUseVarnex->setText(qtTrId("usage"));
    //: First instruction
    //% "1. Open Varnex on your phone"
    openVarnex->setText(qtTrId("openVarnexOnPhone"));
    //: Second instruction
    //% "2. Tap Menu and open QR code"
    tapMenu->setText(qtTrId("tapMenu"));
    //: Third instruction
    //% "3. Point your phone to this screen to capture the code"
    pointPhone->setText(qtTrId("pointPhone"));

    auto* instructions = new QVBoxLayout;
    instructions->setSpacing(18);
    instructions->addStretch();
    instructions->addWidget(toUseVarnex);
    instructions->addSpacing(8);
    instructions->addWidget(openVarnex);
    instructions->addWidget(tapMenu);
    instructions->addWidget(pointPhone);
    instructions->addStretch();

    auto* box = new RoundedPanel(Qt::white, 35, RoundedPanel::AllCorners, this);
    qrCodeWhiteBackground = box;
    box->setObjectName(QStringLiteral("qrCodeWhiteBackground"));
    box->setPalette(Colors::lightPalette(box->palette()));
    auto* shadow = new QGraphicsDropShadowEffect(box);
    shadow->setBlurRadius(12);
    shadow->setOffset(0, 0);
    shadow->setColor(QColor(0, 0, 0, 102));
    box->setGraphicsEffect(shadow);
    box->setMinimumWidth(420);
    box->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);

    QRCodeView = new QWidget(box);
    qrCodeImage = new QLabel(QRCodeView);
    qrCodeImage->setObjectName(QStringLiteral("qrCodeImage"));
    qrCodeImage->setAlignment(Qt::AlignCenter);
    qrCodeImage->setMinimumSize(300, 300);
    //: Accessible name of the pairing QR code
    //% "Pairing QR code"
    qrCodeImage->setAccessibleName(qtTrId("pairingCodeName"));
    auto* codeLayout = new QVBoxLayout(QRCodeView);
    codeLayout->setContentsMargins(0, 0, 0, 0);
    codeLayout->addWidget(qrCodeImage);

    ipAdressLabel = new QLabel(box);
    ipAdressLabel->setObjectName(QStringLiteral("ipAdressLabel"));
    ipAdressLabel->setAlignment(Qt::AlignCenter);
    ipAdressLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont addressFont = ipAdressLabel->font();
    addressFont.setPointSize(17);
    addressFont.setBold(true);
    ipAdressLabel->setFont(addressFont);
    ipAdressLabel->setStyleSheet(QStringLiteral("color: rgb(60,60,60);"));
    //: Accessible name of the computer's address on the pairing screen
    //% "Computer address"
    ipAdressLabel->setAccessibleName(qtTrId("computerAddressName"));

    m_selector = new QComboBox(box);
    //: Accessible name of the choice of address on the pairing screen
    //% "Address shown in the code"
    m_selector->setAccessibleName(qtTrId("addressChoiceName"));
    //: Tool tip of the choice of address on the pairing screen
    //% "This computer has several network addresses: choose the one your phone can reach"
    m_selector->setToolTip(qtTrId("addressChoiceTip"));
    m_selector->hide();
    connect(m_selector, &QComboBox::activated, this, &QRCodeViewController::chooseAddress);

    auto* boxLayout = new QVBoxLayout(box);
    boxLayout->setContentsMargins(30, 30, 30, 26);
    boxLayout->setSpacing(10);
    boxLayout->addWidget(QRCodeView, 1);
    boxLayout->addWidget(ipAdressLabel);
    boxLayout->addWidget(m_selector, 0, Qt::AlignHCenter);

    contactLabel = new QLabel(this);
    contactLabel->setObjectName(QStringLiteral("contactLabel"));
    contactLabel->setTextFormat(Qt::PlainText); // the name comes from the network
    contactLabel->setWordWrap(true);
    contactLabel->setStyleSheet(QStringLiteral(
        "#contactLabel { background: white; color: rgb(45,45,45); border-radius: 10px; padding: 10px 16px;"
        " font-size: 15px; }"));
    contactLabel->hide();
    pairingRequestBar = new PairingRequestBar(m_phone, this);

    auto* row = new QHBoxLayout;
    row->setContentsMargins(70, 30, 70, 60);
    row->setSpacing(50);
    row->addLayout(instructions, 1);
    row->addWidget(box, 0, Qt::AlignVCenter);
    auto* page = new QVBoxLayout(this);
    page->setContentsMargins(20, 10, 20, 0);
    page->setSpacing(8);
    page->addWidget(pairingRequestBar);
    page->addWidget(contactLabel);
    page->addLayout(row, 1);
    showContact();
    connect(&m_phone, &PhoneConnection::pairingApplied, this, &QRCodeViewController::showContact);
    connect(&m_phone, &PhoneConnection::listenerProblemChanged, this, &QRCodeViewController::refreshAddress);

    // Version line in the bottom right corner.
    versionLabel = new QLabel(this);
    versionLabel->setObjectName(QStringLiteral("versionLabel"));
    QFont versionFont = versionLabel->font();
    versionFont.setPointSize(11);
    versionLabel->setFont(versionFont);
    versionLabel->setStyleSheet(QStringLiteral("color: rgb(70,55,20);"));
    versionLabel->setAlignment(Qt::AlignCenter);
    //: Version text
    //% "Version"
    versionLabel->setText(qtTrId("version") + u' ' + QCoreApplication::applicationVersion());
    versionLabel->adjustSize();

    m_refresher.setInterval(refreshMilliseconds);
    connect(&m_refresher, &QTimer::timeout, this, &QRCodeViewController::refreshAddress);
    // The window leaves this screen when a phone connects; nothing is left to refresh.
    connect(&m_phone.session(), &Session::phoneConnectedChanged, this, [this](bool connected) {
        if (connected)
            m_refresher.stop();
    });
    if (!m_phone.session().isPhoneConnected()) {
        refreshAddress();
        m_refresher.start();
    }
}

void QRCodeViewController::showContact()
{
    const auto lost = m_phone.lostContact();
    const auto trusted = m_phone.trustedPhone();
    if (lost) {
        //: Pairing screen after the paired phone stopped answering. %1 is its name, %2 the time.
        //% "Lost contact with %1 at %2. Varnex Desktop reconnects by itself as soon as the phone answers again."
        contactLabel->setText(qtTrId("lostContact")
                                  .arg(Texts::deviceName(lost->name),
                                      QLocale().toString(lost->at.time(), QLocale::ShortFormat)));
    } else if (trusted) {
        //: Pairing screen at start, while the paired phone has not answered yet. %1 is its name.
        //% "Looking for %1 on the network. Or scan the code with another phone."
        contactLabel->setText(qtTrId("lookingForPhone").arg(Texts::deviceName(trusted->name)));
    }
    contactLabel->setAccessibleName(contactLabel->text());
    contactLabel->setVisible(lost || trusted);
}

void QRCodeViewController::refreshAddress()
{
    if (m_phone.session().isPhoneConnected()) {
        m_refresher.stop();
        return;
    }
    const QStringList found = addressSource() ? addressSource()() : systemCandidates();
    // Only addresses the listener takes pairing messages on: a phone that scanned any other
    // would be refused, and nothing would tell the user why.
    QStringList candidates = AddressFinder::pairableAddresses(found);
    QString text = !candidates.isEmpty() ? candidates.first()
        : found.isEmpty()                ? cannotFindIP()
                                         : noLocalAddress();
    const auto preferred = Settings::string(preferredAddressKey);
    if (preferred && candidates.contains(*preferred))
        text = *preferred;
    // No code while phones cannot reach the listener: a phone that scanned it would post into
    // nothing, or to whoever holds the port.
    if (!m_phone.listenerProblem().isEmpty()) {
        text = m_phone.listenerProblem();
        candidates.clear();
    }

    // The selector appears only when there is a real choice.
    m_selector->setVisible(candidates.size() > 1);
    if (candidates.size() > 1) {
        QSignalBlocker block(m_selector);
        m_selector->clear();
        m_selector->addItems(candidates);
        m_selector->setCurrentText(text);
    }
    if (text == ipAdressLabel->text())
        return;
    if (text == noLocalAddress())
        qCInfo(lcScreens).noquote() << "No local network address to pair on; the listener refuses phones on"
                                    << found.join(u", ");
    showAddress(text);
}

void QRCodeViewController::chooseAddress(int index)
{
    const QString chosen = m_selector->itemText(index);
    Settings::setString(preferredAddressKey, chosen);
    if (chosen != ipAdressLabel->text())
        showAddress(chosen);
}

QImage QRCodeViewController::renderQr(const QrMatrix& matrix, qreal devicePixelRatio)
{
    const int quiet = quietZoneModules();
    const int side = (matrix.width + 2 * quiet) * moduleSize;
    QImage image(QSize(side, side) * devicePixelRatio, QImage::Format_RGB32);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::white);
    QPainter p(&image);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::black);
    for (int y = 0; y < matrix.width; ++y) {
        for (int x = 0; x < matrix.width; ++x) {
            if (matrix.dark(x, y))
                p.drawRect((x + quiet) * moduleSize, (y + quiet) * moduleSize, moduleSize, moduleSize);
        }
    }
    return image;
}

void QRCodeViewController::showAddress(const QString& text)
{
    ++m_redraws;
    ipAdressLabel->setText(text);
    // An address reads large; a sentence in its place wraps in the white box.
    const bool sentence = text == noLocalAddress() || text == m_phone.listenerProblem();
    QFont font = ipAdressLabel->font();
    font.setPointSize(sentence ? 13 : 17);
    font.setBold(!sentence);
    ipAdressLabel->setFont(font);
    ipAdressLabel->setWordWrap(sentence);
    if (text == cannotFindIP() || sentence) {
        m_matrix = {};
        qrCodeImage->setPixmap(
            QIcon(QStringLiteral(":/images/ipnotfound.svg")).pixmap(QSize(220, 220), devicePixelRatioF()));
        return;
    }
    const QrMatrix matrix = QrPayload::encodeAddress(text);
    if (!matrix.isValid())
        return; // keep the previous image
    m_matrix = matrix;
    // Never scaled: modules stay whole 15-point squares, which phones read best, and the white
    // box grows with a longer code instead.
    const QPixmap pixmap = QPixmap::fromImage(renderQr(matrix, devicePixelRatioF()));
    qrCodeImage->setMinimumSize(pixmap.deviceIndependentSize().toSize().expandedTo(QSize(300, 300)));
    qrCodeImage->setPixmap(pixmap);
}

void QRCodeViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    window()->setWindowTitle(Texts::varnexDesktopNotConnected());
    placeVersionLabel();
}

void QRCodeViewController::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    placeVersionLabel();
}

void QRCodeViewController::placeVersionLabel()
{
    versionLabel->adjustSize();
    versionLabel->move(width() - 20 - versionLabel->width(), height() - 20 - versionLabel->height());
    versionLabel->raise();
}
