#include "screens/FileScreen.h"

#include "app/Session.h"
#include "files/FileListModel.h"
#include "files/ResultFolder.h"
#include "operations/OperationTask.h"
#include "screens/FileCellDelegate.h"
#include "screens/FileTableView.h"
#include "widgets/Dialogs.h"
#include "widgets/Line.h"
#include "widgets/ProgressOverlay.h"
#include "widgets/RoundedCornersBox.h"
#include "widgets/RoundedPanel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
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
    resultTable->setModel(m_resultModel);
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
    chooseFilesButton->setToolTip(QStringLiteral("Choose files to add, or drop them on the list"));
    chooseFilesButton->setProperty("state", 1);
    openFolderButton->setProperty("state", 1);

    auto* intakeHeader = new QHBoxLayout;
    intakeHeader->addWidget(intakeText);
    intakeHeader->addStretch();
    intakeHeader->addWidget(chooseFilesButton);
    intakeHeader->addWidget(selectDeselectAllButton);
    intakeHeader->addWidget(removeFilesButton);
    auto* resultHeader = new QHBoxLayout;
    resultHeader->addWidget(resultText);
    resultHeader->addStretch();
    resultHeader->addWidget(openFolderButton);

    auto* files = new QVBoxLayout;
    files->setSpacing(8);
    files->addLayout(intakeHeader);
    auto* lines = new QHBoxLayout;
    lines->setSpacing(0);
    for (int i = 0; i < m_settings.lineCount; ++i) {
        auto* line = new Line(this);
        line->setFixedHeight(12);
        lines->addWidget(line);
    }
    files->addLayout(lines);
    files->addWidget(boxed(intakeTable, this), 3);
    files->addSpacing(10);
    files->addLayout(resultHeader);
    files->addWidget(boxed(resultTable, this), 2);
    auto* bottom = new QHBoxLayout;
    bottom->addStretch();
    bottom->addWidget(operationButton);
    files->addLayout(bottom);

    m_columns->setSpacing(24);
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

    connect(m_intake, &IntakeList::changed, m_intakeModel, &FileListModel::reload);
    connect(m_intake, &IntakeList::buttonsChanged, this, &FileScreen::applyButtons);
    connect(m_results, &ResultFolder::replaced, m_resultModel, &FileListModel::reload);

    applyButtons(m_intake->buttons());
    m_results->refresh();
    if (Session::instance().isPhoneConnected())
        m_results->startPeriodicRefresh();
    setTabOrder(chooseFilesButton, selectDeselectAllButton);
    setTabOrder(selectDeselectAllButton, removeFilesButton);
    setTabOrder(removeFilesButton, intakeTable);
    setTabOrder(intakeTable, openFolderButton);
    setTabOrder(openFolderButton, resultTable);
}

void FileScreen::applyButtons(const IntakeList::Buttons& buttons)
{
    switchButton(selectDeselectAllButton, buttons.markAll, isSelectFilesEnabled);
    switchButton(removeFilesButton, buttons.remove, isRemoveFilesEnabled);
    switchButton(operationButton, buttons.operation, isOperationEnabled);
}

void FileScreen::addFiles(const QStringList& paths)
{
    if (!m_intake->addFiles(paths))
        return;
    //: Dialog title when adding files that are already added
    //% "Some of the files cannot be added"
    showAlert(this, qtTrId("filesToEncryptDialogTitle"), m_settings.refusalMessage, Dialogs::Style::Informational);
}

void FileScreen::chooseFiles()
{
    const QStringList paths = Dialogs::current().chooseFiles(this, m_settings.chooseFolder.value_or(QString()));
    if (!paths.isEmpty())
        addFiles(paths);
}

void FileScreen::openVarnexFolder()
{
    if (m_settings.resultFolder)
        Dialogs::current().openPath(*m_settings.resultFolder);
}

void FileScreen::previewFile(FileTableView* table, int row)
{
    const FileList& files = table == intakeTable ? m_intake->files() : m_results->files();
    if (row < 0 || row >= files.size())
        return;
    Dialogs::current().openPath(files.at(row)->filePath.value_or(QStringLiteral("/Users")));
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
        //: Progress while files go to the phone
        //% "Sending %1 of %2"
        return qtTrId("stageSending").arg(formatFileSize(quint64(done)), formatFileSize(quint64(total)));
    case OperationTask::Stage::Waiting:
        //: Progress while the phone works on the files
        //% "Waiting for the phone..."
        return qtTrId("stageWaiting");
    case OperationTask::Stage::Receiving:
        //: Progress while the results come back
        //% "Receiving %1"
        return qtTrId("stageReceiving").arg(formatFileSize(quint64(done)));
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
    overlay->setStage(stageText(OperationTask::Stage::Sending, 0, 0));
    overlay->show();
    connect(overlay, &ProgressOverlay::cancelRequested, task, [task, overlay] {
        task->cancel();
        //: Progress once the user cancelled
        //% "Cancelling..."
        overlay->setStage(qtTrId("stageCancelling"));
    });
    connect(task, &OperationTask::progress, overlay, [overlay](OperationTask::Stage stage, qint64 done, qint64 total) {
        const bool known = stage == OperationTask::Stage::Sending || stage == OperationTask::Stage::Unpacking;
        overlay->setStage(stageText(stage, done, total), known ? done : 0, known ? total : 0);
    });
    connect(task, &OperationTask::finished, this, [this, task, overlay, finish](const OperationTask::Result& result) {
        if (!result.title.isEmpty())
            showAlert(this, result.title, result.message, Dialogs::Style::Critical);
        finish();
        m_results->refresh();
        overlay->deleteLater();
        task->deleteLater();
        m_overlay = nullptr;
        m_task = nullptr;
    });
    task->start();
}
