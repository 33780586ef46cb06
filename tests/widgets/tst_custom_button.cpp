#include "widgets/CustomButton.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QSignalSpy>
#include <QTest>

namespace {

const QColor amber(255, 192, 0);
const QColor grey(247, 247, 247);
const QColor orange(254, 173, 2);
const QColor red(Qt::red);

// A shown button showing its normal look: grey with amber text; when active, orange with grey.
std::unique_ptr<CustomButton> makeButton(bool on = false)
{
    auto button = std::make_unique<CustomButton>();
    button->setTitle(QStringLiteral("ENCRYPT"));
    button->setBackgroundColor(grey);
    button->setTextColor(amber);
    button->setActiveBackgroundColor(orange);
    button->setActiveTextColor(grey);
    button->resize(170, 46);
    button->show();
    button->setChecked(on);
    return button;
}

using ColourSetter = void (CustomButton::*)(const QColor&);

} // namespace

Q_DECLARE_METATYPE(ColourSetter)

class TestCustomButton : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void colourSetters_data();
    void colourSetters();
    void generatedTextColour();
    void pressShowsTheOtherLookUntilItEnds_data();
    void pressShowsTheOtherLookUntilItEnds();
    void everyRouteEndsAsItStarted_data();
    void everyRouteEndsAsItStarted();
    void disabledIsDimmedAndLetsTheMouseThrough();
};

void TestCustomButton::colourSetters_data()
{
    QTest::addColumn<ColourSetter>("setter");
    QTest::addColumn<bool>("on");
    QTest::addColumn<bool>("showsAtOnce");
    QTest::addColumn<QColor>("afterRefresh"); // the look of the state
    QTest::newRow("fill, off") << &CustomButton::setBackgroundColor << false << true << red;
    QTest::newRow("fill, on") << &CustomButton::setBackgroundColor << true << true << orange;
    QTest::newRow("active fill, off") << &CustomButton::setActiveBackgroundColor << false << false << grey;
    QTest::newRow("active fill, on") << &CustomButton::setActiveBackgroundColor << true << true << red;
    QTest::newRow("text, off") << &CustomButton::setTextColor << false << true << red;
    QTest::newRow("text, on") << &CustomButton::setTextColor << true << true << grey;
    QTest::newRow("active text, off") << &CustomButton::setActiveTextColor << false << false << amber;
    QTest::newRow("active text, on") << &CustomButton::setActiveTextColor << true << true << red;
}

void TestCustomButton::colourSetters()
{
    QFETCH(ColourSetter, setter);
    QFETCH(bool, on);
    QFETCH(bool, showsAtOnce);
    QFETCH(QColor, afterRefresh);
    auto button = makeButton(on);
    const bool text = QByteArray(QTest::currentDataTag()).contains("text");
    const auto shown = [&] { return text ? button->displayedText() : button->displayedBackground(); };
    if (on) {
        button->refresh(); // and wait for its end: a replaced animation ends at its target
        QTRY_COMPARE(shown(), text ? grey : orange);
    }
    const QColor before = shown();
    (button.get()->*setter)(red);
    const QColor changed = shown();
    QCOMPARE(changed, showsAtOnce ? red : before);
    button->refresh();
    QCOMPARE(shown(), changed); // the animation starts from what is shown
    QTRY_COMPARE(shown(), afterRefresh);
}

void TestCustomButton::generatedTextColour()
{
    // Asked at every refresh in place of the stored colour, so the look follows what it reads.
    QColor generated = Qt::blue;
    auto button = makeButton();
    button->setColorGenerator(CustomButton::ColorProperty::Text, [&generated] { return generated; });
    button->refresh();
    QTRY_COMPARE(button->displayedText(), generated);
    generated = Qt::green;
    button->refresh();
    QTRY_COMPARE(button->displayedText(), generated);
}

void TestCustomButton::pressShowsTheOtherLookUntilItEnds_data()
{
    QTest::addColumn<int>("key"); // 0: the mouse
    QTest::addColumn<int>("clicks");
    QTest::newRow("mouse released inside") << 0 << 1;
    QTest::newRow("mouse dragged out and back") << 0 << 0;
    QTest::newRow("mouse, disabled while held") << 0 << 0;
    QTest::newRow("Return") << int(Qt::Key_Return) << 1;
    QTest::newRow("Enter") << int(Qt::Key_Enter) << 1;
}

void TestCustomButton::pressShowsTheOtherLookUntilItEnds()
{
    QFETCH(int, key);
    QFETCH(int, clicks);
    const QByteArray route = QTest::currentDataTag();
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    button->setFocus();
    key ? QTest::keyPress(button.get(), Qt::Key(key))
        : QTest::mousePress(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QVERIFY(button->isChecked());
    QCOMPARE(button->isMouseDown(), !key);
    QTRY_COMPARE(button->displayedBackground(), orange);
    if (route.contains("dragged")) {
        QTest::mouseMove(button.get(), QPoint(400, 20));
        QVERIFY(!button->isMouseDown() && !button->isChecked());
        QTest::mouseMove(button.get(), QPoint(30, 20)); // coming back does not press again
    } else if (route.contains("disabled")) {
        button->setEnabled(false);
        QVERIFY(!button->isMouseDown() && !button->isChecked());
    }
    QCOMPARE(clicked.size(), 0);
    key ? QTest::keyRelease(button.get(), Qt::Key(key))
        : QTest::mouseRelease(button.get(), Qt::LeftButton, {}, QPoint(30, 20));
    QCOMPARE(clicked.size(), clicks);
    QVERIFY(!button->isChecked() && !button->isMouseDown());
    QTRY_COMPARE(button->displayedBackground(), grey);
    QCOMPARE(button->displayedText(), amber);
}

void TestCustomButton::everyRouteEndsAsItStarted_data()
{
    QTest::addColumn<QString>("route");
    QTest::addColumn<bool>("startsOn");
    for (bool on : { false, true }) {
        for (const char* route : { "mouse", "space", "click", "animateClick", "accessible" })
            QTest::addRow("%s, %s", route, on ? "on" : "off") << QString::fromLatin1(route) << on;
    }
}

// One click by any route, as an assistive tool presses it too: one clicked, the look it
// started with, and never left pressed.
void TestCustomButton::everyRouteEndsAsItStarted()
{
    QFETCH(QString, route);
    QFETCH(bool, startsOn);
    auto button = makeButton(startsOn);
    QVERIFY(QTest::qWaitForWindowExposed(button.get()));
    QSignalSpy clicked(button.get(), &QAbstractButton::clicked);
    QSignalSpy toggled(button.get(), &QAbstractButton::toggled);
    if (route == u"mouse") {
        QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(80, 22));
    } else if (route == u"space") {
        button->setFocus();
        QTest::keyClick(button.get(), Qt::Key_Space);
    } else if (route == u"click") {
        button->click();
    } else if (route == u"animateClick") {
        button->animateClick();
        QVERIFY(clicked.wait(2000));
    } else {
        QAccessibleInterface* iface = QAccessible::queryAccessibleInterface(button.get());
        QCOMPARE(iface->text(QAccessible::Name), u"ENCRYPT"_qs);
        const QStringList actions = iface->actionInterface()->actionNames();
        QVERIFY(actions.contains(QAccessibleActionInterface::pressAction()));
        QVERIFY(!actions.contains(QAccessibleActionInterface::toggleAction()));
        iface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        QTRY_COMPARE(clicked.size(), 1); // a press may arrive after a short animation
    }
    QCOMPARE(clicked.size(), 1);
    QCOMPARE(button->isChecked(), startsOn);
    QVERIFY(!button->isMouseDown());
    QCOMPARE(toggled.size() % 2, 0); // any flip was flipped back
}

void TestCustomButton::disabledIsDimmedAndLetsTheMouseThrough()
{
    auto button = makeButton();
    QSignalSpy clicked(button.get(), &CustomButton::clicked);
    button->setEnabled(false);
    QCOMPARE(button->displayedOpacity(), 0.6);
    QVERIFY(button->testAttribute(Qt::WA_TransparentForMouseEvents));
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 0);
    button->setEnabled(true);
    QCOMPARE(button->displayedOpacity(), 1.0);
    QTest::mouseClick(button.get(), Qt::LeftButton, {}, QPoint(20, 20));
    QCOMPARE(clicked.size(), 1);
}

QTEST_MAIN(TestCustomButton)
#include "tst_custom_button.moc"
