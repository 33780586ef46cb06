// Every screen as a person sees it, in the light palette and a dark system palette, at the
// scale and in the language of this run (it also runs with QT_SCALE_FACTOR=2 and in German).
// Layout rules and uncut texts are checked in every run; the pictures are saved when
// VARNEX_SCREENSHOT_DIR is set.
#include "api/RecordDecoding.h"
#include "app/Session.h"
#include "app/Translations.h"
#include "common/Parts.h"
#include "common/Settle.h"
#include "common/TestFiles.h"
#include "common/TestServices.h"
#include "pairing/MobileDeviceListener.h"
#include "pairing/PhoneConnection.h"
#include "pairing/TrustedPhone.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"
#include "screens/AssociatedUserCellView.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/PairingRequestBar.h"
#include "screens/QRCodeViewController.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppWindow.h"
#include "shell/MainViewController.h"
#include "storage/WorkingFolders.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/Dialogs.h"
#include "widgets/Line.h"
#include "widgets/MarkBox.h"
#include "widgets/ProgressOverlay.h"

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QGraphicsEffect>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPaintEngine>
#include <QPushButton>
#include <QScrollArea>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolTip>

namespace {

// Drawing settles in well under a second; a loaded machine or a sanitized build takes longer.
constexpr int settleMs = 30000;

// A dark system palette: Qt derives the roles from the button and window colours, all but the
// tool tip's.
QPalette darkPalette()
{
    QPalette p(QColor(80, 80, 85), QColor(45, 45, 48));
    p.setColor(QPalette::ToolTipBase, QColor(30, 30, 32));
    p.setColor(QPalette::ToolTipText, QColor(235, 235, 235));
    return p;
}

// One piece of text as it was drawn: where, in which colour (with the painter's opacity) and font.
struct DrawnText
{
    QString text;
    QRectF rect; // in the drawn widget's coordinates
    QColor color;
    QFont font;
};

// A paint engine that draws nothing and notes every piece of text painted through it: labels,
// buttons, fields, list rows and whatever a delegate or a widget paints itself.
class TextRecorder final : public QPaintEngine
{
public:
    TextRecorder()
        : QPaintEngine(QPaintEngine::AllFeatures)
    {
    }
    QList<DrawnText> texts;

    bool begin(QPaintDevice*) override { return true; }
    bool end() override { return true; }
    void updateState(const QPaintEngineState&) override { }
    void drawPixmap(const QRectF&, const QPixmap&, const QRectF&) override { }
    void drawTiledPixmap(const QRectF&, const QPixmap&, const QPointF&) override { }
    void drawImage(const QRectF&, const QImage&, const QRectF&, Qt::ImageConversionFlags) override { }
    void drawPath(const QPainterPath&) override { }
    void drawPolygon(const QPointF*, int, PolygonDrawMode) override { }
    void drawPolygon(const QPoint*, int, PolygonDrawMode) override { }
    Type type() const override { return QPaintEngine::User; }

    void drawTextItem(const QPointF& at, const QTextItem& item) override
    {
        if (item.text().trimmed().isEmpty())
            return;
        QColor color = state->pen().color();
        color.setAlphaF(color.alphaF() * state->opacity());
        QRectF rect = state->transform().mapRect(
            QRectF(at.x(), at.y() - item.ascent(), item.width(), item.ascent() + item.descent()));
        // Only what the widget being painted shows of it.
        if (!systemClip().isEmpty())
            rect = rect.intersected(systemClip().boundingRect());
        if (rect.isEmpty())
            return;
        // A style etches a disabled text: the same text first, one pixel down and right, in its
        // light colour. That is a relief, not the text.
        if (!texts.isEmpty() && texts.last().text == item.text()
            && texts.last().rect.topLeft() - rect.topLeft() == QPointF(1, 1))
            texts.removeLast();
        texts.append({ item.text(), rect, color, item.font() });
    }
};

class TextRecordingDevice final : public QPaintDevice
{
public:
    explicit TextRecordingDevice(QSize size)
        : m_size(size)
    {
    }
    QPaintEngine* paintEngine() const override { return &m_engine; }
    QList<DrawnText> texts() const { return m_engine.texts; }

protected:
    int metric(PaintDeviceMetric metric) const override
    {
        switch (metric) {
        case PdmWidth:
            return m_size.width();
        case PdmHeight:
            return m_size.height();
        case PdmWidthMM:
            return m_size.width() * 254 / 960;
        case PdmHeightMM:
            return m_size.height() * 254 / 960;
        case PdmNumColors:
            return INT_MAX;
        case PdmDepth:
            return 32;
        case PdmDpiX:
        case PdmDpiY:
        case PdmPhysicalDpiX:
        case PdmPhysicalDpiY:
            return 96;
        case PdmDevicePixelRatio:
            return 1;
        case PdmDevicePixelRatioScaled:
            return int(QPaintDevice::devicePixelRatioFScale());
        }
        return 0;
    }

private:
    QSize m_size;
    mutable TextRecorder m_engine;
};

// Every text `root` draws. Drop shadows are switched off meanwhile: they draw their widget
// into a picture of their own, past the recorder.
QList<DrawnText> drawnTexts(QWidget* root)
{
    QList<QGraphicsEffect*> effects;
    QList<QWidget*> widgets = root->findChildren<QWidget*>();
    widgets.append(root);
    for (QWidget* w : std::as_const(widgets)) {
        if (w->graphicsEffect() && w->graphicsEffect()->isEnabled()) {
            effects.append(w->graphicsEffect());
            effects.last()->setEnabled(false);
        }
    }
    TextRecordingDevice device(root->size());
    root->render(&device);
    for (QGraphicsEffect* effect : std::as_const(effects))
        effect->setEnabled(true);
    return device.texts();
}

// The lowest contrast of the texts `root` draws, each against the colour most of its box shows
// in `picture` (a grab of `root`), and the texts that fall short: 4.5:1, or 3:1 for large text
// (18 points, or 14 points bold).
struct ContrastReport
{
    double lowest = 21;
    QString lowestText;
    int measured = 0;
    QStringList failures;
};

ContrastReport measureContrast(QWidget* root, const QImage& picture)
{
    ContrastReport report;
    const qreal scale = picture.devicePixelRatio();
    for (const DrawnText& drawn : drawnTexts(root)) {
        // The background: the colour seen most in and just around the text's box, leaving out
        // the text's own colour (a single bold glyph may cover most of its box).
        const QRect box = QRectF(drawn.rect.topLeft() * scale, drawn.rect.size() * scale)
                              .toAlignedRect()
                              .adjusted(-2, -2, 2, 2)
                              .intersected(picture.rect());
        if (box.isEmpty())
            continue;
        const QColor opaque = drawn.color.toRgb();
        QHash<QRgb, int> counts;
        for (int y = box.top(); y <= box.bottom(); ++y) {
            for (int x = box.left(); x <= box.right(); ++x) {
                const QRgb px = picture.pixel(x, y);
                if (drawn.color.alpha() == 255 && std::abs(qRed(px) - opaque.red()) < 6
                    && std::abs(qGreen(px) - opaque.green()) < 6 && std::abs(qBlue(px) - opaque.blue()) < 6)
                    continue;
                ++counts[px];
            }
        }
        if (counts.isEmpty())
            continue;
        const QRgb paperRgb = std::max_element(counts.cbegin(), counts.cend()).key();
        const QColor paper = QColor::fromRgb(paperRgb);
        const qreal a = drawn.color.alphaF();
        const QColor ink = QColor::fromRgbF(drawn.color.redF() * a + paper.redF() * (1 - a),
            drawn.color.greenF() * a + paper.greenF() * (1 - a),
            drawn.color.blueF() * a + paper.blueF() * (1 - a));
        const double ratio = Colors::contrastRatio(ink, paper);
        const qreal points
            = drawn.font.pointSizeF() > 0 ? drawn.font.pointSizeF() : drawn.font.pixelSize() * 72.0 / 96.0;
        const bool large = points >= 18 || (points >= 14 && drawn.font.bold());
        ++report.measured;
        if (ratio < report.lowest) {
            report.lowest = ratio;
            report.lowestText = drawn.text;
        }
        if (ratio < (large ? 3.0 : 4.5))
            report.failures.append(
                u"\"%1\" %2 on %3: %4"_qs.arg(drawn.text, ink.name(), paper.name()).arg(ratio, 0, 'f', 2));
    }
    return report;
}

const QByteArray users = R"({"getUsers":[
    {"firstName":"Ann","lastName":"Lee","email":"ann.lee@example.com","phone":"+44 20 7946 0000"},
    {"firstName":"Bartholomew","lastName":"Featherstonehaugh-Montgomery","email":"bartholomew.featherstonehaugh@example.com","phone":"+1 (555) 010-0199 ext. 4421"},
    {"firstName":"Chen","lastName":"Wei","email":"chen@example.com","phone":"+86 10 5555 0100"}]})";
const QByteArray groups = R"([{"id":1,"name":"Family","groupMembers":[
    {"id":100,"fullName":"Mia Lee","email":"mia@example.com"},{"id":101,"fullName":"Tom Lee","email":"tom@example.com"}]},
    {"id":2,"name":"Empty"}])";

// The interfaces under `iface` that stand for something a person can act on or read.
void collectControls(QAccessibleInterface* iface, QList<QAccessibleInterface*>& out, int depth = 0)
{
    if (!iface || depth > 40 || iface->state().invisible)
        return;
    static const QList<QAccessible::Role> controls { QAccessible::Button, QAccessible::CheckBox,
        QAccessible::ComboBox, QAccessible::EditableText, QAccessible::List, QAccessible::ListItem,
        QAccessible::PageTab, QAccessible::ProgressBar, QAccessible::Graphic };
    if (controls.contains(iface->role()))
        out.append(iface);
    for (int i = 0; i < iface->childCount(); ++i)
        collectControls(iface->child(i), out, depth + 1);
}

// Labels and buttons too small for their text, so that part of it is cut off.
QStringList clippedTexts(const QWidget* root)
{
    QStringList clipped;
    const auto tooSmall = [&clipped](const QWidget* widget, const QString& text, QSize needed) {
        if (widget->width() < needed.width() || widget->height() < needed.height())
            QDebug(&clipped.emplace_back()) << widget->parentWidget()->metaObject()->className() << text
                                            << "needs" << needed << "has" << widget->size();
    };
    for (const QLabel* label : root->findChildren<QLabel*>()) {
        if (!label->isVisibleTo(root) || label->text().isEmpty())
            continue;
        // A wrapping label only needs the height its text takes at the width it has.
        tooSmall(label, label->text(),
            label->wordWrap() ? QSize(0, label->heightForWidth(label->width())) : label->sizeHint());
    }
    for (const QAbstractButton* button : root->findChildren<QAbstractButton*>())
        if (button->isVisibleTo(root) && !button->text().isEmpty())
            tooSmall(button, button->text(), button->sizeHint());
    return clipped;
}

} // namespace

class TestScreenshots : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void screens_data();
    void screens();
    void phoneNumbers_data();
    void phoneNumbers();

private:
    // Saves `widget` as `name` when pictures are asked for, once its drawing settled unless
    // it animates for good.
    // Texts are measured in `read` (a part of `widget`), or in all of `widget`.
    void save(QWidget* widget, const QString& name, bool settle = true, QWidget* read = nullptr);
    // Checks the application-modal dialog that opens next, then closes it.
    void checkNextDialog(const QString& name, QStringList& seen);

    QTemporaryDir m_home;
    QStringList m_files;
    QString m_suffix;
    std::unique_ptr<TestServices> m_app;
};

namespace {

// No phone answers here: the windows must not notice that while they are drawn.
const PhoneConnection::Options quietPhone { std::chrono::seconds(60),
    { std::chrono::hours(1), std::chrono::milliseconds(50), std::chrono::milliseconds(0),
        std::chrono::hours(1) } };

} // namespace

void TestScreenshots::initTestCase()
{
    installTranslations(*QCoreApplication::instance());
    m_app = std::make_unique<TestServices>(
        Session::defaultPhoneServicePort, quietPhone, TestServices::noAnswer);
    WorkingFolders::prepareWorkingFolders(m_home.filePath(u"Documents"_qs));
    for (const char* name : { "Quarterly report 2026.pdf", "holiday-photo.jpg", "notes.txt", "budget.xlsx",
             "a very long file name that goes on and on beyond what any list can show.docx",
             "minutes 2026-03.odt", "plan.md", "scan 0001.png", "scan 0002.png" }) {
        m_files.append(m_home.filePath(QString::fromUtf8(name)));
        TestFiles::write(m_files.last(), QByteArray(123'456, 'x'));
    }
    for (const char* name : { "/contract.pdf.vx", "/holiday-photo.jpg.vx" })
        TestFiles::write(
            *WorkingFolders::encryptedFilesFolder() + QString::fromUtf8(name), QByteArray(2'345'678, 'x'));
}

void TestScreenshots::save(QWidget* widget, const QString& name, bool settle, QWidget* read)
{
    if (settle)
        QVERIFY(waitUntilDrawingSettles(widget, settleMs));
    const QImage picture = widget->grab().toImage();
    // The main window follows the desktop's palette: its panel is light or dark with it (the
    // contrast of every text on it is measured below).
    if (auto* panel = widget->findChild<QWidget*>(u"grayBackground"_qs); panel && panel->isVisible()) {
        const QPoint at = panel->mapTo(widget, QPoint(panel->width() / 2, panel->height() - 3));
        QCOMPARE(picture.pixelColor(at * picture.devicePixelRatio()).lightness() < 128,
            m_suffix.contains(u"dark"));
    }
    const QString out = qEnvironmentVariable("VARNEX_SCREENSHOT_DIR");
    if (!out.isEmpty())
        QVERIFY(picture.save(out + u'/' + name + m_suffix + u".png"_qs));
    // Checked after saving, so that the picture shows what is cut off or hard to read.
    const QStringList clipped = clippedTexts(widget);
    QVERIFY2(clipped.isEmpty(), qPrintable(name + m_suffix + u": " + clipped.join(u"; ")));
    if (!read)
        read = widget;
    const qreal scale = picture.devicePixelRatio();
    QImage part = picture.copy(QRect(read->mapTo(widget, QPoint()) * scale, read->size() * scale));
    part.setDevicePixelRatio(scale);
    const ContrastReport contrast = measureContrast(read, part);
    qInfo("lowest contrast %s%s: %.2f (\"%s\") of %d texts", qPrintable(name), qPrintable(m_suffix),
        contrast.lowest, qPrintable(contrast.lowestText), contrast.measured);
    QVERIFY(contrast.measured > 0); // seeing no text would prove nothing
    QVERIFY2(
        contrast.failures.isEmpty(), qPrintable(name + m_suffix + u": " + contrast.failures.join(u"; ")));
    // On the program's own windows a screen reader names everything a person can act on or read.
    QList<QAccessibleInterface*> controls;
    if (qobject_cast<AppWindow*>(widget))
        collectControls(QAccessible::queryAccessibleInterface(read), controls);
    for (QAccessibleInterface* control : std::as_const(controls))
        QVERIFY2(!control->text(QAccessible::Name).trimmed().isEmpty(),
            qPrintable(name + u": a nameless "_qs
                + QString::fromLatin1(
                    control->object() ? control->object()->metaObject()->className() : "row")));
}

void TestScreenshots::checkNextDialog(const QString& name, QStringList& seen)
{
    QTimer::singleShot(0, this, [this, &seen, name] {
        QWidget* dialog = nullptr;
        QTRY_VERIFY((dialog = QApplication::activeModalWidget()));
        // Closed whatever the checks find, so that a failure does not leave the test waiting.
        auto close = qScopeGuard([dialog] { dialog->close(); });
        auto* files = qobject_cast<QFileDialog*>(dialog);
        if (files
            && files->testAttribute(Qt::WA_DontShowOnScreen)) { // the theme's own chooser (GTK): not ours
            seen.append(name);
            return;
        }
        if (auto* edit = dialog->findChild<QLineEdit*>(); edit && !files) {
            QCOMPARE(edit->width(), 300);
            QTRY_VERIFY(edit->hasFocus());
            // Refused as it is typed: said under the field, and the field keeps what was typed.
            if (name == u"create") {
                save(dialog, u"dialog-create-empty"_qs);
                QTest::keyClicks(edit, u"Steuerb"_qs);
                edit->insert(u"ü"_qs); // keyClicks types ASCII only
                QTest::keyClicks(edit, u"ro"_qs); // refused as typed: the panel's test checks it
            }
        }
        // Check boxes carry their own colours (the platform's can vanish on a dark window), and
        // nothing is preselected.
        const QList<QCheckBox*> boxes = dialog->findChildren<QCheckBox*>();
        for (QCheckBox* box : boxes)
            QVERIFY2(qobject_cast<MarkBox*>(box) && !box->isChecked(), qPrintable(box->accessibleName()));
        // A screen reader names the dialog and everything in it that takes the keyboard.
        QVERIFY2(!QAccessible::queryAccessibleInterface(dialog)->text(QAccessible::Name).isEmpty(),
            dialog->metaObject()->className());
        for (QWidget* w : dialog->findChildren<QWidget*>()) {
            if (w->isVisible() && w->focusPolicy() != Qt::NoFocus && !w->inherits("QScrollBar"))
                QVERIFY2(!QAccessible::queryAccessibleInterface(w)->text(QAccessible::Name).isEmpty(),
                    qPrintable(name + u": "_qs + QString::fromLatin1(w->metaObject()->className())));
        }
        if (files) {
            // Choosing files creates nothing: no "Create New Folder" anywhere.
            QVERIFY(files->testOption(QFileDialog::ReadOnly));
            if (auto* newFolder = files->findChild<QWidget*>(u"newFolderButton"_qs))
                QVERIFY(!newFolder->isVisible());
        }
        if (auto* scroll = dialog->findChild<QScrollArea*>()) {
            // Sized to its rows, not a fixed large window.
            QVERIFY(scroll->height() <= boxes.size() * 50 + 40);
            QVERIFY(scroll->width() <= 560);
        }
        save(dialog, u"dialog-"_qs + name);
        seen.append(name);
    });
}

void TestScreenshots::screens_data()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("light") << false;
    QTest::newRow("dark") << true;
}

void TestScreenshots::screens()
{
    QFETCH(bool, dark);
    const QPalette original = QApplication::palette();
    if (dark)
        QApplication::setPalette(darkPalette());
    auto restore = qScopeGuard([&original] { QApplication::setPalette(original); });
    // The pictures' names carry the scale, the palette and any language other than English.
    m_suffix = u"@%1x-%2"_qs.arg(qApp->devicePixelRatio()).arg(dark ? u"dark"_qs : u"light"_qs);
    if (const QString language = QLocale().name().section(u'_', 0, 0); language != u"en" && language != u"C")
        m_suffix += u'-' + language;
    if (qEnvironmentVariable("QT_QPA_PLATFORMTHEME") == u"gtk3")
        m_suffix += u"-gtk"_qs;

    // Pairing: the code keeps whole 15-point modules, inside its white box.
    QRCodeViewController::setAddressSourceForTesting([] {
        return QStringList { u"192.168.100.200"_qs, u"10.0.0.7"_qs };
    });
    {
        AppWindow window(m_app->services);
        auto* pairing = new QRCodeViewController(m_app->phone, nullptr);
        window.setContent(pairing);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QSizeF code = part<QLabel>(pairing, "qrCodeImage")->pixmap().deviceIndependentSize();
        QCOMPARE(std::fmod(code.width(), QRCodeViewController::moduleSize), 0.0);
        QVERIFY(code.width() >= 21 * QRCodeViewController::moduleSize);
        QVERIFY(part<QLabel>(pairing, "qrCodeImage")->width() >= code.width());
        const auto rect = [pairing](QWidget* w) { return QRect(w->mapTo(pairing, QPoint()), w->size()); };
        QVERIFY(rect(part<QWidget>(pairing, "qrCodeWhiteBackground"))
                    .contains(rect(part<QLabel>(pairing, "qrCodeImage"))));
        save(&window, u"pairing"_qs);
        // The version stays 20 pixels from the corner, whatever the size.
        window.resize(window.size() + QSize(120, 80));
        QTRY_COMPARE(part<QLabel>(pairing, "versionLabel")->geometry().bottomRight(),
            QPoint(pairing->width() - 21, pairing->height() - 21));
    }
    // At the window's smallest: a first phone asks to pair; three devices ask at once, two of
    // them alike; the screen after contact with the trusted phone was lost; and the screen
    // while another program holds the listener's port.
    for (const QString& shown :
        { u"pair-request"_qs, u"several-requests"_qs, u"lost"_qs, u"listener-failed"_qs }) {
        auto reset = qScopeGuard([] {
            TrustedPhone::forget();
            Session::instance().resetForTesting();
        });
        const bool lost = shown == u"lost";
        PhoneConnection::Options options = quietPhone;
        options.watchdog.period = std::chrono::milliseconds(10); // lost at once when watched
        TestServices app(
            Session::defaultPhoneServicePort, lost ? options : quietPhone, TestServices::noAnswer);
        QTcpServer holder;
        std::optional<MobileDeviceListener> listener;
        if (lost) {
            // The phone watched goes silent: lost after two pings.
            app.pair(u"127.0.0.20"_qs, u"Alex's Pixel"_qs, u"alex.morgan@example.com"_qs,
                u"http://127.0.0.20:8080/"_qs);
            QTRY_COMPARE(app.phone.state(), PhoneConnection::State::Lost);
        } else if (shown == u"listener-failed") {
            QVERIFY(holder.listen(QHostAddress::AnyIPv4, 0));
            QVERIFY(!listener.emplace(app.phone, holder.serverPort()).start());
        } else {
            for (const auto& [ip, name, email] :
                { std::tuple { "192.168.1.31", "Bo's Pixel", "bo@example.com" },
                    { "192.168.1.77", "Bo's Pixel", "bo@example.com" },
                    { "192.168.1.40", "Office tablet", "" } }) {
                if (shown == u"pair-request" && ip != std::string_view("192.168.1.31"))
                    continue;
                const QString at = QString::fromLatin1(ip);
                QCOMPARE(
                    app.phone.offer({ at, QString::fromUtf8(name),
                                        *email ? std::optional(QString::fromLatin1(email)) : std::nullopt,
                                        u"http://" + at + u":8080/" },
                        at),
                    PhoneConnection::Decision::Held);
            }
        }
        AppWindow window(app.services);
        auto* pairing = new QRCodeViewController(app.phone, nullptr);
        window.setContent(pairing);
        window.resize(window.minimumSize());
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTRY_VERIFY(lost ? part<QLabel>(pairing, "contactLabel")->isVisible()
                : shown == u"listener-failed"
                ? part<QLabel>(pairing, "ipAdressLabel")->text() == app.phone.listenerProblem()
                : part<PairingRequestBar>(pairing, "PairingRequestBar")->isVisible());
        save(&window, u"pairing-"_qs + shown);
    }
    QRCodeViewController::setAddressSourceForTesting({});

    AppWindow window(m_app->services);
    auto* content = new MainViewController(m_app->services);
    window.setContent(content);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    MainViewController& main = *content;
    save(&window, u"encrypt-empty"_qs);

    // Tabs stand on the panel and keep their height whichever is selected.
    const int tabHeight = part<CustomButton>(&main, "encryptTab")->height();
    for (auto select : { &MainViewController::selectDecrypt, &MainViewController::selectAbout,
             &MainViewController::selectEncrypt }) {
        (main.*select)();
        QVERIFY(waitUntilDrawingSettles(&window, settleMs));
        for (CustomButton* tab :
            { part<CustomButton>(&main, "encryptTab"), part<CustomButton>(&main, "decryptTab") }) {
            QCOMPARE(tab->height(), tabHeight);
            QCOMPARE(tab->mapTo(&main, QPoint(0, tab->height())).y(),
                part<QWidget>(&main, "grayBackground")->mapTo(&main, QPoint()).y());
        }
    }

    // The strokes under each intake title join into one rule, from under the title to under
    // the last button: no gap between them and nothing hanging past the buttons.
    for (FileScreen* screen :
        { static_cast<FileScreen*>(main.encryptScreen()), static_cast<FileScreen*>(main.decryptScreen()) }) {
        const bool decrypt = screen == main.decryptScreen();
        if (decrypt)
            main.selectDecrypt();
        const QList<Line*> lines = screen->lines();
        QCOMPARE(lines.size(), decrypt ? 2 : 3);
        const auto x = [screen](QWidget* w) { return w->mapTo(screen, QPoint()).x(); };
        QCOMPARE(x(lines.first()), x(screen->widgets().intakeText));
        for (int i = 1; i < lines.size(); ++i) {
            QCOMPARE(x(lines.at(i)), x(lines.at(i - 1)) + lines.at(i - 1)->width());
            QVERIFY(lines.at(i - 1)->width() <= 286); // a wider share would leave a gap
        }
        const int end = x(lines.last()) + std::min(lines.last()->width(), 286);
        // Under the last button, or as far as the strokes reach when a translation is longer.
        const int buttonsEnd
            = x(screen->widgets().removeFilesButton) + screen->widgets().removeFilesButton->width();
        QCOMPARE(end, std::min(buttonsEnd, x(lines.first()) + int(lines.size()) * 285));
    }
    main.selectEncrypt();

    EncryptViewController* encrypt = main.encryptScreen();
    // The focus border is always there, clear until focused: focus changes neither size nor title.
    const QSize upload = encrypt->widgets().chooseFilesButton->sizeHint();
    encrypt->widgets().chooseFilesButton->setFocus();
    QCOMPARE(encrypt->widgets().chooseFilesButton->sizeHint(), upload);
    QVERIFY(encrypt->widgets().chooseFilesButton->width() >= upload.width());
    encrypt->intakeList()->addFiles(m_files);
    encrypt->intakeList()->flip(0);
    encrypt->intakeList()->flip(2);
    AssociationsStore* store = encrypt->recipients()->store();
    store->setUsers(RecordDecoding::usersBody(users).users.value());
    store->setGroups(std::get<QList<GroupPtr>>(RecordDecoding::groupListBody(groups)));
    store->toggleGroupExpansion(1);
    if (!store->groupById(1)->isChecked) // the mark is remembered from the run before
        store->toggleGroupChecked(1);
    encrypt->recipients()->model()->clickRow(0); // Ann Lee
    // The working screens at the window's smallest: every title, button and line still whole.
    const QSize size = window.size();
    window.resize(window.minimumSize());
    save(&window, u"encrypt"_qs);
    main.selectDecrypt();
    main.decryptScreen()->intakeList()->addFiles(
        { *WorkingFolders::encryptedFilesFolder() + u"/contract.pdf.vx"_qs });
    save(&window, u"decrypt"_qs);
    main.selectAbout();
    save(&window, u"about"_qs);
    main.selectEncrypt();
    window.resize(size);

    // The overlay with its figures, over its own screen; its spinner turns for good.
    QVERIFY(waitUntilDrawingSettles(&window, settleMs));
    auto* overlay = new EncryptingViewController(encrypt);
    overlay->setStage(qtTrId("stageSending").arg(u"412.0 MB"_qs, u"1.1 GB"_qs), 412, 1100);
    overlay->setDetail(qtTrId("transferSpeedAndTimeLeft").arg(u"38.2 MB/s"_qs, u"0:18"_qs));
    overlay->show();
    QTRY_COMPARE(window.focusWidget(), overlay->cancelButton()); // also where no window manager activates it
    // Only the overlay is there to be read: the screen behind it is dimmed on purpose.
    save(&window, u"encrypting"_qs, false, overlay);
    // At the smallest size too, and the other screen meanwhile, whole and in the user's hands.
    window.resize(window.minimumSize());
    QTRY_COMPARE(overlay->size(), encrypt->size());
    save(&window, u"encrypting-smallest"_qs, false, overlay);
    main.selectDecrypt();
    save(&window, u"decrypt-while-encrypting"_qs);
    main.selectEncrypt();
    window.resize(size);
    delete overlay;

    // The group dialogs, real ones: looked at once they show, then closed.
    QStringList seen;
    checkNextDialog(u"create"_qs, seen);
    encrypt->recipients()->createGroupButtonClicked();
    checkNextDialog(u"members"_qs, seen);
    Dialogs::current().chooseItems(&main, qtTrId("groupAddUsersTitle").arg(u"Family"_qs), QString(),
        { u"Ann Lee\nann.lee@example.com"_qs, u"Chen Wei\nchen@example.com"_qs,
            u"Bartholomew Featherstonehaugh-Montgomery\nbartholomew.f@example.com"_qs },
        Dialogs::okText(), Dialogs::cancelText());
    checkNextDialog(u"message"_qs, seen);
    Dialogs::current().alert(
        &main, qtTrId("groupErrorTitle"), qtTrId("groupNameRule"), Dialogs::Style::Warning);
    checkNextDialog(u"files"_qs, seen);
    QVERIFY(Dialogs::current().chooseFiles(&main, m_home.path()).isEmpty());
    QCOMPARE(seen, QStringList({ u"create"_qs, u"members"_qs, u"message"_qs, u"files"_qs }));

    // The group menu and a tool tip: the system's own, in the system's palette.
    std::unique_ptr<QMenu> menu(encrypt->recipients()->buildGroupMenu(1));
    QVERIFY(menu);
    menu->popup(main.mapToGlobal(QPoint(700, 300)));
    QVERIFY(QTest::qWaitForWindowExposed(menu.get()));
    save(menu.get(), u"menu-group"_qs);
    menu->close();
    // An empty group's menu, with its switched-off Remove Member.
    menu.reset(encrypt->recipients()->buildGroupMenu(2));
    QVERIFY(menu);
    menu->popup(main.mapToGlobal(QPoint(700, 300)));
    QVERIFY(QTest::qWaitForWindowExposed(menu.get()));
    save(menu.get(), u"menu-group-empty"_qs);
    menu->close();
    QToolTip::showText(
        main.mapToGlobal(QPoint(300, 120)), encrypt->widgets().chooseFilesButton->toolTip(), &main);
    QTRY_VERIFY(QToolTip::isVisible());
    const QWidgetList tops = QApplication::topLevelWidgets();
    QWidget* tip
        = *std::find_if(tops.begin(), tops.end(), [](QWidget* w) { return w->inherits("QTipLabel"); });
    save(tip, u"tooltip"_qs);
    QToolTip::hideText();
}

void TestScreenshots::phoneNumbers_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("phone");
    QTest::addColumn<int>("line");
    QTest::addColumn<bool>("whole");
    QTest::newRow("short name") << u"ANN LEE"_qs << u"+44 20 7946 0000"_qs << 360 << true;
    QTest::newRow("long phone, room") << u"CHEN WEI"_qs << u"+1 (555) 010-0199 ext. 4421"_qs << 360 << true;
    QTest::newRow("long name") << u"BARTHOLOMEW FEATHERSTONEHAUGH-MONTGOMERY"_qs
                               << u"+1 (555) 010-0199 ext. 4421"_qs << 360 << false;
    QTest::newRow("narrow line") << u"ANN LEE"_qs << u"+44 20 7946 0000"_qs << 90 << false;
    QTest::newRow("no phone") << u"ANN LEE"_qs << QString() << 360 << true;
}

void TestScreenshots::phoneNumbers()
{
    // A phone number is shown whole when the name leaves room, else shortened, never dropped.
    QFETCH(QString, name);
    QFETCH(QString, phone);
    QFETCH(int, line);
    QFETCH(bool, whole);
    const auto shown = AssociatedUserCellView::phoneLayout(phone, name, line, QApplication::font());
    QCOMPARE(shown.text == phone, whole);
    if (phone.isEmpty())
        return;
    QVERIFY(shown.width > 0 && shown.width <= line);
    if (!whole) {
        QVERIFY(shown.text.endsWith(QChar(0x2026)));
        QVERIFY(shown.width >= line * 45 / 100); // the name gives way too
    }
}

QTEST_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
