#include "screens/EncryptViewController.h"

#include "app/Session.h"
#include "files/ResultFolder.h"
#include "operations/OperationRun.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsController.h"
#include "screens/RecipientsPanel.h"
#include "storage/WorkingFolders.h"
#include "widgets/Dialogs.h"
#include "widgets/ProgressOverlay.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace {

FileScreen::Settings encryptSettings()
{
    //: Files to encrypt title
    //% "UPLOAD FILES"
    const QString intake = qtTrId("filesToEncrypt");
    //: Encrypted files title
    //% "FILES ENCRYPTED"
    const QString result = qtTrId("encryptedFiles");
    //: Encrypt button
    //% "ENCRYPT"
    const QString operation = qtTrId("encrypt");
    //: Dialog description when adding files that are already added
    //% "You can only add files that aren't encrypted or uploaded"
    const QString refusal = qtTrId("filesToEncryptDialogDescription");
    return { IntakeList::Kind::Encrypt, QStringLiteral("filesToEncryptTable"),
        QStringLiteral("encryptedFilesTable"), intake, result, operation, refusal,
        WorkingFolders::documentsFolder(), WorkingFolders::encryptedFilesFolder(), std::chrono::seconds(3),
        3 };
}

} // namespace

EncryptViewController::EncryptViewController(const Session& session, DesktopNotifier& notifier,
    PhoneServiceClient& phoneService, NetworkClient& api, QWidget* parent)
    : FileScreen(encryptSettings(), session, notifier, parent)
{
    setObjectName(QStringLiteral("EncryptViewController"));
    auto* recipientsArea = new QWidget(this);
    recipientsArea->setObjectName(QStringLiteral("recipientsArea"));
    auto* layout = new QVBoxLayout(recipientsArea);
    layout->setContentsMargins(0, 0, 0, 0);
    m_recipients = new RecipientsPanel(session, phoneService, api, recipientsArea);
    layout->addWidget(m_recipients);
    columns()->addWidget(recipientsArea, 2);

    // One rule for the encrypt button, from both sides: a marked file and a recipient.
    AssociationsStore* store = m_recipients->store();
    intakeList()->setOperationPrecondition([store] { return !store->selectedRecipientEmails().isEmpty(); });
    connect(store, &AssociationsStore::recipientsChanged, intakeList(), &IntakeList::updateOperationButton);
    // Names and counts change with any mark, and with a reply that renames or regroups.
    connect(store, &AssociationsStore::marksChanged, this, &FileScreen::updateOperationLine);
    connect(store, &AssociationsStore::recipientsChanged, this, &FileScreen::updateOperationLine);
    connect(store, &AssociationsStore::itemsChanged, this, &FileScreen::updateOperationLine);
    updateOperationLine();
    RecipientsController* controller = m_recipients->controller();
    if (session.isPhoneConnected())
        controller->start();
    // Made before the phone connected (files handed over first): the people come when it does.
    connect(&session, &Session::phoneConnectedChanged, controller, [controller](bool connected) {
        if (connected && !controller->isStarted())
            controller->start();
    });
    connect(this, &FileScreen::operationRequested, this, &EncryptViewController::encryptFiles);
}

void EncryptViewController::encryptFiles()
{
    if (runningOperation())
        return;
    if (m_recipients->store()->selectedRecipientEmails().isEmpty()) {
        //: Dialog title when no recipients are selected
        //% "No recipients selected"
        const QString title = qtTrId("noRecipientsTitle");
        //: Dialog description when no recipients are selected
        //% "Please select at least one user or group to encrypt files for."
        showAlert(this, title, qtTrId("noRecipientsDescription"), Dialogs::Style::Warning);
        return;
    }
    QStringList marked;
    for (const FilePtr& file : filesToEncrypt()) {
        if (file->isChecked && file->filePath)
            marked.append(*file->filePath);
    }
    if (marked.isEmpty()) {
        //: Dialog title when no files are selected
        //% "No files selected"
        const QString title = qtTrId("noFilesTitle");
        //: Dialog description when no files are selected
        //% "Please select at least one file to encrypt."
        showAlert(this, title, qtTrId("noFilesDescription"), Dialogs::Style::Warning);
        return;
    }
    auto* run = OperationRun::encrypt(session(), WorkingFolders::encryptedFilesFolder().value_or(QString()),
        marked, m_recipients->store()->recipientsString(),
        int(m_recipients->store()->selectedRecipientEmails().size()));
    runOperation(run, new EncryptingViewController(this), [this] {
        // Marks and user checks are cleared; checked groups stay for the next files.
        intakeList()->clearMarks();
        m_recipients->store()->uncheckAllUsers();
    });
}

std::optional<OperationLine::Recipients> EncryptViewController::lineRecipients() const
{
    const AssociationsStore* store = m_recipients->store();
    return OperationLine::Recipients { store->checkedNames(), int(store->selectedRecipientEmails().size()) };
}

const FileList& EncryptViewController::encryptedFiles() const
{
    return resultFolder()->files();
}
