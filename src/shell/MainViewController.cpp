#include "shell/MainViewController.h"

#include "app/Log.h"
#include "app/Session.h"
#include "app/Texts.h"
#include "files/IntakeList.h"
#include "pairing/PhoneConnection.h"
#include "screens/AboutViewController.h"
#include "screens/DecryptViewController.h"
#include "screens/EncryptViewController.h"
#include "screens/PairingRequestBar.h"
#include "screens/RecipientsPanel.h"
#include "shell/AppServices.h"
#include "widgets/ButtonKeys.h"
#include "widgets/Colors.h"
#include "widgets/CustomButton.h"
#include "widgets/RoundedPanel.h"
#include "widgets/ShortcutTip.h"
#include "widgets/TabList.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QPushButton>
#include <QShortcut>
#include <QStackedLayout>
#include <QSvgWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

Q_LOGGING_CATEGORY(lcMain, "varnex.shell")

namespace {

constexpr int tabCorners = RoundedPanel::TopLeft | RoundedPanel::TopRight;

// Runs `then` once none of `lists` has a batch of files waiting to be admitted (large batches
// are looked at on a worker thread), or not at all once `context` is gone.
void whenAdmitted(const QList<IntakeList*>& lists, QObject* context, const std::function<void()>& then)
{
    for (IntakeList* list : lists) {
        if (list->isAdmitting()) {
            QObject::connect(
                list, &IntakeList::admissionEnded, context,
                [lists, context, then] { whenAdmitted(lists, context, then); }, Qt::SingleShotConnection);
            return;
        }
    }
    then();
}

// A navigation tab standing in `backing`, one of the tab list `tabs`.
CustomButton* makeTab(TabList* tabs, QWidget* backing, const QString& title)
{
    auto* tab = new CustomButton(backing);
    tab->setTitle(title);
    tab->setAccessibleName(title);
    tab->setCornerRadius(12);
    // Rounded on top only: the tab stands on the panel, and its backing never shows below it.
    tab->setRoundedCorners(tabCorners);
    // The active look is what an unselected tab shows: dark text on the orange (the light grey
    // text of old read at 1.5:1). Whatever colours a tab is given later, its title is drawn in
    // the same hue made dark enough to read on its fill.
    tab->setActiveBackgroundColor(Colors::darkOrange);
    tab->setActiveTextColor(Colors::readableOn(Colors::grayColor, Colors::darkOrange));
    tab->setColorGenerator(CustomButton::ColorProperty::Text,
        [tab] { return Colors::readableOn(tab->textColor(), tab->backgroundColor()); });
    tab->setColorGenerator(CustomButton::ColorProperty::ActiveText,
        [tab] { return Colors::readableOn(tab->activeTextColor(), tab->activeBackgroundColor()); });
    QFont font = tab->font();
    font.setPointSize(13);
    font.setBold(true);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
    tab->setFont(font);
    auto* fill = new QHBoxLayout(backing);
    fill->setContentsMargins(0, 0, 0, 0);
    fill->addWidget(tab);
    // The tab fills its backing, so both stand on the panel at the same height in every state.
    tab->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    // Wider when the title needs it (a longer language), so the title is never cut.
    backing->setFixedSize(std::max(170, tab->sizeHint().width()), 46);
    tabs->addTab(backing, tab);
    return tab;
}

} // namespace

MainViewController::MainViewController(AppServices& services, QWidget* parent)
    : QWidget(parent)
    , m_services(services)
{
    setObjectName(QStringLiteral("main_vc"));
    pressButtonsOnEnter();
    viewDidLoad();
    installShortcuts();
}

void MainViewController::viewDidLoad()
{
    qCInfo(lcMain, "🔵 MainViewController viewDidLoad started");

    // Header: the product on the left, the navigation on the right, sitting on the panel.
    auto* logo = new QSvgWidget(QStringLiteral(":/images/varnex.svg"), this);
    logo->setFixedSize(34, 34);
    auto* product = new QLabel(QStringLiteral("VARNEX"), this);
    QFont productFont = product->font();
    productFont.setPointSize(17);
    productFont.setBold(true);
    productFont.setLetterSpacing(QFont::AbsoluteSpacing, 3);
    product->setFont(productFont);
    product->setStyleSheet(QStringLiteral("color: rgb(45,45,45);")); // white on amber would not read

    auto* tabs = new TabList(this);
    auto* encryptBacking = new RoundedPanel(Colors::primaryColor, 12, tabCorners, tabs);
    auto* decryptBacking = new RoundedPanel(Colors::primaryColor, 12, tabCorners, tabs);
    encryptButton = encryptBacking;
    decryptButton = decryptBacking;
    //: Encrypt navigation button
    //% "ENCRYPT"
    encryptButtonTest = makeTab(tabs, encryptBacking, qtTrId("encryptButton"));
    //: Decrypt navigaiton button
    //% "DECRYPT"
    decryptButtonCustom = makeTab(tabs, decryptBacking, qtTrId("decryptButton"));
    decryptButton->setAccessibleName(decryptButtonCustom->title());
    encryptButtonTest->setObjectName(QStringLiteral("encryptTab"));
    decryptButtonCustom->setObjectName(QStringLiteral("decryptTab"));
    decryptButton->setObjectName(QStringLiteral("decryptTabBacking"));

    aboutButton = new QToolButton(this);
    aboutButton->setObjectName(QStringLiteral("aboutButton"));
    aboutButton->setAutoRaise(true);
    aboutButton->setFixedSize(53, 53);
    aboutButton->setIconSize(QSize(30, 30));
    //: Name and tool tip of the About navigation button
    //% "About"
    aboutButton->setAccessibleName(qtTrId("aboutButton"));
    aboutButton->setToolTip(aboutButton->accessibleName());
    aboutButton->setCursor(Qt::PointingHandCursor);
    // A round button on the amber, like the tabs: no system panel, a dark ring when focused.
    aboutButton->setStyleSheet(QStringLiteral(
        "QToolButton { background: transparent; border: 2px solid transparent; border-radius: 26px; }"
        "QToolButton:hover { background: rgb(254,173,2); }"
        "QToolButton:pressed { background: rgb(235,160,0); }"
        "QToolButton:focus { border-color: rgb(45,45,45); }"));
    setAboutIcon(QStringLiteral("info"));

    connect(encryptButtonTest, &CustomButton::clicked, this, &MainViewController::selectEncrypt);
    connect(decryptButtonCustom, &CustomButton::clicked, this, &MainViewController::selectDecrypt);
    connect(aboutButton, &QToolButton::clicked, this, &MainViewController::selectAbout);

    auto* header = new QHBoxLayout;
    header->setContentsMargins(28, 10, 20, 0);
    header->setSpacing(10);
    header->addWidget(logo, 0, Qt::AlignVCenter);
    header->addWidget(product, 0, Qt::AlignVCenter);
    header->addStretch();
    header->addWidget(tabs, 0, Qt::AlignBottom);
    header->addSpacing(8);
    header->addWidget(aboutButton, 0, Qt::AlignVCenter);

    // The grey panel with its one rounded corner, holding the screens.
    // Light, or dark with a dark desktop; the amber around it stays.
    auto* panel = new RoundedPanel(Colors::scheme().panel, 35, RoundedPanel::TopLeft, this);
    grayBackground = panel;
    panel->setObjectName(QStringLiteral("grayBackground"));
    panel->setPalette(Colors::schemePalette(panel->palette()));
    container = new QWidget(panel);
    container->setObjectName(QStringLiteral("container"));
    auto* panelLayout = new QVBoxLayout(panel);
    panelLayout->setContentsMargins(24, 22, 24, 20);
    panelLayout->addWidget(container);
    m_stack = new QStackedLayout(container);
    m_stack->setContentsMargins(0, 0, 0, 0);

    // Another phone asking to pair shows here, above everything, until answered.
    pairingRequestBar = new PairingRequestBar(m_services.phone, this);
    auto* barRow = new QHBoxLayout;
    barRow->setContentsMargins(20, 10, 20, 0);
    barRow->addWidget(pairingRequestBar);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(barRow);
    layout->addLayout(header);
    layout->addWidget(panel, 1);

    // The tabs' screens are this screen's own parts, made here rather than through the
    // screen factory, which makes this screen.
    vc1 = new EncryptViewController(
        m_services.phone.session(), m_services.notifier, m_services.phoneService, m_services.api, container);
    vc2 = new DecryptViewController(m_services.phone.session(), m_services.notifier, container);
    vc3 = new AboutViewController(m_services.phone, container);
    for (QWidget* screen :
        { static_cast<QWidget*>(vc1), static_cast<QWidget*>(vc2), static_cast<QWidget*>(vc3) })
        m_stack->addWidget(screen);
    m_stack->setCurrentWidget(vc1);

    // An encrypted result sent on from the Encrypt screen's list: to Decrypt, marked.
    connect(vc1, &FileScreen::decryptRequested, this,
        [this](const QStringList& paths) { openFiles(paths, paths); });
    connect(vc3, &AboutViewController::forgetRequested, &m_services.phone, &PhoneConnection::forget);
    // The same phone re-pairing under a new name, or found again.
    connect(&m_services.phone, &PhoneConnection::pairingApplied, this, &MainViewController::updateTitle);

    setTabOrder(pairingRequestBar->lastControl(), encryptButtonTest);
    setTabOrder(encryptButtonTest, decryptButtonCustom);
    setTabOrder(decryptButtonCustom, aboutButton);
    qCInfo(lcMain, "🔵 MainViewController viewDidLoad finished");
    viewDidAppear();
}

void MainViewController::viewDidAppear()
{
    qCInfo(lcMain, "🟢 MainViewController viewDidAppear started");
    encryptButtonTest->setBackgroundColor(Colors::scheme().panel);
    encryptButtonTest->setTextColor(Colors::primaryColor);
    decryptButtonCustom->setBackgroundColor(Colors::darkOrange);
    decryptButtonCustom->setTextColor(Colors::grayColor);
    decryptButtonCustom->setChecked(true);
    decryptButtonCustom->refresh();
    encryptButtonTest->refresh();
    TabList::setSelected(encryptButtonTest, true);
    TabList::setSelected(decryptButtonCustom, false);
    setAboutIcon(QStringLiteral("info"));
    qCInfo(lcMain, "🟢 MainViewController viewDidAppear finished");
}

void MainViewController::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    updateTitle();
}

void MainViewController::updateTitle()
{
    const Session& session = m_services.phone.session();
    if (isVisible() && session.isPhoneConnected())
        window()->setWindowTitle(
            Texts::varnexDesktopConnected() + Texts::deviceName(session.mobileDeviceName()) + u')');
}

void MainViewController::showScreen(QWidget* screen)
{
    m_stack->setCurrentWidget(screen);
}

QWidget* MainViewController::currentScreen() const
{
    return m_stack->currentWidget();
}

void MainViewController::setAboutIcon(const QString& name)
{
    m_aboutIcon = name;
    aboutButton->setIcon(QIcon(u":/images/" + name + u".svg"));
}

QColor MainViewController::encryptButtonBackground() const
{
    return static_cast<RoundedPanel*>(encryptButton)->color();
}

namespace {

void setTabLook(CustomButton* tab, const QColor& background, const QColor& text, bool on)
{
    tab->setBackgroundColor(background);
    // The same hue, dark enough to read on the fill (amber text on the grey reads at 1.5:1).
    tab->setTextColor(Colors::readableOn(text, background));
    tab->setChecked(on);
    tab->refresh();
    // The selected tab is the one in its normal look (state off).
    TabList::setSelected(tab, !on);
}

} // namespace

void MainViewController::selectEncrypt()
{
    showScreen(vc1);
    setTabLook(encryptButtonTest, Colors::scheme().panel, Colors::primaryColor, false);
    setTabLook(decryptButtonCustom, Colors::darkOrange, Colors::grayColor, true);
    setAboutIcon(QStringLiteral("info"));
}

void MainViewController::selectDecrypt()
{
    showScreen(vc2);
    setTabLook(encryptButtonTest, Colors::darkOrange, Colors::grayColor, true);
    setTabLook(decryptButtonCustom, Colors::scheme().panel, Colors::primaryColor, false);
    static_cast<RoundedPanel*>(encryptButton)->setColor(Colors::darkOrange);
    setAboutIcon(QStringLiteral("info"));
}

void MainViewController::selectAbout()
{
    showScreen(vc3);
    setTabLook(encryptButtonTest, Colors::darkOrange, Colors::grayColor, true);
    setTabLook(decryptButtonCustom, Colors::darkOrange, Colors::grayColor, true);
    setAboutIcon(QStringLiteral("info_fill"));
}

QStringList MainViewController::intakeFiles(bool markedOnly) const
{
    QStringList paths;
    for (const FileScreen* screen :
        { static_cast<const FileScreen*>(vc1), static_cast<const FileScreen*>(vc2) }) {
        for (const auto& file : screen->intakeList()->files()) {
            if (file->filePath && (file->isChecked || !markedOnly))
                paths.append(*file->filePath);
        }
    }
    return paths;
}

void MainViewController::openFiles(const QStringList& paths, const QStringList& marked)
{
    if (paths.isEmpty())
        return;
    const auto encryptedName = [](const QString& path) {
        return IntakeList::isEncryptedName(path.section(u'/', -1, -1, QString::SectionSkipEmpty));
    };
    QStringList encrypted;
    QStringList others;
    for (const QString& path : paths)
        (encryptedName(path) ? encrypted : others).append(path);
    if (encryptedName(paths.constFirst()))
        selectDecrypt();
    else
        selectEncrypt();
    // Each list may say what it refused; the dialog may outlive this screen.
    const QPointer<MainViewController> self(this);
    if (!others.isEmpty())
        vc1->addFiles(others, marked);
    if (self && !encrypted.isEmpty())
        vc2->addFiles(encrypted, marked);
    if (!self)
        return;
    // Where the handed-over files ended up, for whoever reads the program's diagnostics: told
    // once both lists have admitted them.
    whenAdmitted({ vc1->intakeList(), vc2->intakeList() }, this, [this, others, encrypted] {
        const QStringList listed = intakeFiles();
        const auto names = [&listed](const QStringList& candidates) {
            QStringList found;
            for (const QString& path : candidates) {
                if (listed.contains(path))
                    found.append(path.section(u'/', -1));
            }
            return Log::escaped(found.join(u", ")); // a file name may hold a line break
        };
        qCInfo(lcMain).noquote() << "handed-over files listed: Encrypt:" << names(others)
                                 << "| Decrypt:" << names(encrypted);
    });
}

void MainViewController::installShortcuts()
{
    encryptButtonTest->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    decryptButtonCustom->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_2));
    aboutButton->setShortcut(QKeySequence(QKeySequence::HelpContents));
    showShortcutInToolTip(aboutButton);
    // A tab's tool tip sits on its backing, which the tab fills (a tool tip the tab has not
    // goes to it): on the tab itself it would stand in for the accessible description,
    // which says which tab is shown.
    for (CustomButton* tab : { encryptButtonTest, decryptButtonCustom }) {
        tab->parentWidget()->setToolTip(
            tab->title() + QStringLiteral(" (") + tab->shortcut().toString(QKeySequence::NativeText) + u')');
    }

    // Find: the recipients' search, on the Encrypt screen (the only one with recipients).
    auto* find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, this, [this] {
        selectEncrypt();
        QLineEdit* search = vc1->recipients()->widgets().searchTextField;
        search->setFocus(Qt::ShortcutFocusReason);
        search->selectAll();
    });
    //: Tool tip of the recipients' search field; %1 is its shortcut (Ctrl+F)
    //% "Search people and groups (%1)"
    vc1->recipients()->widgets().searchTextField->setToolTip(
        qtTrId("searchShortcutTip").arg(find->key().toString(QKeySequence::NativeText)));
}
