#pragma once

#include "screens/FileScreen.h"

class NetworkClient;
class PhoneServiceClient;
class RecipientsPanel;

// The Encrypt screen: files to encrypt, the encrypted results, and the recipients beside them.
class EncryptViewController : public FileScreen
{
    Q_OBJECT

public:
    // The recipients come from the phone's service and its group API.
    EncryptViewController(const Session& session, DesktopNotifier& notifier, PhoneServiceClient& phoneService,
        NetworkClient& api, QWidget* parent = nullptr);

    const FileList& filesToEncrypt() const { return intakeList()->files(); }
    const FileList& encryptedFiles() const;
    FileTableView* filesToEncryptTable() const { return widgets().intakeTable; }
    FileTableView* encryptedFilesTable() const { return widgets().resultTable; }
    QPushButton* encryptButton() const { return widgets().operationButton; }
    bool isEncryptFilesEnabled() const { return isOperationEnabled(); }

    // ENCRYPT: recipients checked first, then files; then the phone does the work.
    void encryptFiles();

    // The right-hand column: the people and groups to encrypt for.
    RecipientsPanel* recipients() const { return m_recipients; }

protected:
    std::optional<OperationLine::Recipients> lineRecipients() const override;

private:
    RecipientsPanel* m_recipients = nullptr;
};
