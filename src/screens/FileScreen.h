#pragma once

#include "files/IntakeList.h"
#include "files/OperationLine.h"
#include "operations/OperationRun.h"

#include <QWidget>

#include <chrono>
#include <functional>
#include <optional>

class AnnouncedLabel;
class FileListModel;
class ProgressOverlay;
class FileTableView;
class Line;
class QHBoxLayout;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class ResultFolder;
class ResultOrderModel;
class Session;

// What the Encrypt and Decrypt screens share: an intake list with its buttons and table, a
// result list filled from the screen's result folder, and the operation button. The twins
// differ only in the settings they hand over.
class FileScreen : public QWidget
{
    Q_OBJECT

public:
    struct Settings
    {
        IntakeList::Kind kind;
        QString intakeTableId;
        QString resultTableId;
        QString intakeTitle;
        QString resultTitle;
        QString operationTitle;
        QString refusalMessage;
        std::optional<QString> chooseFolder;
        std::optional<QString> resultFolder;
        std::chrono::milliseconds refreshPeriod;
        int lineCount;
    };

    FileScreen(Settings settings, const Session& session, DesktopNotifier& notifier, QWidget* parent);

    // Admits what the screen's rule allows and tells the user once about the rest; the listed
    // files at `marked` are marked then (files the user handed over to be worked on).
    void addFiles(const QStringList& paths, const QStringList& marked = {});
    void chooseFiles();
    void openVarnexFolder();
    void previewFile(FileTableView* table, int row);
    // Marks or clears every intake file.
    void selectDeselectAll();
    void removeMarkedFiles();

    IntakeList* intakeList() const { return m_intake; }
    ResultFolder* resultFolder() const { return m_results; }
    FileListModel* intakeModel() const { return m_intakeModel; }
    FileListModel* resultModel() const { return m_resultModel; }

    // The screen's widgets, for the window's layout checks and tests; each also carries its
    // accessible name.
    struct Widgets
    {
        FileTableView* intakeTable = nullptr;
        FileTableView* resultTable = nullptr;
        QLabel* intakeText = nullptr;
        QLabel* resultText = nullptr;
        QPushButton* chooseFilesButton = nullptr;
        QPushButton* removeFilesButton = nullptr;
        QPushButton* selectDeselectAllButton = nullptr;
        QPushButton* operationButton = nullptr;
        // Beside the operation button: what it will do, or what it still needs.
        AnnouncedLabel* operationLine = nullptr;
        QPushButton* openFolderButton = nullptr;
        // Over the result list: its filter by name and its order.
        QLineEdit* resultFilter = nullptr;
        QComboBox* resultOrder = nullptr;
        // Under the result list after an operation, until the next one starts: what happened,
        // and the button that shows its results in the file manager.
        QLabel* resultSummary = nullptr;
        QPushButton* showResultsButton = nullptr;
        // Beside the summary when some files got no result: which ones and why, and sending
        // just those again.
        QPushButton* detailsButton = nullptr;
        QPushButton* tryAgainButton = nullptr;
    };
    const Widgets& widgets() const { return m_widgets; }

    // The result list as the table shows it: the newest results first.
    ResultOrderModel* resultOrder() const { return m_resultOrder; }
    // Results of the last operation that ran its course (absolute paths).
    QStringList lastResults() const { return m_lastResults; }
    // The files of the last operation that got no result (absolute paths, in the order sent).
    QStringList lastFailed() const { return m_lastFailed; }
    // Which files of the last operation got no result, and why, in a dialog.
    void showProblems();
    // Sends the files that got no result again: they are marked, the others not.
    void tryAgain();
    // The result menu's actions for a result row (as the table shows it).
    void showResultInFolder(int row);
    void copyResultPath(int row);
    // A decrypted result to the desktop's trash, once the user confirmed; true when it went.
    bool moveResultToTrash(const QString& path);
    // The decorating strokes under the intake title, left to right.
    const QList<Line*>& lines() const { return m_lines; }
    // The overlay of the operation under way, if any.
    ProgressOverlay* overlay() const { return m_overlay; }
    OperationRun* runningOperation() const { return m_run; }

    // Whether the operation button is on (it follows the intake list's rule).
    bool isOperationEnabled() const { return m_isOperationEnabled; }
    // Says again what the operation will do (marks or recipients changed).
    void updateOperationLine();

Q_SIGNALS:
    void operationRequested();
    // Encrypted results the user sends on to the Decrypt screen.
    void decryptRequested(const QStringList& paths);

protected:
    // Covers the screen with `overlay`, runs `run`, shows its dialog (if any) once it ends,
    // then runs `finish` and removes the overlay.
    void runOperation(OperationRun* run, ProgressOverlay* overlay, std::function<void()> finish);

    // Where a screen puts what it has beside the files (the Encrypt screen: its recipients).
    QHBoxLayout* columns() const { return m_columns; }

    const Session& session() const { return m_session; }
    // Who the files are for, on a screen that asks (the Encrypt screen).
    virtual std::optional<OperationLine::Recipients> lineRecipients() const { return std::nullopt; }

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void applyButtons(const IntakeList::Buttons& buttons);
    // After an operation that was not cancelled: the summary line, the newest results first,
    // and a desktop notification when the window is in the background.
    void tellOutcome(const OperationRun::Outcome& outcome);
    QString resultPath(int row) const;
    void showResultMenu(const QPoint& position);

    Settings m_settings;
    const Session& m_session;
    DesktopNotifier& m_notifier;
    Widgets m_widgets;
    IntakeList* m_intake;
    ResultFolder* m_results;
    FileListModel* m_intakeModel;
    FileListModel* m_resultModel;
    QHBoxLayout* m_columns;
    QList<Line*> m_lines;
    ProgressOverlay* m_overlay = nullptr;
    OperationRun* m_run = nullptr;
    ResultOrderModel* m_resultOrder = nullptr;
    QWidget* m_intakePanel = nullptr;
    QWidget* m_summaryRow = nullptr;
    QStringList m_lastResults;
    QStringList m_lastFailed;
    QString m_problemsTitle;
    QString m_problemsText;
    bool m_isOperationEnabled = false;
};

// The state a switched button shows: enabled and its "state" property on.
void switchButton(QPushButton* button, bool on);
