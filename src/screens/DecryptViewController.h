#pragma once

#include "screens/FileScreen.h"

// The Decrypt screen: encrypted files to decrypt and the decrypted results.
class DecryptViewController : public FileScreen
{
    Q_OBJECT

public:
    explicit DecryptViewController(QWidget* parent = nullptr);

    const FileList& filesToDecrypt() const { return intakeList()->files(); }
    const FileList& decryptedFiles() const;
    FileTableView* filesToDecryptTable() const { return intakeTable; }
    FileTableView* decryptedFilesTable() const { return resultTable; }
    QPushButton* decryptButton() const { return operationButton; }
    bool isDecryptFilesEnabled() const { return isOperationEnabled; }

    // DECRYPT: the marked files go to the phone; no checks before sending.
    void uploadForDecryption();
};
