#include "screens/FileScreen.h"

#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "files/OperationLine.h"
#include "files/ResultFolder.h"
#include "files/ResultOrderModel.h"
#include "operations/OperationRun.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileTableView.h"
#include "widgets/AnnouncedLabel.h"
#include "widgets/Colors.h"
#include "widgets/Dialogs.h"
#include "widgets/Line.h"
#include "widgets/ProgressOverlay.h"
#include "widgets/RoundedCornersBox.h"
#include "widgets/RoundedPanel.h"
#include "widgets/SearchField.h"
#include "widgets/ShortcutTip.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace {

QPushButton* makeButton(const QString& text, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setAccessibleName(text);
    button->setStyleSheet(amberButtonStyle());
    button->setCursor(Qt::PointingHandCursor);
    return button;
}

QLabel* makeTitle(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSize(13);
    font.setBold(true);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 1.5);
    label->setFont(font);
    label->setStyleSheet(u"color: " + Colors::scheme().title.name() + u';');
    return label;
}

QWidget* boxed(FileTableView* table, QWidget* parent)
{
    auto* box = new RoundedCornersBox(parent, 10);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(4, 6, 4, 6);
    layout->addWidget(table);
    return box;
}

} // namespace

void switchButton(QPushButton* button, bool on)
{
    button->setEnabled(on);
    button->setProperty("state", on ? 1 : 0);
}

FileScreen::FileScreen(Settings settings, const Session& session, DesktopNotifier& notifier, QWidget* parent)
    : QWidget(parent)
    , m_settings(std::move(settings))
    , m_session(session)
    , m_notifier(notifier)
    , m_intake(new IntakeList(m_settings.kind, this))
    , m_results(new ResultFolder(session, m_settings.resultFolder, m_settings.refreshPeriod, this))
    , m_intakeModel(new FileListModel([this]() -> const FileList& { return m_intake->files(); }, this))
    , m_resultModel(new FileListModel([this]() -> const FileList& { return m_results->files(); }, this))
    , m_columns(new QHBoxLayout)
{
    const bool encrypt = m_settings.kind == IntakeList::Kind::Encrypt;
    FileCellDelegate* intakeCell
        = encrypt ? static_cast<FileCellDelegate*>(new FileToEncryptCellView) : new FileToDecryptCellView;
    FileCellDelegate* resultCell
        = encrypt ? static_cast<FileCellDelegate*>(new EncryptedFileCellView) : new DecryptedFileCellView;
    m_widgets.intakeTable = new FileTableView(m_settings.intakeTableId, intakeCell, true, this);
    m_widgets.resultTable = new FileTableView(m_settings.resultTableId, resultCell, false, this);
    m_widgets.intakeTable->setModel(m_intakeModel);
    m_resultOrder = new ResultOrderModel(FileListModel::PathRole, this);
    m_resultOrder->setSourceModel(m_resultModel);
    m_widgets.resultTable->setModel(m_resultOrder);
    m_widgets.resultTable->setHighlightRole(ResultOrderModel::NewResultRole);
    m_widgets.resultTable->setDragOut(true);
    m_widgets.resultTable->setContextMenuPolicy(Qt::CustomContextMenu);
    m_widgets.intakeTable->setAccessibleName(m_settings.intakeTitle);
    m_widgets.resultTable->setAccessibleName(m_settings.resultTitle);
    m_intakeModel->onFlip = [this](int row) { m_intake->flip(row); };

    m_widgets.intakeText = makeTitle(m_settings.intakeTitle, this);
    m_widgets.resultText = makeTitle(m_settings.resultTitle, this);
    //: Choose files button
    //% "UPLOAD"
    m_widgets.chooseFilesButton = makeButton(qtTrId("chooseFiles"), this);
    //: Remove files button
    //% "REMOVE"
    m_widgets.removeFilesButton = makeButton(qtTrId("removeFiles"), this);
    //: Select deselect all files button
    //% "SELECT/DESELECT ALL"
    m_widgets.selectDeselectAllButton = makeButton(qtTrId("selectDeselectAll"), this);
    //: Open Varnex folder button
    //% "OPEN FOLDER"
    m_widgets.openFolderButton = makeButton(qtTrId("openVarnexFolder"), this);
    m_widgets.operationButton = makeButton(m_settings.operationTitle, this);
    m_widgets.operationButton->setMinimumSize(200, 46);
    QFont big = m_widgets.operationButton->font();
    big.setPointSize(14);
    m_widgets.operationButton->setFont(big);
    //: Tool tip of the choose files button
    //% "Choose files to add, or drop them on the list"
    m_widgets.chooseFilesButton->setToolTip(qtTrId("chooseFilesTip"));
    //: Shown in an empty list of files to encrypt or decrypt; %1 is the choose files button's title
    //% "Drop files here or press %1"
    m_widgets.intakeTable->setEmptyText(qtTrId("emptyIntakeHint").arg(m_widgets.chooseFilesButton->text()));
    m_widgets.chooseFilesButton->setProperty("state", 1);
    m_widgets.openFolderButton->setProperty("state", 1);
    // Standard keys; only the shown screen's buttons take them (hidden and switched-off
    // buttons do not), and a text field keeps its own Delete and Ctrl+A.
    m_widgets.chooseFilesButton->setShortcut(QKeySequence::Open);
    m_widgets.removeFilesButton->setShortcut(QKeySequence::Delete);
    m_widgets.selectDeselectAllButton->setShortcut(QKeySequence::SelectAll);
    // Runs the shown screen's operation from anywhere on it (the hidden twin's does not take it).
    m_widgets.operationButton->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    for (QPushButton* button : { m_widgets.chooseFilesButton, m_widgets.removeFilesButton,
             m_widgets.selectDeselectAllButton, m_widgets.operationButton })
        showShortcutInToolTip(button);

    // The intake title and its buttons sit together, with the screen's rule right under them:
    // the strokes share the width of that group, so they join into one rule that starts under
    // the title and ends under the last button, whatever the window's width.
    auto* intakeHeader = new QHBoxLayout;
    // Tight enough that the buttons keep their whole titles at the default window width.
    intakeHeader->setSpacing(8);
    intakeHeader->addWidget(m_widgets.intakeText);
    intakeHeader->addWidget(m_widgets.chooseFilesButton);
    intakeHeader->addWidget(m_widgets.selectDeselectAllButton);
    intakeHeader->addWidget(m_widgets.removeFilesButton);
    auto* lines = new QHBoxLayout;
    lines->setSpacing(0);
    for (int i = 0; i < m_settings.lineCount; ++i) {
        auto* line = new Line(this);
        line->setFixedHeight(12);
        // A stroke is 285 points long: a share wider than that would leave a gap, so the
        // strokes stay side by side and the rule ends early instead (long translations).
        line->setMaximumWidth(285);
        line->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        lines->addWidget(line, 1);
        m_lines.append(line);
    }
    lines->addStretch(0);
    auto* headerBlock = new QVBoxLayout;
    headerBlock->setSpacing(0);
    headerBlock->addLayout(intakeHeader);
    headerBlock->addSpacing(6);
    headerBlock->addLayout(lines);
    auto* header = new QHBoxLayout;
    header->addLayout(headerBlock);
    header->addStretch(1);
    auto* resultHeader = new QHBoxLayout;
    resultHeader->addWidget(m_widgets.resultText);
    resultHeader->addStretch();
    resultHeader->addWidget(m_widgets.openFolderButton);
    // Finding a result among thousands: a filter by name and the order of the list.
    m_widgets.resultFilter = new SearchField(this);
    m_widgets.resultFilter->setObjectName(QStringLiteral("resultFilter"));
    //: Placeholder of the field that filters a result list by name
    //% "Filter by name"
    m_widgets.resultFilter->setPlaceholderText(qtTrId("resultFilterPlaceholder"));
    //: Accessible name of the field that filters a result list; %1 is the list's title
    //% "Filter %1"
    m_widgets.resultFilter->setAccessibleName(qtTrId("resultFilterName").arg(m_settings.resultTitle));
    m_widgets.resultFilter->setClearButtonEnabled(true);
    m_widgets.resultFilter->setPalette(Colors::schemePalette(m_widgets.resultFilter->palette()));
    m_widgets.resultFilter->setStyleSheet(fieldStyle(13));
    m_widgets.resultOrder = new QComboBox(this);
    m_widgets.resultOrder->setObjectName(QStringLiteral("resultOrder"));
    //: Accessible name of the choice of a result list's order
    //% "Order of the results"
    m_widgets.resultOrder->setAccessibleName(qtTrId("resultOrderName"));
    //: Order of a result list
    //% "Newest first"
    m_widgets.resultOrder->addItem(qtTrId("orderNewest"), int(ResultOrderModel::Order::Newest));
    //: Order of a result list
    //% "Oldest first"
    m_widgets.resultOrder->addItem(qtTrId("orderOldest"), int(ResultOrderModel::Order::Oldest));
    //: Order of a result list
    //% "Name A–Z"
    m_widgets.resultOrder->addItem(qtTrId("orderNameAscending"), int(ResultOrderModel::Order::NameAscending));
    //: Order of a result list
    //% "Name Z–A"
    m_widgets.resultOrder->addItem(
        qtTrId("orderNameDescending"), int(ResultOrderModel::Order::NameDescending));
    //: Order of a result list
    //% "Largest first"
    m_widgets.resultOrder->addItem(qtTrId("orderLargest"), int(ResultOrderModel::Order::Largest));
    //: Order of a result list
    //% "Smallest first"
    m_widgets.resultOrder->addItem(qtTrId("orderSmallest"), int(ResultOrderModel::Order::Smallest));
    auto* finding = new QHBoxLayout;
    finding->addWidget(m_widgets.resultFilter, 1);
    finding->addWidget(m_widgets.resultOrder);

    auto* files = new QVBoxLayout;
    files->setSpacing(8);
    files->addLayout(header);
    m_intakePanel = boxed(m_widgets.intakeTable, this);
    // A drop on the panel around the list counts as one on the list.
    m_intakePanel->setAcceptDrops(true);
    m_intakePanel->installEventFilter(this);
    files->addWidget(m_intakePanel, 3);
    files->addSpacing(10);
    files->addLayout(resultHeader);
    files->addLayout(finding);
    files->addWidget(boxed(m_widgets.resultTable, this), 2);

    m_summaryRow = new QWidget(this);
    auto* summary = new QHBoxLayout(m_summaryRow);
    summary->setContentsMargins(4, 0, 0, 0);
    m_widgets.resultSummary = new QLabel(m_summaryRow);
    m_widgets.resultSummary->setForegroundRole(QPalette::WindowText);
    m_widgets.resultSummary->setTextFormat(Qt::PlainText);
    //: Button beside the summary of the last operation: shows its results in the file manager
    //% "Show in folder"
    m_widgets.showResultsButton = makeButton(qtTrId("showResultsInFolder"), m_summaryRow);
    //: Button beside the summary of an operation when some files got no result: lists them with why
    //% "Details…"
    m_widgets.detailsButton = makeButton(qtTrId("resultDetails"), m_summaryRow);
    //: Button beside the summary of an operation: sends the files that got no result again
    //% "Try again"
    m_widgets.tryAgainButton = makeButton(qtTrId("resultTryAgain"), m_summaryRow);
    for (QPushButton* button :
        { m_widgets.detailsButton, m_widgets.tryAgainButton, m_widgets.showResultsButton })
        button->setProperty("state", 1);
    summary->addWidget(m_widgets.resultSummary);
    summary->addWidget(m_widgets.detailsButton);
    summary->addWidget(m_widgets.tryAgainButton);
    summary->addWidget(m_widgets.showResultsButton);
    summary->addStretch();
    m_summaryRow->hide();
    files->addWidget(m_summaryRow);
    // What the button will do, or what it still needs, right beside it.
    m_widgets.operationLine = new AnnouncedLabel(this);
    m_widgets.operationLine->setObjectName(QStringLiteral("operationLine"));
    m_widgets.operationLine->setWordWrap(true);
    m_widgets.operationLine->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_widgets.operationLine->setForegroundRole(QPalette::WindowText);
    auto* bottom = new QHBoxLayout;
    bottom->setSpacing(14);
    bottom->addWidget(m_widgets.operationLine, 1);
    bottom->addWidget(m_widgets.operationButton);
    files->addLayout(bottom);

    // Room for the file column's header (see above).
    m_columns->setSpacing(20);
    m_columns->addLayout(files, 3);
    // Everything the screen shows sits in one body, which the overlay of an operation takes out
    // of the user's hands while the rest of the window stays usable.
    auto* body = new QWidget(this);
    body->setObjectName(QStringLiteral("screenBody"));
    auto* bodyLayout = new QVBoxLayout(body);
    bodyLayout->setContentsMargins(0, 0, 0, 0);
    bodyLayout->addLayout(m_columns);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(body);

    connect(m_widgets.chooseFilesButton, &QPushButton::clicked, this, &FileScreen::chooseFiles);
    connect(m_widgets.selectDeselectAllButton, &QPushButton::clicked, this, &FileScreen::selectDeselectAll);
    connect(m_widgets.removeFilesButton, &QPushButton::clicked, this, &FileScreen::removeMarkedFiles);
    connect(m_widgets.openFolderButton, &QPushButton::clicked, this, &FileScreen::openVarnexFolder);
    connect(m_widgets.operationButton, &QPushButton::clicked, this, &FileScreen::operationRequested);
    connect(m_widgets.intakeTable, &FileTableView::filesDropped, this,
        [this](const QStringList& paths) { addFiles(paths); });
    connect(m_widgets.intakeTable, &FileTableView::rowClicked, m_intake, &IntakeList::flip);
    connect(m_widgets.intakeTable, &FileTableView::checkBoxClicked, m_intake, &IntakeList::flip);
    for (FileTableView* table : { m_widgets.intakeTable, m_widgets.resultTable })
        connect(
            table, &FileTableView::previewClicked, this, [this, table](int row) { previewFile(table, row); });
    connect(m_widgets.resultTable, &QWidget::customContextMenuRequested, this, &FileScreen::showResultMenu);
    connect(m_widgets.resultFilter, &QLineEdit::textChanged, m_resultOrder, &ResultOrderModel::setFilterText);
    connect(m_widgets.resultOrder, &QComboBox::currentIndexChanged, this, [this] {
        m_resultOrder->setOrder(ResultOrderModel::Order(m_widgets.resultOrder->currentData().toInt()));
    });
    connect(m_widgets.detailsButton, &QPushButton::clicked, this, &FileScreen::showProblems);
    connect(m_widgets.tryAgainButton, &QPushButton::clicked, this, &FileScreen::tryAgain);
    connect(m_widgets.showResultsButton, &QPushButton::clicked, this,
        [this] { m_notifier.showInFolder(m_lastResults, m_settings.resultFolder.value_or(QString())); });
    // The notifier's fallback and its "Open" go through the same seam as every other opening.
    m_notifier.openPath = [](const QString& path) { return Dialogs::current().openPath(path); };

    connect(m_intake, &IntakeList::changed, m_intakeModel, &FileListModel::reload);
    connect(m_intake, &IntakeList::changed, this, &FileScreen::updateOperationLine);
    connect(m_intake, &IntakeList::buttonsChanged, this, &FileScreen::applyButtons);
    connect(m_results, &ResultFolder::replaced, m_resultModel, &FileListModel::reload);

    applyButtons(m_intake->buttons());
    m_results->refresh();
    // Runs while a phone is connected, from whenever one is (screens may be made before).
    m_results->startPeriodicRefresh();
    setTabOrder(m_widgets.chooseFilesButton, m_widgets.selectDeselectAllButton);
    setTabOrder(m_widgets.selectDeselectAllButton, m_widgets.removeFilesButton);
    setTabOrder(m_widgets.removeFilesButton, m_widgets.intakeTable);
    setTabOrder(m_widgets.intakeTable, m_widgets.openFolderButton);
    setTabOrder(m_widgets.openFolderButton, m_widgets.resultFilter);
    setTabOrder(m_widgets.resultFilter, m_widgets.resultOrder);
    setTabOrder(m_widgets.resultOrder, m_widgets.resultTable);
    setTabOrder(m_widgets.resultTable, m_widgets.detailsButton);
    setTabOrder(m_widgets.detailsButton, m_widgets.tryAgainButton);
    setTabOrder(m_widgets.tryAgainButton, m_widgets.showResultsButton);
    setTabOrder(m_widgets.showResultsButton, m_widgets.operationButton);
}

void FileScreen::applyButtons(const IntakeList::Buttons& buttons)
{
    switchButton(m_widgets.selectDeselectAllButton, buttons.markAll);
    switchButton(m_widgets.removeFilesButton, buttons.remove);
    switchButton(m_widgets.operationButton, buttons.operation);
    m_isOperationEnabled = buttons.operation;
    updateOperationLine();
}

void FileScreen::updateOperationLine()
{
    const QString line
        = OperationLine::text(m_intake->markedCount(), int(m_intake->files().size()), lineRecipients());
    m_widgets.operationLine->announce(line);
    // The button says it too, for whoever reaches it first.
    m_widgets.operationButton->setAccessibleDescription(line);
}

namespace {

// A name as the refusal dialog shows it: on one line, without characters that reorder or hide
// text, and shortened in the middle so the dialog stays readable and the extension shows.
QString shownName(const QString& path)
{
    QString name = path.section(u'/', -1, -1, QString::SectionSkipEmpty);
    for (QChar& c : name) {
        if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            c = QChar::ReplacementCharacter;
    }
    return name.size() > 60 ? name.left(36) + u'…' + name.right(20) : name;
}

// One line per refused file; a long list ends with how many more there are.
QString refusalList(const QList<IntakeList::Refusal>& refused)
{
    constexpr qsizetype listed = 20;
    QStringList lines;
    for (qsizetype i = 0; i < std::min(listed, refused.size()); ++i) {
        //: A refused file in the dialog's list: %1 its name, %2 why it was not added
        //% "%1: %2"
        lines.append(qtTrId("refusedFileLine")
                         .arg(shownName(refused.at(i).path), IntakeList::reasonText(refused.at(i).reason)));
    }
    if (refused.size() > listed) {
        //: Ends the list of refused files when more were refused than listed
        //% "and %n more"
        lines.append(qtTrId("refusedFilesMore", int(refused.size() - listed)));
    }
    return lines.join(u'\n');
}

} // namespace

void FileScreen::addFiles(const QStringList& paths, const QStringList& marked)
{
    // Thousands of files are looked at off the main thread; the dialog follows once they are in,
    // from the event loop: files come from drops, file choosers and other programs' hand-overs,
    // whose senders must not be on the stack of a dialog's nested loop.
    m_intake->admit(paths, this, [this, marked](const QList<IntakeList::Refusal>& refused) {
        if (!marked.isEmpty())
            m_intake->mark(marked);
        if (refused.isEmpty())
            return;
        const QString message = m_settings.refusalMessage + u"\n\n" + refusalList(refused);
        QMetaObject::invokeMethod(
            this,
            [this, message] {
                //: Dialog title when adding files that are already added
                //% "Some of the files cannot be added"
                showAlert(this, qtTrId("filesToEncryptDialogTitle"), message, Dialogs::Style::Informational);
            },
            Qt::QueuedConnection);
    });
}

void FileScreen::chooseFiles()
{
    const QPointer<FileScreen> self(this);
    const QStringList paths
        = Dialogs::current().chooseFiles(this, m_settings.chooseFolder.value_or(QString()));
    if (self && !paths.isEmpty())
        addFiles(paths);
}

void FileScreen::openVarnexFolder()
{
    if (m_settings.resultFolder)
        Dialogs::current().openPath(*m_settings.resultFolder);
}

void FileScreen::previewFile(FileTableView* table, int row)
{
    if (table == m_widgets.resultTable) {
        // The result table shows the newest first: its rows are not the folder's.
        if (row >= 0 && row < m_resultOrder->rowCount())
            Dialogs::current().openPath(resultPath(row));
        return;
    }
    const FileList& files = m_intake->files();
    if (row < 0 || row >= files.size())
        return;
    Dialogs::current().openPath(files.at(row)->filePath.value_or(QStringLiteral("/Users")));
}

QString FileScreen::resultPath(int row) const
{
    const QModelIndex index = m_resultOrder->index(row, 0);
    const QString path = index.data(FileListModel::PathRole).toString();
    return path.isEmpty() ? QStringLiteral("/Users") : path;
}

void FileScreen::showResultInFolder(int row)
{
    if (row < 0 || row >= m_resultOrder->rowCount())
        return;
    m_notifier.showInFolder({ resultPath(row) }, m_settings.resultFolder.value_or(QString()));
}

void FileScreen::copyResultPath(int row)
{
    if (row >= 0 && row < m_resultOrder->rowCount())
        QGuiApplication::clipboard()->setText(resultPath(row));
}

void FileScreen::showResultMenu(const QPoint& position)
{
    // From the keyboard (the menu key) the row is the current one.
    QModelIndex index = m_widgets.resultTable->indexAt(position);
    QPoint at = position;
    if (!index.isValid() && m_widgets.resultTable->currentIndex().isValid()
        && !m_widgets.resultTable->viewport()->rect().contains(position)) {
        index = m_widgets.resultTable->currentIndex();
        at = m_widgets.resultTable->visualRect(index).center();
    }
    if (!index.isValid())
        return;
    const int row = index.row();
    auto* menu = new QMenu(m_widgets.resultTable);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setObjectName(QStringLiteral("resultMenu"));
    //: Result row menu: opens the file with its application
    //% "Open"
    menu->addAction(qtTrId("resultOpen"), this, [this, row] { previewFile(m_widgets.resultTable, row); });
    //: Result row menu: shows the file in the file manager
    //% "Show in folder"
    menu->addAction(qtTrId("resultShowInFolder"), this, [this, row] { showResultInFolder(row); });
    //: Result row menu: copies the file's full path
    //% "Copy path"
    menu->addAction(qtTrId("resultCopyPath"), this, [this, row] { copyResultPath(row); });
    menu->addSeparator();
    const QString path = resultPath(row);
    if (m_settings.kind == IntakeList::Kind::Encrypt) {
        //: Encrypted result row menu: adds the file, marked, to the Decrypt screen's list and shows it
        //% "Send to Decrypt"
        menu->addAction(
            qtTrId("resultSendToDecrypt"), this, [this, path] { Q_EMIT decryptRequested({ path }); });
    } else {
        //: Decrypted result row menu: moves the file to the desktop's trash, after asking
        //% "Move to Trash…"
        QAction* trash = menu->addAction(qtTrId("resultMoveToTrash"));
        // From the event loop: the menu goes with its row while the question is open.
        connect(
            trash, &QAction::triggered, this, [this, path] { moveResultToTrash(path); },
            Qt::QueuedConnection);
    }
    menu->popup(m_widgets.resultTable->viewport()->mapToGlobal(at));
}

bool FileScreen::moveResultToTrash(const QString& path)
{
    const QString name = path.section(u'/', -1);
    //: Title of the question before moving a decrypted file to the trash; %1 is its name
    //% "Move “%1” to the Trash?"
    const QString title = qtTrId("trashQuestionTitle").arg(name);
    //: Question before moving a decrypted file to the trash
    //% "The decrypted file leaves the list and this folder. The desktop's Trash keeps it until it is emptied."
    const QString question = qtTrId("trashQuestion");
    //: Button that moves a decrypted file to the trash
    //% "Move to Trash"
    const QString move = qtTrId("trashButton");
    const QPointer<FileScreen> self(this);
    const int answer = Dialogs::current().ask(
        this, title, question, { move, Dialogs::cancelText() }, Dialogs::Style::Warning);
    if (!self || answer != 0)
        return false;
    // Without the user's data folder, Qt 6.4 makes the trash's "files" and "info" in the
    // current folder instead (a fresh account may not have it yet).
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    QFile file(path);
    if (!file.moveToTrash()) {
        //: Message when a decrypted file could not be moved to the trash; %1 is its name, %2 why
        //% "“%1” could not be moved to the Trash: %2"
        showAlert(this, title, qtTrId("trashFailed").arg(name, file.errorString()), Dialogs::Style::Warning);
        return false;
    }
    if (self)
        m_results->refresh();
    return true;
}

bool FileScreen::eventFilter(QObject* watched, QEvent* event)
{
    if (watched != m_intakePanel)
        return QWidget::eventFilter(watched, event);
    // The panel around the intake list takes the same drops as the list.
    switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove: {
        auto* drag = static_cast<QDragMoveEvent*>(event);
        if (drag->mimeData()->hasUrls()) {
            drag->setDropAction(Qt::CopyAction);
            drag->accept();
        } else {
            drag->ignore();
        }
        return true;
    }
    case QEvent::Drop: {
        auto* drop = static_cast<QDropEvent*>(event);
        const QStringList paths = FileTableView::droppedPaths(drop->mimeData());
        if (paths.isEmpty()) {
            drop->ignore();
            return true;
        }
        drop->setDropAction(Qt::CopyAction);
        drop->accept();
        addFiles(paths);
        return true;
    }
    default:
        return QWidget::eventFilter(watched, event);
    }
}

void FileScreen::selectDeselectAll()
{
    m_intake->markAll();
}

void FileScreen::removeMarkedFiles()
{
    m_intake->removeMarked();
}

void FileScreen::runOperation(OperationRun* run, ProgressOverlay* overlay, std::function<void()> finish)
{
    // Each screen runs its own operation under its own overlay: an encryption and a decryption
    // run at the same time, each to its own result folder, while the user moves between them.
    m_run = run;
    m_overlay = overlay;
    run->setParent(this);
    // The last operation's summary and highlight last until this one starts.
    m_summaryRow->hide();
    m_lastResults.clear();
    m_lastFailed.clear();
    m_intakeModel->setProblems({});
    m_resultOrder->setNewResults({});
    overlay->setStage(run->stageText());
    overlay->show();
    connect(overlay, &ProgressOverlay::cancelRequested, run, &OperationRun::cancel);
    connect(run, &OperationRun::stageChanged, overlay, &ProgressOverlay::setStage);
    connect(run, &OperationRun::detailChanged, overlay, &ProgressOverlay::setDetail);
    // Queued: the dialog's nested event loop runs after the run has finished telling.
    connect(
        run, &OperationRun::finished, this,
        [this, run, overlay, finish](const OperationRun::Outcome& outcome) {
            if (!outcome.cancelled())
                tellOutcome(outcome);
            if (!outcome.dialogTitle.isEmpty()) {
                // The alert's nested event loop may outlive this screen; the run and the
                // overlay are its children and go with it.
                const QPointer<FileScreen> self(this);
                showAlert(this, outcome.dialogTitle, outcome.dialogText, Dialogs::Style::Critical);
                if (!self)
                    return;
            }
            // A cancel or a lost phone leaves marks and choices as they were; an operation that
            // ran its course clears them, but for the files that got no result: those stay
            // marked, with the people chosen, for Try again.
            if (!outcome.stopped && m_lastFailed.isEmpty())
                finish();
            else if (!outcome.stopped)
                m_intake->markOnly(m_lastFailed);
            m_results->refresh();
            overlay->deleteLater();
            run->deleteLater();
            m_overlay = nullptr;
            m_run = nullptr;
        },
        Qt::QueuedConnection);
    run->start();
}

void FileScreen::showProblems()
{
    if (!m_lastFailed.isEmpty())
        showAlert(this, m_problemsTitle, m_problemsText, Dialogs::Style::Informational);
}

void FileScreen::tryAgain()
{
    if (m_lastFailed.isEmpty() || m_run)
        return;
    m_intake->markOnly(m_lastFailed);
    Q_EMIT operationRequested();
}

void FileScreen::tellOutcome(const OperationRun::Outcome& outcome)
{
    QHash<QString, QString> problems;
    QStringList lines;
    constexpr qsizetype listed = 30;
    for (const OperationRun::Outcome::FileOutcome& file : outcome.files) {
        if (file.problem.isEmpty())
            continue;
        m_lastFailed.append(file.source);
        problems.insert(file.source, file.problem);
        if (lines.size() < listed)
            lines.append(qtTrId("refusedFileLine").arg(shownName(file.source), file.problem));
    }
    if (m_lastFailed.size() > listed)
        lines.append(qtTrId("refusedFilesMore", int(m_lastFailed.size() - listed)));
    // Every file keeps its reason in the list too (tool tip, accessible description), however
    // many there are.
    m_intakeModel->setProblems(problems);
    m_problemsTitle = outcome.dialogTitle;
    m_problemsText = lines.join(u'\n');
    m_widgets.detailsButton->setVisible(!m_lastFailed.isEmpty());
    m_widgets.tryAgainButton->setVisible(!m_lastFailed.isEmpty());
    m_lastResults = outcome.results;
    m_resultOrder->setNewResults(m_lastResults);
    m_widgets.resultSummary->setText(outcome.summary);
    m_widgets.resultSummary->setAccessibleName(outcome.summary);
    m_widgets.showResultsButton->setVisible(!outcome.results.isEmpty());
    m_summaryRow->setVisible(!outcome.summary.isEmpty());
    if (window()->isActiveWindow())
        return;
    // The user works elsewhere: a notification, or at least the task bar's attention.
    const QPointer<QWidget> window(this->window());
    m_notifier.notify(outcome.note, [window] {
        if (window)
            QApplication::alert(window);
    });
}
