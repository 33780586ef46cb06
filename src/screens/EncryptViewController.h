#pragma once

#include "screens/FileScreen.h"

class RecipientsPanel;

// The Encrypt screen: files to encrypt, the encrypted results, and the recipients beside them.
class EncryptViewController : public FileScreen
{
    Q_OBJECT

public:
    EncryptViewController(const Session& session, DesktopNotifier& notifier, QWidget* parent = nullptr);

    const FileList& filesToEncrypt() const { return intakeList()->files(); }
    const FileList& encryptedFiles() const;
    FileTableView* filesToEncryptTable() const { return widgets().intakeTable; }
    FileTableView* encryptedFilesTable() const { return widgets().resultTable; }
    QPushButton* encryptButton() const { return widgets().operationButton; }
    bool isEncryptFilesEnabled() const { return isOperationEnabled(); }

    // ENCRYPT: recipients checked first, then files; then the phone does the work.
    void encryptFiles();

    // The right-hand column, where the recipients live.
    QWidget* recipientsArea = nullptr;
    RecipientsPanel* recipients = nullptr;
};
