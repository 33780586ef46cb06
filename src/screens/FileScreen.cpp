#include "screens/FileScreen.h"

#include "app/Session.h"
#include "desktop/DesktopNotifier.h"
#include "files/FileListModel.h"
#include "files/ResultFolder.h"
#include "files/ResultOrderModel.h"
#include "operations/OperationTask.h"
#include "operations/TransferRate.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileTableView.h"
#include "widgets/Dialogs.h"
#include "widgets/Line.h"
#include "widgets/ProgressOverlay.h"
#include "widgets/RoundedCornersBox.h"
#include "widgets/RoundedPanel.h"
#include "widgets/ShortcutTip.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
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
    label->setStyleSheet(QStringLiteral("color: rgb(70,70,70);"));
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

void switchButton(QPushButton* button, bool on, bool& mirror)
{
    button->setEnabled(on);
    button->setProperty("state", on ? 1 : 0);
    mirror = on;
}

FileScreen::FileScreen(Settings settings, QWidget* parent)
    : QWidget(parent)
    , m_settings(std::move(settings))
    , m_intake(new IntakeList(m_settings.kind, this))
    , m_results(new ResultFolder(m_settings.resultFolder, m_settings.refreshPeriod, this))
    , m_intakeModel(new FileListModel([this]() -> const FileList& { return m_intake->files(); }, this))
    , m_resultModel(new FileListModel([this]() -> const FileList& { return m_results->files(); }, this))
    , m_columns(new QHBoxLayout)
{
    const bool encrypt = m_settings.kind == IntakeList::Kind::Encrypt;
    FileCellDelegate* intakeCell = encrypt ? static_cast<FileCellDelegate*>(new FileToEncryptCellView)
                                           : new FileToDecryptCellView;
    FileCellDelegate* resultCell = encrypt ? static_cast<FileCellDelegate*>(new EncryptedFileCellView)
                                           : new DecryptedFileCellView;
    intakeTable = new FileTableView(m_settings.intakeTableId, intakeCell, true, this);
    resultTable = new FileTableView(m_settings.resultTableId, resultCell, false, this);
    intakeTable->setModel(m_intakeModel);
    m_resultOrder = new ResultOrderModel(FileListModel::PathRole, this);
    m_resultOrder->setSourceModel(m_resultModel);
    resultTable->setModel(m_resultOrder);
    resultTable->setHighlightRole(ResultOrderModel::NewResultRole);
    resultTable->setDragOut(true);
    resultTable->setContextMenuPolicy(Qt::CustomContextMenu);
    intakeTable->setAccessibleName(m_settings.intakeTitle);
    resultTable->setAccessibleName(m_settings.resultTitle);
    m_intakeModel->onFlip = [this](int row) { m_intake->flip(row); };

    intakeText = makeTitle(m_settings.intakeTitle, this);
    resultText = makeTitle(m_settings.resultTitle, this);
    //: Choose files button
    //% "UPLOAD"
    chooseFilesButton = makeButton(qtTrId("chooseFiles"), this);
    //: Remove files button
    //% "REMOVE"
    removeFilesButton = makeButton(qtTrId("removeFiles"), this);
    //: Select deselect all files button
    //% "SELECT/DESELECT ALL"
    selectDeselectAllButton = makeButton(qtTrId("selectDeselectAll"), this);
    //: Open Varnex folder button
    //% "OPEN FOLDER"
    openFolderButton = makeButton(qtTrId("openVarnexFolder"), this);
    operationButton = makeButton(m_settings.operationTitle, this);
    operationButton->setMinimumSize(200, 46);
    QFont big = operationButton->font();
    big.setPointSize(14);
    operationButton->setFont(big);
    //: Tool tip of the choose files button
    //% "Choose files to add, or drop them on the list"
    chooseFilesButton->setToolTip(qtTrId("chooseFilesTip"));
    //: Shown in an empty list of files to encrypt or decrypt; %1 is the choose files button's title
    //% "Drop files here or press %1"
    intakeTable->setEmptyText(qtTrId("emptyIntakeHint").arg(chooseFilesButton->text()));
    chooseFilesButton->setProperty("state", 1);
    openFolderButton->setProperty("state", 1);
    // Standard keys; only the shown screen's buttons take them (hidden and switched-off
    // buttons do not), and a text field keeps its own Delete and Ctrl+A.
    chooseFilesButton->setShortcut(QKeySequence::Open);
    removeFilesButton->setShortcut(QKeySequence::Delete);
    selectDeselectAllButton->setShortcut(QKeySequence::SelectAll);
    for (QPushButton* button : { chooseFilesButton, removeFilesButton, selectDeselectAllButton })
        showShortcutInToolTip(button);

    // The intake title and its buttons sit together, with the screen's rule right under them:
    // the strokes share the width of that group, so they join into one rule that starts under
    // the title and ends under the last button, whatever the window's width.
    auto* intakeHeader = new QHBoxLayout;
    // Tight enough that the buttons keep their whole titles at the default window width.
    intakeHeader->setSpacing(8);
    intakeHeader->addWidget(intakeText);
    intakeHeader->addWidget(chooseFilesButton);
    intakeHeader->addWidget(selectDeselectAllButton);
    intakeHeader->addWidget(removeFilesButton);
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
    resultHeader->addWidget(resultText);
    resultHeader->addStretch();
    resultHeader->addWidget(openFolderButton);

    auto* files = new QVBoxLayout;
    files->setSpacing(8);
    files->addLayout(header);
    m_intakePanel = boxed(intakeTable, this);
    // A drop on the panel around the list counts as one on the list.
    m_intakePanel->setAcceptDrops(true);
    m_intakePanel->installEventFilter(this);
    files->addWidget(m_intakePanel, 3);
    files->addSpacing(10);
    files->addLayout(resultHeader);
    files->addWidget(boxed(resultTable, this), 2);

    m_summaryRow = new QWidget(this);
    auto* summary = new QHBoxLayout(m_summaryRow);
    summary->setContentsMargins(4, 0, 0, 0);
    resultSummary = new QLabel(m_summaryRow);
    resultSummary->setStyleSheet(QStringLiteral("color: rgb(50,50,50);"));
    resultSummary->setTextFormat(Qt::PlainText);
    //: Button beside the summary of the last operation: shows its results in the file manager
    //% "Show in folder"
    showResultsButton = makeButton(qtTrId("showResultsInFolder"), m_summaryRow);
    summary->addWidget(resultSummary);
    summary->addWidget(showResultsButton);
    summary->addStretch();
    m_summaryRow->hide();
    files->addWidget(m_summaryRow);
    auto* bottom = new QHBoxLayout;
    bottom->addStretch();
    bottom->addWidget(operationButton);
    files->addLayout(bottom);

    // Room for the file column's header (see above).
    m_columns->setSpacing(20);
    m_columns->addLayout(files, 3);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(m_columns);

    connect(chooseFilesButton, &QPushButton::clicked, this, &FileScreen::chooseFiles);
    connect(selectDeselectAllButton, &QPushButton::clicked, this, &FileScreen::selectDeselectAll);
    connect(removeFilesButton, &QPushButton::clicked, this, &FileScreen::removeMarkedFiles);
    connect(openFolderButton, &QPushButton::clicked, this, &FileScreen::openVarnexFolder);
    connect(operationButton, &QPushButton::clicked, this, &FileScreen::operationRequested);
    connect(intakeTable, &FileTableView::filesDropped, this, &FileScreen::addFiles);
    connect(intakeTable, &FileTableView::rowClicked, m_intake, &IntakeList::flip);
    connect(intakeTable, &FileTableView::checkBoxClicked, m_intake, &IntakeList::flip);
    for (FileTableView* table : { intakeTable, resultTable })
        connect(table, &FileTableView::previewClicked, this, [this, table](int row) { previewFile(table, row); });
    connect(resultTable, &QWidget::customContextMenuRequested, this, &FileScreen::showResultMenu);
    connect(showResultsButton, &QPushButton::clicked, this, [this] {
        DesktopNotifier::instance().showInFolder(m_lastResults, m_settings.resultFolder.value_or(QString()));
    });
    // The notifier's fallback and its "Open" go through the same seam as every other opening.
    DesktopNotifier::instance().openPath
        = [](const QString& path) { return Dialogs::current().openPath(path); };

    connect(m_intake, &IntakeList::changed, m_intakeModel, &FileListModel::reload);
    connect(m_intake, &IntakeList::buttonsChanged, this, &FileScreen::applyButtons);
    connect(m_results, &ResultFolder::replaced, m_resultModel, &FileListModel::reload);

    applyButtons(m_intake->buttons());
    m_results->refresh();
    // Runs while a phone is connected, from whenever one is (screens may be made before).
    m_results->startPeriodicRefresh();
    setTabOrder(chooseFilesButton, selectDeselectAllButton);
    setTabOrder(selectDeselectAllButton, removeFilesButton);
    setTabOrder(removeFilesButton, intakeTable);
    setTabOrder(intakeTable, openFolderButton);
    setTabOrder(openFolderButton, resultTable);
    setTabOrder(resultTable, showResultsButton);
    setTabOrder(showResultsButton, operationButton);
}

void FileScreen::applyButtons(const IntakeList::Buttons& buttons)
{
    switchButton(selectDeselectAllButton, buttons.markAll, isSelectFilesEnabled);
    switchButton(removeFilesButton, buttons.remove, isRemoveFilesEnabled);
    switchButton(operationButton, buttons.operation, isOperationEnabled);
}

namespace {

// A refused file's reason, in a few words.
QString refusalReason(IntakeList::Reason reason)
{
    switch (reason) {
    case IntakeList::Reason::Folder:
        //: Why a file was not added: it is a folder
        //% "a folder"
        return qtTrId("refusedFolder");
    case IntakeList::Reason::NotRegularFile:
        //: Why a file was not added: it is a device, pipe or socket
        //% "not a regular file"
        return qtTrId("refusedNotRegular");
    case IntakeList::Reason::Unreadable:
        //: Why a file was not added: the user may not read it
        //% "cannot be read"
        return qtTrId("refusedUnreadable");
    case IntakeList::Reason::AlreadyListed:
        //: Why a file was not added: a file of the same name is in the list
        //% "already in the list"
        return qtTrId("refusedAlreadyListed");
    case IntakeList::Reason::NameTooLong:
        //: Why a file was not added: its name cannot take ".vx" within the file system's limit
        //% "name too long to add \".vx\" (255 bytes at most)"
        return qtTrId("refusedNameTooLong");
    case IntakeList::Reason::Encrypted:
        //: Why a file was not added to the files to encrypt
        //% "already encrypted"
        return qtTrId("refusedEncrypted");
    case IntakeList::Reason::NotEncrypted:
        //: Why a file was not added to the files to decrypt
        //% "not encrypted"
        return qtTrId("refusedNotEncrypted");
    }
    return {};
}

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
                         .arg(shownName(refused.at(i).path), refusalReason(refused.at(i).reason)));
    }
    if (refused.size() > listed) {
        //: Ends the list of refused files when more were refused than listed
        //% "and %n more"
        lines.append(qtTrId("refusedFilesMore", int(refused.size() - listed)));
    }
    return lines.join(u'\n');
}

} // namespace

void FileScreen::addFiles(const QStringList& paths)
{
    // Thousands of files are looked at off the main thread; the dialog follows once they are in.
    m_intake->admit(paths, this, [this](const QList<IntakeList::Refusal>& refused) {
        if (refused.isEmpty())
            return;
        //: Dialog title when adding files that are already added
        //% "Some of the files cannot be added"
        showAlert(this, qtTrId("filesToEncryptDialogTitle"), m_settings.refusalMessage + u"\n\n" + refusalList(refused),
                  Dialogs::Style::Informational);
    });
}

void FileScreen::chooseFiles()
{
    const QPointer<FileScreen> self(this);
    const QStringList paths = Dialogs::current().chooseFiles(this, m_settings.chooseFolder.value_or(QString()));
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
    if (table == resultTable) {
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
    DesktopNotifier::instance().showInFolder(
        { resultPath(row) }, m_settings.resultFolder.value_or(QString()));
}

void FileScreen::copyResultPath(int row)
{
    if (row >= 0 && row < m_resultOrder->rowCount())
        QGuiApplication::clipboard()->setText(resultPath(row));
}

void FileScreen::showResultMenu(const QPoint& position)
{
    // From the keyboard (the menu key) the row is the current one.
    QModelIndex index = resultTable->indexAt(position);
    QPoint at = position;
    if (!index.isValid() && resultTable->currentIndex().isValid()
        && !resultTable->viewport()->rect().contains(position)) {
        index = resultTable->currentIndex();
        at = resultTable->visualRect(index).center();
    }
    if (!index.isValid())
        return;
    const int row = index.row();
    auto* menu = new QMenu(resultTable);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->setObjectName(QStringLiteral("resultMenu"));
    //: Result row menu: opens the file with its application
    //% "Open"
    menu->addAction(qtTrId("resultOpen"), this, [this, row] { previewFile(resultTable, row); });
    //: Result row menu: shows the file in the file manager
    //% "Show in folder"
    menu->addAction(qtTrId("resultShowInFolder"), this, [this, row] { showResultInFolder(row); });
    //: Result row menu: copies the file's full path
    //% "Copy path"
    menu->addAction(qtTrId("resultCopyPath"), this, [this, row] { copyResultPath(row); });
    menu->popup(resultTable->viewport()->mapToGlobal(at));
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

namespace {

QString stageText(OperationTask::Stage stage, qint64 done, qint64 total)
{
    switch (stage) {
    case OperationTask::Stage::Sending:
        if (total <= 0) {
            // Nothing measured yet: the transfer is still reaching the phone.
            //: Progress before the first bytes go to the phone
            //% "Connecting to the phone..."
            return qtTrId("stageConnecting");
        }
        //: Progress while files go to the phone
        //% "Sending %1 of %2"
        return qtTrId("stageSending").arg(formatFileSize(quint64(done)), formatFileSize(quint64(total)));
    case OperationTask::Stage::Waiting:
        //: Progress while the phone works on the files
        //% "Waiting for the phone..."
        return qtTrId("stageWaiting");
    case OperationTask::Stage::Receiving:
        // The results are saved as they arrive: one stage for both.
        if (total > 0) {
            //: Progress while the results come back and are saved as they arrive
            //% "Receiving and saving %1 of %2"
            return qtTrId("stageReceivingSavingOf").arg(formatFileSize(quint64(done)), formatFileSize(quint64(total)));
        }
        //: Progress while the results come back and are saved as they arrive, of unknown size
        //% "Receiving and saving %1"
        return qtTrId("stageReceivingSaving").arg(formatFileSize(quint64(done)));
    case OperationTask::Stage::Unpacking:
        //: Progress while the results are unpacked
        //% "Saving the results..."
        return qtTrId("stageUnpacking");
    }
    return {};
}

} // namespace

void FileScreen::runOperation(OperationTask* task, ProgressOverlay* overlay, std::function<void()> finish)
{
    m_task = task;
    m_overlay = overlay;
    task->setParent(this);
    // The last operation's summary and highlight last until this one starts.
    m_summaryRow->hide();
    m_lastResults.clear();
    m_resultOrder->setNewResults({});
    overlay->setStage(stageText(OperationTask::Stage::Sending, 0, 0));
    overlay->show();
    // Figures a person can read: speed and time left while bytes move, the time waited while
    // the phone works (ticking each second, as the task is quiet then).
    struct Figures
    {
        TransferRate rate;
        QElapsedTimer clock;
        qint64 waitingSinceMs = -1;
        QTimer tick;
        bool cancelled = false;
        bool phoneLost = false;
        OperationTask::Stage stage = OperationTask::Stage::Sending;
        std::optional<OperationTask::Stage> shownStage;
        qint64 shownAtMs = -1000;
    };
    auto figures = std::make_shared<Figures>();
    figures->clock.start();
    figures->tick.setInterval(1000);
    auto showWaited = [overlay, f = figures.get()] {
        //: Under the progress while the phone works, %1 is a time such as 0:42
        //% "Waiting for %1"
        overlay->setDetail(qtTrId("timeWaited").arg(TransferRate::formatDuration((f->clock.elapsed() - f->waitingSinceMs) / 1000)));
    };
    connect(&figures->tick, &QTimer::timeout, overlay, showWaited);
    connect(overlay, &ProgressOverlay::cancelRequested, task, [task, overlay, figures] {
        task->cancel();
        figures->cancelled = true;
        figures->tick.stop();
        //: Progress once the user cancelled
        //% "Cancelling..."
        overlay->setStage(qtTrId("stageCancelling"));
        overlay->setDetail(QString());
    });
    connect(task, &OperationTask::progress, overlay,
            [overlay, figures, showWaited](OperationTask::Stage stage, qint64 done, qint64 total) {
                figures->stage = stage;
                if (figures->cancelled)
                    return;
                const qint64 now = figures->clock.elapsed();
                if (stage == OperationTask::Stage::Sending || stage == OperationTask::Stage::Receiving)
                    figures->rate.sample(done, stage == OperationTask::Stage::Sending ? total : 0, now);
                // Four updates a second are as many as a person can read, and each repaints the
                // overlay's shadowed panel on the main thread.
                const bool known = stage == OperationTask::Stage::Sending || stage == OperationTask::Stage::Unpacking;
                const bool end = known && total > 0 && done >= total;
                if (stage == figures->shownStage && now - figures->shownAtMs < 250 && !end)
                    return;
                figures->shownStage = stage;
                figures->shownAtMs = now;
                overlay->setStage(stageText(stage, done, total), known ? done : 0, known ? total : 0);
                if (stage == OperationTask::Stage::Waiting) {
                    if (figures->waitingSinceMs < 0) {
                        figures->waitingSinceMs = now;
                        figures->tick.start();
                        showWaited();
                    }
                    return;
                }
                figures->waitingSinceMs = -1;
                figures->tick.stop();
                if (stage == OperationTask::Stage::Unpacking) {
                    overlay->setDetail(QString());
                    return;
                }
                overlay->setDetail(figures->rate.describe());
            });
    // A phone that went silent would leave the transfer waiting for ever: once the phone counts
    // as lost, the operation ends with nothing changed. Results already received in full are
    // still saved.
    connect(&Session::instance(), &Session::phoneConnectedChanged, task, [task, figures](bool connected) {
        if (connected || figures->cancelled || figures->stage == OperationTask::Stage::Unpacking)
            return;
        figures->phoneLost = true;
        figures->cancelled = true;
        task->cancel();
    });
    connect(task, &OperationTask::finished, this,
            [this, task, overlay, finish, figures](const OperationTask::Result& result) {
        figures->tick.stop(); // the overlay stops counting once the outcome is shown
        OperationTask::Result shown = result;
        if (figures->phoneLost && result.outcome == OperationTask::Outcome::Cancelled) {
            shown.outcome = OperationTask::Outcome::Failed;
            shown.title = task->failureTitle();
            //: Failure dialog when the phone stopped answering during an operation
            //% "Contact with the phone was lost, so the operation was stopped. Nothing was changed: your files and the result folder are as they were."
            shown.message = qtTrId("operationPhoneLost");
        }
        if (shown.outcome != OperationTask::Outcome::Cancelled)
            tellOutcome(shown.outcome == OperationTask::Outcome::Succeeded, shown.title, shown.message, shown.written);
        if (!shown.title.isEmpty()) {
            // The alert's nested event loop may outlive this screen; the task and the overlay
            // are its children and go with it.
            const QPointer<FileScreen> self(this);
            showAlert(this, shown.title, shown.message, Dialogs::Style::Critical);
            if (!self)
                return;
        }
        // A cancel leaves marks and choices as they were; only an operation that ran its
        // course clears them.
        if (result.outcome != OperationTask::Outcome::Cancelled)
            finish();
        m_results->refresh();
        overlay->deleteLater();
        task->deleteLater();
        m_overlay = nullptr;
        m_task = nullptr;
    });
    task->start();
}

void FileScreen::tellOutcome(
    bool succeeded, const QString& failureTitle, const QString& failureMessage, const QStringList& written)
{
    const bool encrypt = m_settings.kind == IntakeList::Kind::Encrypt;
    const int count = int(written.size());
    QString summary;
    if (!succeeded) {
        summary = failureTitle;
    } else if (encrypt) {
        // Singular and plural by hand: English and German need no more forms, and the
        // English catalogue has no plural forms of its own.
        if (count == 1) {
            //: Summary after encrypting one file; followed by the people it was for
            //% "1 file encrypted"
            summary = qtTrId("summaryEncryptedOne");
        } else {
            //: Summary after encrypting several files, %1 is how many; followed by the people it was for
            //% "%1 files encrypted"
            summary = qtTrId("summaryEncryptedMany").arg(count);
        }
        if (m_audience == 1) {
            //: Ends the summary after encrypting for one person
            //% "for 1 person"
            summary += u' ' + qtTrId("summaryForOnePerson");
        } else if (m_audience > 1) {
            //: Ends the summary after encrypting for several people, %1 is how many
            //% "for %1 people"
            summary += u' ' + qtTrId("summaryForPeople").arg(m_audience);
        }
    } else if (count == 1) {
        //: Summary after decrypting one file
        //% "1 file decrypted"
        summary = qtTrId("summaryDecryptedOne");
    } else {
        //: Summary after decrypting several files, %1 is how many
        //% "%1 files decrypted"
        summary = qtTrId("summaryDecryptedMany").arg(count);
    }
    m_lastResults = succeeded ? written : QStringList();
    m_resultOrder->setNewResults(m_lastResults);
    resultSummary->setText(summary);
    resultSummary->setAccessibleName(summary);
    showResultsButton->setVisible(succeeded && count > 0);
    m_summaryRow->setVisible(!summary.isEmpty());

    if (window()->isActiveWindow())
        return;
    // The user works elsewhere: a notification, or at least the task bar's attention.
    DesktopNotifier::Note note;
    note.summary = summary;
    if (succeeded) {
        QStringList names;
        for (const QString& path : written.mid(0, 3))
            names.append(path.section(u'/', -1));
        note.body = names.join(u", ") + (count > 3 ? QStringLiteral(", …") : QString());
        note.folder = m_settings.resultFolder.value_or(QString());
        note.files = written;
    } else {
        note.body = failureMessage;
    }
    const QPointer<QWidget> window(this->window());
    DesktopNotifier::instance().notify(note, [window] {
        if (window)
            QApplication::alert(window);
    });
}
