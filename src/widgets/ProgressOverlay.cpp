#include "widgets/ProgressOverlay.h"

#include "widgets/Colors.h"
#include "widgets/RoundedPanel.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QGraphicsDropShadowEffect>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

namespace {

// A light spinner: twelve spokes, the brightest one moving round.
class Spinner : public QWidget
{
public:
    explicit Spinner(QWidget* parent)
        : QWidget(parent)
    {
        setFixedSize(44, 44);
        m_timer.setInterval(80);
        QObject::connect(&m_timer, &QTimer::timeout, this, [this] {
            m_step = (m_step + 1) % 12;
            update();
        });
        m_timer.start();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.translate(width() / 2.0, height() / 2.0);
        for (int i = 0; i < 12; ++i) {
            QColor spoke(Colors::ink); // dark on the amber, as the text
            spoke.setAlphaF(0.25 + 0.75 * (((i - m_step + 12) % 12) / 11.0));
            p.setPen(QPen(spoke, 3.5, Qt::SolidLine, Qt::RoundCap));
            p.drawLine(QPointF(0, -11), QPointF(0, -19));
            p.rotate(30);
        }
    }

private:
    QTimer m_timer;
    int m_step = 0;
};

} // namespace

// A progress bar drawn in the panel's colours. With nothing to measure (the phone works, the
// reply's length is unknown) a block slides along it for as long as it shows, so it never
// looks stuck half way.
class ProgressOverlay::Bar : public QProgressBar
{
public:
    explicit Bar(QWidget* parent)
        : QProgressBar(parent)
    {
        m_slide.setInterval(30);
        QObject::connect(&m_slide, &QTimer::timeout, this, qOverload<>(&QWidget::update));
        m_clock.start();
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        const bool busy = maximum() <= minimum();
        if (busy != m_slide.isActive())
            busy ? m_slide.start() : m_slide.stop();
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        const QRectF track = rect();
        const qreal radius = track.height() / 2;
        p.setBrush(QColor(255, 255, 255, 110));
        p.drawRoundedRect(track, radius, radius);
        QRectF chunk = track;
        if (busy) {
            // A third of the bar, there and back every 1.6 s.
            const qreal phase = (m_clock.elapsed() % 1600) / 800.0;
            const qreal at = phase <= 1 ? phase : 2 - phase;
            chunk.setWidth(track.width() / 3);
            chunk.moveLeft(at * (track.width() - chunk.width()));
        } else {
            chunk.setWidth(track.width() * (value() - minimum()) / qreal(maximum() - minimum()));
        }
        p.setBrush(Colors::ink);
        p.drawRoundedRect(chunk, radius, radius);
    }
    void hideEvent(QHideEvent* event) override
    {
        m_slide.stop();
        QProgressBar::hideEvent(event);
    }

private:
    QTimer m_slide;
    QElapsedTimer m_clock;
};

ProgressOverlay::ProgressOverlay(const QString& title, QWidget* screen)
    : QWidget(screen)
    , m_panel(new RoundedPanel(Colors::primaryColor, 35, RoundedPanel::AllCorners, this))
    , m_text(new QLabel(title, m_panel))
    , m_spinner(new Spinner(m_panel))
    , m_stage(new QLabel(m_panel))
    , m_detail(new QLabel(m_panel))
    , m_progress(new Bar(m_panel))
    , m_cancel(new QPushButton(m_panel))
{
    setAttribute(Qt::WA_NoSystemBackground);
    m_panel->setFixedSize(400, 280);
    auto* shadow = new QGraphicsDropShadowEffect(m_panel);
    shadow->setBlurRadius(24);
    shadow->setOffset(0, 4);
    shadow->setColor(QColor(0, 0, 0, 90));
    m_panel->setGraphicsEffect(shadow);

    QFont titleFont = m_text->font();
    titleFont.setPointSize(18);
    titleFont.setBold(true);
    titleFont.setLetterSpacing(QFont::AbsoluteSpacing, 2);
    m_text->setFont(titleFont);
    m_text->setStyleSheet(QStringLiteral("color: rgb(45,45,45);")); // white on amber would not read
    m_text->setAlignment(Qt::AlignCenter);
    m_stage->setStyleSheet(QStringLiteral("color: rgb(45,45,45);"));
    m_stage->setAlignment(Qt::AlignCenter);
    m_stage->setWordWrap(true);
    m_detail->setStyleSheet(QStringLiteral("color: rgb(70,55,20);"));
    m_detail->setAlignment(Qt::AlignCenter);
    m_detail->hide();
    //: Accessible name of the progress bar of an encryption or decryption
    //% "Progress"
    m_progress->setAccessibleName(qtTrId("operationProgress"));
    setAccessibleName(title);
    m_progress->setTextVisible(false);
    m_progress->setFixedHeight(8);
    m_progress->setRange(0, 0);
    //: Button that stops a running encryption or decryption
    //% "Cancel"
    m_cancel->setText(qtTrId("cancelOperation"));
    m_cancel->setAccessibleName(m_cancel->text());
    m_cancel->setCursor(Qt::PointingHandCursor);
    // A pill in the panel's style: white on amber with dark text, its ends fully round.
    m_cancel->setFixedHeight(34);
    m_cancel->setMinimumWidth(120);
    m_cancel->setStyleSheet(
        QStringLiteral("QPushButton { color: rgb(45,45,45); background: white; border: 2px solid transparent;"
                       " border-radius: 17px; padding: 0 26px; font-weight: bold; letter-spacing: 1px; }"
                       "QPushButton:focus { border-color: rgb(150,100,0); }"
                       "QPushButton:hover { background: rgb(255,250,235); }"
                       "QPushButton:pressed { background: rgb(247,247,247); }"));
    connect(m_cancel, &QPushButton::clicked, this, &ProgressOverlay::cancelRequested);
    // Escape where the keyboard is on the overlay (it goes there when the overlay shows, and
    // with a click on it): elsewhere in the window it belongs to what has the focus there.
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    escape->setContext(Qt::WidgetWithChildrenShortcut);
    setFocusProxy(m_cancel);
    setFocusPolicy(Qt::ClickFocus);
    connect(escape, &QShortcut::activated, this, &ProgressOverlay::cancelRequested);

    auto* layout = new QVBoxLayout(m_panel);
    layout->setContentsMargins(36, 26, 36, 22);
    layout->setSpacing(10);
    layout->addStretch();
    layout->addWidget(m_spinner, 0, Qt::AlignHCenter);
    layout->addWidget(m_text);
    layout->addWidget(m_stage);
    layout->addWidget(m_detail);
    layout->addWidget(m_progress);
    layout->addSpacing(4);
    layout->addWidget(m_cancel, 0, Qt::AlignHCenter);
    layout->addStretch();

    if (screen) {
        screen->installEventFilter(this);
        setGeometry(screen->rect());
    }
    describe();
}

ProgressOverlay::~ProgressOverlay()
{
    releaseScreen();
}

void ProgressOverlay::holdScreen()
{
    if (!m_held.isEmpty() || !parentWidget())
        return;
    // What the overlay covers takes no clicks, keys or focus: the rest of the window (the
    // tabs, the other screen, About, a phone asking to pair) stays in the user's hands.
    if (QWidget* focus = QApplication::focusWidget();
        focus && parentWidget()->isAncestorOf(focus) && !isAncestorOf(focus))
        m_previousFocus = focus;
    for (QWidget* part : parentWidget()->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
        if (part != this && part->isEnabled() && !part->isWindow()) {
            part->setEnabled(false);
            m_held.append(part);
        }
    }
}

void ProgressOverlay::releaseScreen()
{
    for (const QPointer<QWidget>& part : std::exchange(m_held, {})) {
        if (part)
            part->setEnabled(true);
    }
    if (m_previousFocus && m_previousFocus->isVisible() && m_previousFocus->isEnabled())
        m_previousFocus->setFocus(Qt::OtherFocusReason);
}

void ProgressOverlay::describe()
{
    QString text = m_stage->text();
    if (m_detail->isVisibleTo(m_panel) && !m_detail->text().isEmpty())
        text += u", " + m_detail->text();
    setAccessibleDescription(text);
}

void ProgressOverlay::setDetail(const QString& text)
{
    m_detail->setText(text);
    m_detail->setVisible(!text.isEmpty());
    describe();
}

void ProgressOverlay::setStage(const QString& text, qint64 done, qint64 total)
{
    m_stage->setText(text);
    describe();
    if (total <= 0) {
        m_progress->setRange(0, 0);
        return;
    }
    // Scaled to stay within int for files beyond 2 GB.
    m_progress->setRange(0, 1000);
    m_progress->setValue(int(qBound(qint64(0), done * 1000 / total, qint64(1000))));
}

bool ProgressOverlay::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

void ProgressOverlay::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(0, 0, 0, 70));
}

void ProgressOverlay::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_panel->move((width() - m_panel->width()) / 2, (height() - m_panel->height()) / 2);
}

void ProgressOverlay::setVisible(bool visible)
{
    // Held from show() on, even while its screen is out of sight behind another tab.
    if (visible)
        holdScreen();
    QWidget::setVisible(visible);
    if (!visible)
        releaseScreen();
}

void ProgressOverlay::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    raise();
    // Shown again with its screen (back from another tab): the keyboard stays where it is.
    if (!std::exchange(m_shownOnce, true))
        m_cancel->setFocus();
}

EncryptingViewController::EncryptingViewController(QWidget* parent)
    //: Encrypting text
    //% "ENCRYPTING"
    : ProgressOverlay(qtTrId("encrypting"), parent)
{
}

DecryptingViewController::DecryptingViewController(QWidget* parent)
    //: Decrypting text
    //% "DECRYPTING"
    : ProgressOverlay(qtTrId("decrypting"), parent)
{
}
