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
    void looksFollowTheStateAndTheSetters();
    void clicksByMouseAndKeyboard();
};

void TestCustomButton::looksFollowTheStateAndTheSetters()
{
    auto button = makeButton();
    button->setChecked(true);
    button->refresh();
    QCOMPARE(button->displayedBackground(), grey); // animations start from what is shown
    QTRY_COMPARE(button->displayedBackground(), orange);
    QCOMPARE(button->displayedText(), grey);
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
    button->refresh();
    QTRY_COMPARE(button->displayedBackground(), QColor(Qt::red));
    QCOMPARE(button->displayedText(), amber);
}

void TestCustomButton::clicksByMouseAndKeyboard()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    // Held down, it takes the other look; the click comes with the release inside.
    QTest::mousePress(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QVERIFY(button->isMouseDown() && button->isChecked());
    QTRY_COMPARE(button->displayedBackground(), orange);
    QCOMPARE(clicked.size(), 0);
    QTest::mouseRelease(button.get(), Qt::LeftButton, {}, QPoint(22, 21));
    QCOMPARE(clicked.size(), 1);
    QVERIFY(!button->isChecked() && !button->isMouseDown());
    QTRY_COMPARE(button->displayedBackground(), grey);

    // Dragged out, the press ends; coming back does not bring it back.
    QTest::mousePress(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QTest::mouseMove(button.get(), QPoint(400, 20));
    QVERIFY(!button->isMouseDown() && !button->isChecked());
    QTest::mouseMove(button.get(), QPoint(30, 20));
    QVERIFY(!button->isChecked());
    QTest::mouseRelease(button.get(), Qt::LeftButton, {}, QPoint(30, 20));
    QCOMPARE(clicked.size(), 1);
    QVERIFY(!button->isChecked());

    // Disabled, it is dimmed and lets the mouse through.
    button->setEnabled(false);
    QCOMPARE(button->displayedOpacity(), 0.6);
    QVERIFY(button->testAttribute(Qt::WA_TransparentForMouseEvents));
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 1);
    QVERIFY(!button->isChecked());
    button->setEnabled(true);
    QCOMPARE(button->displayedOpacity(), 1.0);
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 2);

    // Tab reaches it, Space and Return click it once each, a screen reader reads its title.
    QCOMPARE(button->focusPolicy(), Qt::StrongFocus);
    button->setFocus();
    QTest::keyClick(button.get(), Qt::Key_Space);
    QTest::keyClick(button.get(), Qt::Key_Return);
    QCOMPARE(clicked.size(), 4);
    QVERIFY(!button->isChecked());
    QCOMPARE(button->accessibleName(), QStringLiteral("ENCRYPT"));
}

QTEST_MAIN(TestCustomButton)
#include "tst_custom_button.moc"
