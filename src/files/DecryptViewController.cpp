#include "files/DecryptViewController.h"

#include "files/ResultFolder.h"
#include "storage/WorkingFolders.h"

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
    return { IntakeList::Kind::Decrypt, QStringLiteral("filesToDecryptTable"), QStringLiteral("decryptedFilesTable"),
             intake, result, operation, refusal, WorkingFolders::encryptedFilesFolder(),
             WorkingFolders::decryptedFilesFolder(), std::chrono::seconds(5), 2 };
}

} // namespace

DecryptViewController::DecryptViewController(QWidget* parent)
    : FileScreen(decryptSettings(), parent)
{
    setObjectName(QStringLiteral("DecryptViewController"));
}

const FileList& DecryptViewController::decryptedFiles() const
{
    return resultFolder()->files();
}
