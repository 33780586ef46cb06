#include "app/Session.h"
#include "app/Settings.h"
#include "app/Translations.h"
#include "common/Parts.h"
#include "pairing/PhoneConnection.h"
#include "screens/QRCodeViewController.h"

#include <QComboBox>
#include <QLabel>
#include <QTest>

#include <qrencode.h>

class TestPairingScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
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
