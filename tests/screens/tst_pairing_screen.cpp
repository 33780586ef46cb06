#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/Parts.h"
#include "pairing/AddressFinder.h"
#include "pairing/PhoneConnection.h"
#include "screens/QRCodeViewController.h"

#include <QComboBox>
#include <QLabel>
#include <QTest>

#include <qrencode.h>

using AddressFinder::InterfaceEntry;
using AddressFinder::InterfaceKind;
using Interfaces = QList<InterfaceEntry>;
Q_DECLARE_METATYPE(Interfaces)

namespace {

InterfaceEntry lan(
    const QString& name, QStringList addresses, InterfaceKind kind = InterfaceKind::Ethernet, bool up = true)
{
    return { name, kind, up, up, std::move(addresses) };
}

} // namespace

class TestPairingScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void addressRule_data();
    void addressRule();
    void candidatesPutTheRuleFirst();
    void qrCodeCarriesExactlyTheAddress_data();
    void qrCodeCarriesExactlyTheAddress();
    void redrawsOnlyWhenTheAddressChanges();
    void selectorAppearsOnlyWithAChoiceAndRemembersIt();
    void versionLabelStaysInTheCorner();

private:
    QStringList m_addresses;
    std::unique_ptr<PhoneConnection> m_phone; // no phone: the screen shows what it has
};

void TestPairingScreen::initTestCase()
{
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    installTranslations(*QCoreApplication::instance());
}

void TestPairingScreen::init()
{
    Settings::open()->clear();
    Session::instance().resetForTesting();
    m_phone = std::make_unique<PhoneConnection>(Session::instance(), [](auto, QObject*, auto) {});
    m_addresses = { u"192.168.1.20"_qs };
    QRCodeViewController::setAddressSourceForTesting([this] { return m_addresses; });
}

void TestPairingScreen::cleanup()
{
    QRCodeViewController::setAddressSourceForTesting({});
}

void TestPairingScreen::addressRule_data()
{
    QTest::addColumn<Interfaces>("interfaces");
    QTest::addColumn<bool>("macOS");
    QTest::addColumn<QString>("address"); // empty: none
    const InterfaceEntry loopback = lan(u"lo"_qs, { u"127.0.0.1"_qs }, InterfaceKind::Loopback);
    const InterfaceEntry wlan = lan(u"wlan0"_qs, { u"192.168.1.4"_qs }, InterfaceKind::Wifi);
    QTest::newRow("last address wins")
        << Interfaces { lan(u"eth0"_qs, { u"10.0.0.5"_qs, u"10.0.0.7"_qs }) } << false << u"10.0.0.7"_qs;
    QTest::newRow("ipv6 last gives none")
        << Interfaces { lan(u"eth0"_qs, { u"10.0.0.7"_qs, u"fe80::1"_qs }), wlan } << false << QString();
    QTest::newRow("loopback skipped") << Interfaces { loopback, wlan } << false << u"192.168.1.4"_qs;
    QTest::newRow("virtual by name skipped") << Interfaces { lan(u"docker0"_qs, { u"172.17.0.1"_qs }),
        lan(u"veth12"_qs, { u"172.18.0.1"_qs }), lan(u"enp3s0"_qs, { u"192.168.0.9"_qs }) }
                                             << false << u"192.168.0.9"_qs;
    QTest::newRow("virtual kind skipped") << Interfaces {
        lan(u"tailnet"_qs, { u"100.64.0.1"_qs }, InterfaceKind::Virtual), lan(u"eno1"_qs, { u"10.1.1.1"_qs })
    } << false << u"10.1.1.1"_qs;
    QTest::newRow("down skipped") << Interfaces {
        lan(u"eth0"_qs, { u"10.0.0.5"_qs }, InterfaceKind::Ethernet, false),
        lan(u"eth1"_qs, { u"10.0.0.6"_qs })
    } << false << u"10.0.0.6"_qs;
    QTest::newRow("no lan at all") << Interfaces { loopback } << false << QString();
    QTest::newRow("macOS: en0 only") << Interfaces { lan(u"en1"_qs, { u"10.0.0.2"_qs }),
        lan(u"en0"_qs, { u"fe80::2"_qs, u"10.0.0.7"_qs }) }
                                     << true << u"10.0.0.7"_qs;
    QTest::newRow("three dots in ipv6")
        << Interfaces { lan(u"eth0"_qs, { u"::ffff:1.2.3"_qs }) } << false << QString();
}

void TestPairingScreen::addressRule()
{
    QFETCH(Interfaces, interfaces);
    QFETCH(bool, macOS);
    QTEST(AddressFinder::pickAddress(interfaces, macOS).value_or(QString()), "address");
}

void TestPairingScreen::candidatesPutTheRuleFirst()
{
    const Interfaces interfaces { lan(u"wlan0"_qs, { u"192.168.1.4"_qs, u"192.168.1.5"_qs },
                                      InterfaceKind::Wifi),
        lan(u"docker0"_qs, { u"172.17.0.1"_qs }), lan(u"eth0"_qs, { u"10.0.0.3"_qs, u"fe80::3"_qs }) };
    QCOMPARE(AddressFinder::candidateAddresses(interfaces),
        (QStringList { u"192.168.1.5"_qs, u"192.168.1.4"_qs, u"10.0.0.3"_qs }));
}

void TestPairingScreen::qrCodeCarriesExactlyTheAddress_data()
{
    QTest::addColumn<QString>("address");
    QTest::newRow("short") << "10.0.0.7";
    QTest::newRow("long") << "192.168.100.200";
}

void TestPairingScreen::qrCodeCarriesExactlyTheAddress()
{
    QFETCH(QString, address);
    m_addresses = { address };
    QRCodeViewController screen(*m_phone, nullptr);
    QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), address);
    const QrMatrix matrix = screen.currentMatrix();
    QVERIFY(matrix.isValid());

    // Exactly the ASCII text, nothing else: the same matrix libqrencode makes of that text.
    const QByteArray text = address.toLatin1();
    QRcode* reference = QRcode_encodeString8bit(text.constData(), 0, QR_ECLEVEL_M);
    QVERIFY(reference);
    QCOMPARE(matrix.width, reference->width);
    for (int i = 0; i < matrix.width * matrix.width; ++i)
        QCOMPARE(matrix.modules.at(i), bool(reference->data[i] & 1));
    QRcode_free(reference);

    // Drawn with 15 x 15 modules: the centre of every module has its colour.
    const QImage image = QRCodeViewController::renderQr(matrix);
    const int quiet = QRCodeViewController::quietZoneModules();
    QCOMPARE(image.width(), (matrix.width + 2 * quiet) * 15);
    for (int y = 0; y < matrix.width; ++y) {
        for (int x = 0; x < matrix.width; ++x) {
            const QPoint centre((x + quiet) * 15 + 7, (y + quiet) * 15 + 7);
            QCOMPARE(image.pixelColor(centre) == Qt::black, matrix.dark(x, y));
        }
    }
    // Crisp at twice the pixel density: still whole device pixels per module.
    QCOMPARE(QRCodeViewController::renderQr(matrix, 2.0).width(), image.width() * 2);
}

void TestPairingScreen::redrawsOnlyWhenTheAddressChanges()
{
    // No address: the not-found text, and a placeholder instead of a code.
    m_addresses = {};
    QRCodeViewController screen(*m_phone, nullptr);
    QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), u"Cannot find IP address"_qs);
    QVERIFY(!screen.currentMatrix().isValid());
    QVERIFY(!part<QLabel>(&screen, "qrCodeImage")->pixmap().isNull());
    screen.refreshAddress();
    screen.refreshAddress();
    QCOMPARE(screen.redrawCount(), 1);
    m_addresses = { u"10.0.0.7"_qs }; // the network comes back
    screen.refreshAddress();
    screen.refreshAddress();
    QCOMPARE(screen.redrawCount(), 2);
    QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), u"10.0.0.7"_qs);
    QVERIFY(screen.currentMatrix().isValid());

    // Public addresses only: the listener would refuse every phone, so no code is offered.
    m_addresses = { u"192.0.2.2"_qs, u"8.8.8.8"_qs };
    QTest::ignoreMessage(
        QtInfoMsg, "No local network address to pair on; the listener refuses phones on 192.0.2.2, 8.8.8.8");
    Settings::setString("preferredPairingAddress", u"192.0.2.2"_qs);
    screen.refreshAddress();
    screen.refreshAddress();
    QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(),
        u"This computer has no local network address. Connect it to the same Wi-Fi network as your phone."_qs);
    QVERIFY(!screen.currentMatrix().isValid());
    m_addresses = { u"192.0.2.2"_qs, u"100.64.1.9"_qs };
    screen.refreshAddress();
    QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), QStringLiteral("100.64.1.9"));
    QVERIFY(screen.addressSelector()->isHidden()); // one address left to choose from
}

void TestPairingScreen::selectorAppearsOnlyWithAChoiceAndRemembersIt()
{
    {
        QRCodeViewController single(*m_phone, nullptr);
        single.show();
        QVERIFY(!single.addressSelector()->isVisible());
    }
    m_addresses = { u"192.168.1.20"_qs, u"10.8.0.2"_qs };
    {
        QRCodeViewController screen(*m_phone, nullptr);
        screen.show();
        QVERIFY(screen.addressSelector()->isVisible());
        QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), QStringLiteral("192.168.1.20"));
        screen.addressSelector()->setCurrentIndex(1);
        Q_EMIT screen.addressSelector()->activated(1);
        QCOMPARE(part<QLabel>(&screen, "ipAdressLabel")->text(), QStringLiteral("10.8.0.2"));
    }
    QRCodeViewController again(*m_phone, nullptr);
    QCOMPARE(part<QLabel>(&again, "ipAdressLabel")->text(), QStringLiteral("10.8.0.2"));
    // A remembered address that is gone falls back to the rule's choice.
    m_addresses = { u"192.168.1.20"_qs, u"172.20.0.4"_qs };
    again.refreshAddress();
    QCOMPARE(part<QLabel>(&again, "ipAdressLabel")->text(), QStringLiteral("192.168.1.20"));
}

void TestPairingScreen::versionLabelStaysInTheCorner()
{
    QRCodeViewController screen(*m_phone, nullptr);
    screen.show();
    QCOMPARE(part<QLabel>(&screen, "versionLabel")->text(), u"Version 1.0.0"_qs);
    screen.resize(1400, 900); // 20 pixels from the corner, whatever the size
    QTRY_COMPARE(
        part<QLabel>(&screen, "versionLabel")->geometry().bottomRight(), QPoint(1400 - 21, 900 - 21));
}

QTEST_MAIN(TestPairingScreen)
#include "tst_pairing_screen.moc"
