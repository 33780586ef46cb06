#include "files/EncryptViewController.h"

#include "files/ResultFolder.h"
#include "storage/WorkingFolders.h"

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
    return { IntakeList::Kind::Encrypt, QStringLiteral("filesToEncryptTable"), QStringLiteral("encryptedFilesTable"),
             intake, result, operation, refusal, WorkingFolders::documentsFolder(),
             WorkingFolders::encryptedFilesFolder(), std::chrono::seconds(3), 3 };
}

} // namespace

EncryptViewController::EncryptViewController(QWidget* parent)
    : FileScreen(encryptSettings(), parent)
{
    setObjectName(QStringLiteral("EncryptViewController"));
    recipientsArea = new QWidget(this);
    recipientsArea->setObjectName(QStringLiteral("recipientsArea"));
    auto* layout = new QVBoxLayout(recipientsArea);
    layout->setContentsMargins(0, 0, 0, 0);
    columns()->addWidget(recipientsArea, 2);
}

const FileList& EncryptViewController::encryptedFiles() const
{
    return resultFolder()->files();
}
