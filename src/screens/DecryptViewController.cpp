#include "screens/DecryptViewController.h"

#include "files/ResultFolder.h"
#include "operations/OperationRun.h"
#include "storage/WorkingFolders.h"
#include "widgets/ProgressOverlay.h"

namespace {

FileScreen::Settings decryptSettings()
{
    //: Files to decrypt title
    //% "UPLOAD FILES"
    const QString intake = qtTrId("filesToDecrypt");
    //: Decrypred files title
    //% "DECRYPTED FILES"
    const QString result = qtTrId("decryptedFiles");
    //: Decrypt files button
    //% "DECRYPT"
    const QString operation = qtTrId("decrypt");
    //: Dialog description when adding files that are already added
    //% "You can only add encrypted files or files that haven't already been uploaded"
    const QString refusal = qtTrId("filesToDecryptDialogDescription");
    return { IntakeList::Kind::Decrypt, QStringLiteral("filesToDecryptTable"),
        QStringLiteral("decryptedFilesTable"), intake, result, operation, refusal,
        WorkingFolders::encryptedFilesFolder(), WorkingFolders::decryptedFilesFolder(),
        std::chrono::seconds(5), 2 };
}

} // namespace

DecryptViewController::DecryptViewController(
    const Session& session, DesktopNotifier& notifier, QWidget* parent)
    : FileScreen(decryptSettings(), session, notifier, parent)
{
    setObjectName(QStringLiteral("DecryptViewController"));
    connect(this, &FileScreen::operationRequested, this, &DecryptViewController::uploadForDecryption);
}

void DecryptViewController::uploadForDecryption()
{
    if (runningOperation())
        return;
    QList<DecryptTask::Intake> files;
    for (const FilePtr& file : filesToDecrypt())
        files.append({ file->filePath.value_or(QString()), file->isChecked });
    auto* run
        = OperationRun::decrypt(session(), WorkingFolders::decryptedFilesFolder().value_or(QString()), files);
    runOperation(run, new DecryptingViewController(this), [this] { intakeList()->clearMarks(); });
}

const FileList& DecryptViewController::decryptedFiles() const
{
    return resultFolder()->files();
}
