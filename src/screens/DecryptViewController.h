#pragma once

#include "screens/FileScreen.h"

// The Decrypt screen: encrypted files to decrypt and the decrypted results.
class DecryptViewController : public FileScreen
{
    Q_OBJECT

public:
    DecryptViewController(const Session& session, DesktopNotifier& notifier, QWidget* parent = nullptr);

    const FileList& filesToDecrypt() const { return intakeList()->files(); }
    const FileList& decryptedFiles() const;
    FileTableView* filesToDecryptTable() const { return widgets().intakeTable; }
    FileTableView* decryptedFilesTable() const { return widgets().resultTable; }
    QPushButton* decryptButton() const { return widgets().operationButton; }
    bool isDecryptFilesEnabled() const { return isOperationEnabled(); }

    // DECRYPT: the marked files go to the phone; no checks before sending.
    void uploadForDecryption();
};
