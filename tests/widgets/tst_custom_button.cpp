#include "widgets/CustomButton.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QColor amber(255, 192, 0);
const QColor grey(247, 247, 247);
const QColor orange(254, 173, 2);

// A shown button with distinct looks for its two states.
std::unique_ptr<CustomButton> makeButton()
{
    auto button = std::make_unique<CustomButton>();
    button->setTitle(QStringLiteral("ENCRYPT"));
    button->setBackgroundColor(grey);
    button->setTextColor(amber);
    button->setActiveBackgroundColor(orange);
    button->setActiveTextColor(grey);
    button->resize(170, 46);
    button->show();
    return button;
}

} // namespace

class TestCustomButton : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refreshAnimatesToTheLookOfTheState();
    void activeShadowNumbersFallBack_data();
    void activeShadowNumbersFallBack();
    void settersShowAtOnce();
    void pressAndReleaseInside();
    void dragOutEndsThePress();
    void disabledIgnoresTheMouse();
    void keyboardTriggersOnce();
    void colorGeneratorsWinOverStoredColors();
    void roundButtonGeometry();
};

void TestCustomButton::refreshAnimatesToTheLookOfTheState()
{
    auto button = makeButton();
    button->setChecked(true);
    button->refresh();
    QCOMPARE(button->displayedBackground(), grey); // animations start from what is shown
    QTRY_COMPARE(button->displayedBackground(), orange);
    QCOMPARE(button->displayedText(), grey);
    button->setChecked(false);
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), grey);
    QCOMPARE(button->displayedText(), amber);
}

void TestCustomButton::activeShadowNumbersFallBack_data()
{
    QTest::addColumn<qreal>("active");
    QTest::addColumn<qreal>("shown");
    QTest::newRow("not set") << -1.0 << 6.0;
    QTest::newRow("zero") << 0.0 << 0.0;
    QTest::newRow("other negative is a value") << -2.0 << -2.0;
}

void TestCustomButton::activeShadowNumbersFallBack()
{
    QFETCH(qreal, active);
    CustomButton button;
    button.setShadowRadius(6);
    button.setChecked(true);
    button.setActiveShadowRadius(active);
    QTEST(button.displayedShadowRadius(), "shown");
}

void TestCustomButton::settersShowAtOnce()
{
    auto button = makeButton();
    button->setChecked(true);
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), orange);
    // The normal fill shows at once even in the on state; the next refresh restores the look.
    button->setBackgroundColor(Qt::red);
    QCOMPARE(button->displayedBackground(), QColor(Qt::red));
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), orange);
    button->setActiveTextColor(Qt::blue);
    QCOMPARE(button->displayedText(), QColor(Qt::blue));
    button->setChecked(false);
    button->setActiveBackgroundColor(Qt::green); // off: stored only
    QCOMPARE(button->displayedBackground(), orange);
}

void TestCustomButton::pressAndReleaseInside()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    QTest::mousePress(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QVERIFY(button->isMouseDown());
    QVERIFY(button->isChecked()); // the other look while held
    QTRY_COMPARE(button->displayedBackground(), orange);
    QCOMPARE(clicked.size(), 0);
    QTest::mouseRelease(button.get(), Qt::LeftButton, {}, QPoint(22, 21));
    QCOMPARE(clicked.size(), 1);
    QVERIFY(!button->isChecked());
    QVERIFY(!button->isMouseDown());
    QTRY_COMPARE(button->displayedBackground(), grey);
}

void TestCustomButton::dragOutEndsThePress()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    QTest::mousePress(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QTest::mouseMove(button.get(), QPoint(400, 20));
    QVERIFY(!button->isMouseDown());
    QVERIFY(!button->isChecked());
    QTest::mouseMove(button.get(), QPoint(30, 20)); // coming back does nothing
    QVERIFY(!button->isChecked());
    QTest::mouseRelease(button.get(), Qt::LeftButton, {}, QPoint(30, 20));
    QCOMPARE(clicked.size(), 0);
    QVERIFY(!button->isChecked());
}

void TestCustomButton::disabledIgnoresTheMouse()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    button->setEnabled(false);
    QCOMPARE(button->displayedOpacity(), 0.6);
    QVERIFY(button->testAttribute(Qt::WA_TransparentForMouseEvents));
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 0);
    QVERIFY(!button->isChecked());
    button->setEnabled(true);
    QCOMPARE(button->displayedOpacity(), 1.0);
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 1);
}

void TestCustomButton::keyboardTriggersOnce()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    QCOMPARE(button->focusPolicy(), Qt::StrongFocus); // reachable with Tab
    button->setFocus();
    QTest::keyClick(button.get(), Qt::Key_Space);
    QTest::keyClick(button.get(), Qt::Key_Return);
    QCOMPARE(clicked.size(), 2);
    QVERIFY(!button->isChecked());
    QCOMPARE(button->accessibleName(), QStringLiteral("ENCRYPT"));
}

void TestCustomButton::colorGeneratorsWinOverStoredColors()
{
    auto button = makeButton();
    button->setColorGenerator(CustomButton::ColorProperty::Background, [] { return QColor(Qt::magenta); });
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), QColor(Qt::magenta));
    button->setColorGenerator(CustomButton::ColorProperty::Background, {});
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), grey);
}

void TestCustomButton::roundButtonGeometry()
{
    std::unique_ptr<CustomButton> round(CustomButton::roundButton(QStringLiteral("OK"), 30, QPointF(100, 80)));
    QCOMPARE(round->geometry(), QRect(70, 50, 60, 60));
    QCOMPARE(round->cornerRadius(), 30.0);
    QCOMPARE(round->font().pointSizeF(), 20.0);
    QCOMPARE(round->title(), QStringLiteral("OK"));
    // The title sits centred, on whole pixels.
    const QRectF title = round->titleRect();
    QCOMPARE(title.x(), std::round(title.x()));
    QVERIFY(qAbs(title.center().x() - 30) <= 1);
}

QTEST_MAIN(TestCustomButton)
#include "tst_custom_button.moc"
