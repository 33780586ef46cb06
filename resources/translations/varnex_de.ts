<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name></name>
    <message id="commandLineDescription">
        <source>Encrypt and decrypt files with your phone.</source>
        <translation>Dateien mit Ihrem Telefon ver- und entschlüsseln.</translation>
    </message>
    <message id="commandLineTryHelp">
        <source>Try &apos;%1 --help&apos; for more information.</source>
        <translation>Weitere Informationen erhalten Sie mit „%1 --help“.</translation>
    </message>
    <message id="VarnexDesktopNotConnected">
        <source>Varnex Dekstop Application (Not connected)</source>
        <extracomment>Application name</extracomment>
        <translation>Varnex Desktop-Anwendung (nicht verbunden)</translation>
    </message>
    <message id="VarnexDesktopConnected">
        <source>Varnex Dekstop Application (Connected: </source>
        <extracomment>Application name</extracomment>
        <translation>Varnex Desktop-Anwendung (verbunden: </translation>
    </message>
    <message id="encryptButton">
        <source>ENCRYPT</source>
        <extracomment>Encrypt navigation button</extracomment>
        <translation>VERSCHLÜSSELN</translation>
    </message>
    <message id="decryptButton">
        <source>DECRYPT</source>
        <extracomment>Decrypt navigaiton button</extracomment>
        <translation>ENTSCHLÜSSELN</translation>
    </message>
    <message id="unsuccessfulDecryptionTitle">
        <source>Decryption failed</source>
        <extracomment>Dialog title when decryption is unsuccessful</extracomment>
        <translation>Entschlüsselung fehlgeschlagen</translation>
    </message>
    <message id="connectionTimeout">
        <source>Connection timeout</source>
        <extracomment>Dialog description when the encryption is unsuccessful</extracomment>
        <translation>Zeitüberschreitung der Verbindung</translation>
    </message>
    <message id="dialogOtherUsersDecryption">
        <source>Some of the files are encrypted for other users</source>
        <extracomment>Error dialog when trying to decrypt files that are not encrypted for you</extracomment>
        <translation>Einige der Dateien sind für andere Benutzer verschlüsselt</translation>
    </message>
    <message id="unsuccessfulEncryptionTitle">
        <source>Encryption failed</source>
        <extracomment>Dialog title when encryption is unsuccessful</extracomment>
        <translation>Verschlüsselung fehlgeschlagen</translation>
    </message>
    <message id="filesToDecrypt">
        <source>UPLOAD FILES</source>
        <extracomment>Files to decrypt title</extracomment>
        <translation>DATEIEN</translation>
    </message>
    <message id="decryptedFiles">
        <source>DECRYPTED FILES</source>
        <extracomment>Decrypred files title</extracomment>
        <translation>ENTSCHLÜSSELTE DATEIEN</translation>
    </message>
    <message id="decrypt">
        <source>DECRYPT</source>
        <extracomment>Decrypt files button</extracomment>
        <translation>ENTSCHLÜSSELN</translation>
    </message>
    <message id="filesToDecryptDialogDescription">
        <source>You can only add encrypted files or files that haven&apos;t already been uploaded</source>
        <extracomment>Dialog description when adding files that are already added</extracomment>
        <translation>Sie können nur verschlüsselte Dateien hinzufügen, die noch nicht hochgeladen wurden</translation>
    </message>
    <message id="filesToEncrypt">
        <source>UPLOAD FILES</source>
        <extracomment>Files to encrypt title</extracomment>
        <translation>DATEIEN</translation>
    </message>
    <message id="encryptedFiles">
        <source>FILES ENCRYPTED</source>
        <extracomment>Encrypted files title</extracomment>
        <translation>VERSCHLÜSSELTE DATEIEN</translation>
    </message>
    <message id="encrypt">
        <source>ENCRYPT</source>
        <extracomment>Encrypt button</extracomment>
        <translation>VERSCHLÜSSELN</translation>
    </message>
    <message id="filesToEncryptDialogDescription">
        <source>You can only add files that aren&apos;t encrypted or uploaded</source>
        <extracomment>Dialog description when adding files that are already added</extracomment>
        <translation>Sie können nur Dateien hinzufügen, die weder verschlüsselt noch bereits hochgeladen sind</translation>
    </message>
    <message id="noRecipientsTitle">
        <source>No recipients selected</source>
        <extracomment>Dialog title when no recipients are selected</extracomment>
        <translation>Keine Empfänger ausgewählt</translation>
    </message>
    <message id="noRecipientsDescription">
        <source>Please select at least one user or group to encrypt files for.</source>
        <extracomment>Dialog description when no recipients are selected</extracomment>
        <translation>Bitte wählen Sie mindestens einen Benutzer oder eine Gruppe aus, für die die Dateien verschlüsselt werden sollen.</translation>
    </message>
    <message id="noFilesTitle">
        <source>No files selected</source>
        <extracomment>Dialog title when no files are selected</extracomment>
        <translation>Keine Dateien ausgewählt</translation>
    </message>
    <message id="noFilesDescription">
        <source>Please select at least one file to encrypt.</source>
        <extracomment>Dialog description when no files are selected</extracomment>
        <translation>Bitte wählen Sie mindestens eine Datei zum Verschlüsseln aus.</translation>
    </message>
    <message id="version">
        <source>Version</source>
        <extracomment>Version text</extracomment>
        <translation>Version</translation>
    </message>
    <message id="aboutDescription">
        <source>Your phone holds your identity and does all encryption and decryption. This application sends it the files you choose and keeps the results in Documents/Varnex.</source>
        <extracomment>About screen: what the desktop application does</extracomment>
        <translation>Ihr Telefon bewahrt Ihre Identität und übernimmt die gesamte Ver- und Entschlüsselung. Diese Anwendung schickt ihm die Dateien, die Sie auswählen, und legt die Ergebnisse im Ordner Varnex unter Ihren Dokumenten ab.</translation>
    </message>
    <message id="associatedUsers">
        <source>ASSOCIATES</source>
        <extracomment>Associated users title</extracomment>
        <translation>KONTAKTE</translation>
    </message>
    <message id="selectDeselectAll">
        <source>SELECT/DESELECT ALL</source>
        <extracomment>Select deselect all files button
----------
Select deselect all users button</extracomment>
        <translation>ALLE/KEINE</translation>
    </message>
    <message id="search">
        <source>Search</source>
        <extracomment>Search placeholder</extracomment>
        <translation>Suchen</translation>
    </message>
    <message id="chooseFiles">
        <source>UPLOAD</source>
        <extracomment>Choose files button</extracomment>
        <translation>HOCHLADEN</translation>
    </message>
    <message id="removeFiles">
        <source>REMOVE</source>
        <extracomment>Remove files button</extracomment>
        <translation>ENTFERNEN</translation>
    </message>
    <message id="openVarnexFolder">
        <source>OPEN FOLDER</source>
        <extracomment>Open Varnex folder button</extracomment>
        <translation>ORDNER ÖFFNEN</translation>
    </message>
    <message id="filesToEncryptDialogTitle">
        <source>Some of the files cannot be added</source>
        <extracomment>Dialog title when adding files that are already added</extracomment>
        <translation>Einige Dateien können nicht hinzugefügt werden</translation>
    </message>
    <message id="stageSending">
        <source>Sending %1 of %2</source>
        <extracomment>Progress while files go to the phone</extracomment>
        <translation>Senden: %1 von %2</translation>
    </message>
    <message id="noLocalAddress">
        <source>This computer has no local network address. Connect it to the same Wi-Fi network as your phone.</source>
        <extracomment>Shown in place of the pairing code when this computer has addresses but none on a local network</extracomment>
        <translation>Dieser Computer hat keine Adresse im lokalen Netzwerk. Verbinden Sie ihn mit demselben WLAN wie Ihr Telefon.</translation>
    </message>
    <message id="stageConnecting">
        <source>Connecting to the phone...</source>
        <extracomment>Progress before the first bytes go to the phone</extracomment>
        <translation>Verbindung zum Telefon …</translation>
    </message>
    <message id="stageWaiting">
        <source>Waiting for the phone...</source>
        <extracomment>Progress while the phone works on the files</extracomment>
        <translation>Warten auf das Telefon …</translation>
    </message>
    <message id="stageUnpacking">
        <source>Saving the results...</source>
        <extracomment>Progress while the results are unpacked</extracomment>
        <translation>Ergebnisse werden gespeichert …</translation>
    </message>
    <message id="stageCancelling">
        <source>Cancelling...</source>
        <extracomment>Progress once the user cancelled</extracomment>
        <translation>Wird abgebrochen …</translation>
    </message>
    <message id="cannotFindIP">
        <source>Cannot find IP address</source>
        <extracomment>Text when ip address is not found</extracomment>
        <translation>IP-Adresse nicht gefunden</translation>
    </message>
    <message id="usage">
        <source>TO USE VARNEX ON YOUR COMPUTER:</source>
        <extracomment>QRCode window instructions title</extracomment>
        <translation>SO NUTZEN SIE VARNEX AUF IHREM COMPUTER:</translation>
    </message>
    <message id="openVarnexOnPhone">
        <source>1. Open Varnex on your phone</source>
        <extracomment>First instruction</extracomment>
        <translation>1. Öffnen Sie Varnex auf Ihrem Telefon</translation>
    </message>
    <message id="tapMenu">
        <source>2. Tap Menu and open QR code</source>
        <extracomment>Second instruction</extracomment>
        <translation>2. Tippen Sie auf „Menü“ und öffnen Sie den QR-Code</translation>
    </message>
    <message id="pointPhone">
        <source>3. Point your phone to this screen to capture the code</source>
        <extracomment>Third instruction</extracomment>
        <translation>3. Richten Sie Ihr Telefon auf diesen Bildschirm, um den Code zu erfassen</translation>
    </message>
    <message id="cancelOperation">
        <source>Cancel</source>
        <extracomment>Button that stops a running encryption or decryption</extracomment>
        <translation>Abbrechen</translation>
    </message>
    <message id="encrypting">
        <source>ENCRYPTING</source>
        <extracomment>Encrypting text</extracomment>
        <translation>VERSCHLÜSSELUNG</translation>
    </message>
    <message id="decrypting">
        <source>DECRYPTING</source>
        <extracomment>Decrypting text</extracomment>
        <translation>ENTSCHLÜSSELUNG</translation>
    </message>
    <message id="aboutButton">
        <source>About</source>
        <extracomment>Name and tool tip of the About navigation button</extracomment>
        <translation>Info</translation>
    </message>
    <message id="transferSpeed">
        <source>%1/s</source>
        <extracomment>Transfer speed, %1 is an amount such as 12.3 MB</extracomment>
        <translation>%1/s</translation>
    </message>
    <message id="transferSpeedAndTimeLeft">
        <source>%1 · %2 left</source>
        <extracomment>Speed and time left of a transfer, as in &quot;12.3 MB/s · 0:42 left&quot;</extracomment>
        <translation>%1 · noch %2</translation>
    </message>
    <message id="searchRecipientsName">
        <source>Search recipients</source>
        <extracomment>Accessible name of the recipients search field</extracomment>
        <translation>Empfänger suchen</translation>
    </message>
    <message id="groupOptions">
        <source>Group options</source>
        <extracomment>Tool tip and accessible name of a group&apos;s menu button</extracomment>
        <translation>Gruppenoptionen</translation>
    </message>
    <message id="chooseFilesTip">
        <source>Choose files to add, or drop them on the list</source>
        <extracomment>Tool tip of the choose files button</extracomment>
        <translation>Dateien zum Hinzufügen auswählen oder auf die Liste ziehen</translation>
    </message>
    <message id="emptyIntakeHint">
        <source>Drop files here or press %1</source>
        <extracomment>Shown in an empty list of files to encrypt or decrypt; %1 is the choose files button&apos;s title</extracomment>
        <translation>Dateien hierher ziehen oder %1 drücken</translation>
    </message>
    <message id="timeWaited">
        <source>Waiting for %1</source>
        <extracomment>Under the progress while the phone works, %1 is a time such as 0:42</extracomment>
        <translation>Wartezeit: %1</translation>
    </message>
    <message id="pairingCodeName">
        <source>Pairing QR code</source>
        <extracomment>Accessible name of the pairing QR code</extracomment>
        <translation>QR-Code zum Koppeln</translation>
    </message>
    <message id="computerAddressName">
        <source>Computer address</source>
        <extracomment>Accessible name of the computer&apos;s address on the pairing screen</extracomment>
        <translation>Adresse des Computers</translation>
    </message>
    <message id="addressChoiceName">
        <source>Address shown in the code</source>
        <extracomment>Accessible name of the choice of address on the pairing screen</extracomment>
        <translation>Im Code gezeigte Adresse</translation>
    </message>
    <message id="addressChoiceTip">
        <source>This computer has several network addresses: choose the one your phone can reach</source>
        <extracomment>Tool tip of the choice of address on the pairing screen</extracomment>
        <translation>Dieser Computer hat mehrere Netzwerkadressen: Wählen Sie die, die Ihr Telefon erreichen kann</translation>
    </message>
    <message id="operationProgress">
        <source>Progress</source>
        <extracomment>Accessible name of the progress bar of an encryption or decryption</extracomment>
        <translation>Fortschritt</translation>
    </message>
    <message id="notEnoughFreeSpace">
        <source>There is not enough free space in %1.</source>
        <extracomment>Dialog description when the results would not fit on the disk; %1 is the results folder</extracomment>
        <translation>In %1 ist nicht genügend Speicherplatz frei.</translation>
    </message>
    <message id="replyNotSaved">
        <source>The phone&apos;s reply could not be saved: %1.</source>
        <extracomment>Dialog description when the phone&apos;s reply cannot be stored; %1 says why</extracomment>
        <translation>Die Antwort des Telefons konnte nicht gespeichert werden: %1.</translation>
    </message>
    <message id="replyBadName">
        <source>it holds a file whose name cannot be used (%1)</source>
        <extracomment>Why a reply was not saved; %1 is the refused name</extracomment>
        <translation>sie enthält eine Datei, deren Name nicht verwendet werden kann (%1)</translation>
    </message>
    <message id="replyNotAPlainFile">
        <source>it holds a link or a special file (%1)</source>
        <extracomment>Why a reply was not saved; %1 is the entry&apos;s name</extracomment>
        <translation>sie enthält einen Verweis oder eine Spezialdatei (%1)</translation>
    </message>
    <message id="replyTooManyEntries">
        <source>it holds more than %1 files</source>
        <extracomment>Why a reply was not saved</extracomment>
        <translation>sie enthält mehr als %1 Dateien</translation>
    </message>
    <message id="replyCannotWrite">
        <source>a file could not be written (%1)</source>
        <extracomment>Why a reply was not saved; %1 is the system&apos;s reason</extracomment>
        <translation>eine Datei konnte nicht geschrieben werden (%1)</translation>
    </message>
    <message id="replyBroken">
        <source>it is damaged or not a zip archive</source>
        <extracomment>Why a reply was not saved</extracomment>
        <translation>sie ist beschädigt oder kein ZIP-Archiv</translation>
    </message>
    <message id="fileChangedWhileSent">
        <source>%1 changed while it was being sent. Nothing was saved; please try again.</source>
        <extracomment>Dialog description when a file changed size while it was being sent; %1 is its name</extracomment>
        <translation>%1 wurde während des Sendens geändert. Es wurde nichts gespeichert; bitte versuchen Sie es erneut.</translation>
    </message>
    <message id="replyEmpty">
        <source>it is empty</source>
        <extracomment>Why a reply was not saved</extracomment>
        <translation>sie ist leer</translation>
    </message>
    <message id="resultsNotMovedIn">
        <source>The results could not be moved into %1: %2.</source>
        <extracomment>Dialog description when the results cannot be put into their folder; %1 is the folder, %2 why</extracomment>
        <translation>Die Ergebnisse konnten nicht nach %1 verschoben werden: %2.</translation>
    </message>
    <message id="aboutPairedWith">
        <source>Paired with %1 (%2)</source>
        <extracomment>About screen: the phone this computer trusts. %1 is its name, %2 its address.</extracomment>
        <translation>Gekoppelt mit %1 (%2)</translation>
    </message>
    <message id="pairingRequestSwitch">
        <source>Switch</source>
        <extracomment>Pairing bar while a phone is connected: use the phone that asks instead</extracomment>
        <translation>Wechseln</translation>
    </message>
    <message id="pairingRequestIgnore">
        <source>Ignore</source>
        <extracomment>Pairing bar: keep things as they are</extracomment>
        <translation>Ignorieren</translation>
    </message>
    <message id="createGroupButton">
        <source>CREATE GROUP</source>
        <extracomment>Button under the recipients that creates a group</extracomment>
        <translation>GRUPPE ERSTELLEN</translation>
    </message>
    <message id="groupErrorTitle">
        <source>Error</source>
        <extracomment>Title of the alert that tells why a group change failed</extracomment>
        <translation>Fehler</translation>
    </message>
    <message id="groupCreateTitle">
        <source>Create New Group</source>
        <extracomment>Title of the dialog that names a new group</extracomment>
        <translation>Neue Gruppe erstellen</translation>
    </message>
    <message id="groupCreatePrompt">
        <source>Enter group name:</source>
        <translation>Gruppennamen eingeben:</translation>
    </message>
    <message id="groupCreateButton">
        <source>Create</source>
        <extracomment>Button that creates the group</extracomment>
        <translation>Erstellen</translation>
    </message>
    <message id="groupNotConnected">
        <source>Not connected. Please scan QR code with iOS app first.</source>
        <translation>Nicht verbunden. Bitte scannen Sie zuerst den QR-Code mit der iOS-App.</translation>
    </message>
    <message id="groupMenuAddMember">
        <source>Add Member</source>
        <extracomment>Group menu item</extracomment>
        <translation>Mitglied hinzufügen</translation>
    </message>
    <message id="groupMenuRemoveMember">
        <source>Remove Member</source>
        <extracomment>Group menu item</extracomment>
        <translation>Mitglied entfernen</translation>
    </message>
    <message id="groupMenuDelete">
        <source>Delete Group</source>
        <extracomment>Group menu item</extracomment>
        <translation>Gruppe löschen</translation>
    </message>
    <message id="groupEditPrompt">
        <source>Enter new group name:</source>
        <translation>Neuen Gruppennamen eingeben:</translation>
    </message>
    <message id="groupSaveButton">
        <source>Save</source>
        <extracomment>Button that renames the group</extracomment>
        <translation>Speichern</translation>
    </message>
    <message id="groupUpdateFailed">
        <source>Failed to update group: %1</source>
        <translation>Die Gruppe konnte nicht geändert werden: %1</translation>
    </message>
    <message id="groupAddUsersTitle">
        <source>Add Users to &apos;%1&apos;</source>
        <extracomment>Title of the dialog that adds members; %1 is the group&apos;s name</extracomment>
        <translation>Benutzer zu „%1“ hinzufügen</translation>
    </message>
    <message id="groupNoUsersAvailable">
        <source>No users available</source>
        <translation>Keine Benutzer verfügbar</translation>
    </message>
    <message id="groupNoMembersToRemove">
        <source>No members to remove</source>
        <translation>Keine Mitglieder zum Entfernen</translation>
    </message>
    <message id="groupRemoveUsersTitle">
        <source>Remove Users from &apos;%1&apos;</source>
        <extracomment>Title of the dialog that removes members; %1 is the group&apos;s name</extracomment>
        <translation>Benutzer aus „%1“ entfernen</translation>
    </message>
    <message id="groupAddFailed">
        <source>Failed to add users: %1</source>
        <translation>Die Benutzer konnten nicht hinzugefügt werden: %1</translation>
    </message>
    <message id="groupRemoveFailed">
        <source>Failed to remove users: %1</source>
        <translation>Die Benutzer konnten nicht entfernt werden: %1</translation>
    </message>
    <message id="groupCannotDeleteTitle">
        <source>Cannot Delete Group</source>
        <translation>Gruppe kann nicht gelöscht werden</translation>
    </message>
    <message id="groupCannotDeleteText">
        <source>Please remove all members from &apos;%1&apos; before deleting the group.</source>
        <extracomment>%1 is the group&apos;s name</extracomment>
        <translation>Bitte entfernen Sie alle Mitglieder aus „%1“, bevor Sie die Gruppe löschen.</translation>
    </message>
    <message id="groupDeleteTitle">
        <source>Delete Group</source>
        <extracomment>Title of the dialog that confirms deleting a group</extracomment>
        <translation>Gruppe löschen</translation>
    </message>
    <message id="groupDeleteQuestion">
        <source>Are you sure you want to delete &apos;%1&apos;? This action cannot be undone.</source>
        <extracomment>%1 is the group&apos;s name</extracomment>
        <translation>Möchten Sie „%1“ wirklich löschen? Das kann nicht rückgängig gemacht werden.</translation>
    </message>
    <message id="groupDeleteButton">
        <source>Delete</source>
        <extracomment>Button that deletes the group</extracomment>
        <translation>Löschen</translation>
    </message>
    <message id="groupDeleteFailed">
        <source>Failed to delete group: %1</source>
        <translation>Die Gruppe konnte nicht gelöscht werden: %1</translation>
    </message>
    <message id="groupNamePlaceholder">
        <source>Group name</source>
        <extracomment>Placeholder of the group name field</extracomment>
        <translation>Gruppenname</translation>
    </message>
    <message id="groupLoadUsersFailed">
        <source>Failed to load users: %1</source>
        <translation>Die Benutzer konnten nicht geladen werden: %1</translation>
    </message>
    <message id="dialogOK">
        <source>OK</source>
        <extracomment>Button that accepts a dialog</extracomment>
        <translation>OK</translation>
    </message>
    <message id="dialogCancel">
        <source>Cancel</source>
        <extracomment>Button that declines a dialog</extracomment>
        <translation>Abbrechen</translation>
    </message>
    <message id="groupMemberCount" numerus="yes">
        <source>%n member(s)</source>
        <extracomment>Under a group&apos;s name: how many members it has</extracomment>
        <translation>
            <numerusform>%n Mitglied</numerusform>
            <numerusform>%n Mitglieder</numerusform>
        </translation>
    </message>
    <message id="apiDecodingError">
        <source>Decoding error: %1</source>
        <translation>Antwort nicht lesbar: %1</translation>
    </message>
    <message id="apiNetworkError">
        <source>Network error: %1</source>
        <translation>Netzwerkfehler: %1</translation>
    </message>
    <message id="apiBadRequest">
        <source>Bad request: %1</source>
        <translation>Ungültige Anfrage: %1</translation>
    </message>
    <message id="apiNotFound">
        <source>Not found: %1</source>
        <translation>Nicht gefunden: %1</translation>
    </message>
    <message id="apiConflict">
        <source>Conflict: %1</source>
        <translation>Konflikt: %1</translation>
    </message>
    <message id="apiHttpError">
        <source>HTTP error %1</source>
        <translation>HTTP-Fehler %1</translation>
    </message>
    <message id="apiInvalidURL">
        <source>Invalid URL</source>
        <translation>Ungültige URL</translation>
    </message>
    <message id="apiInvalidResponse">
        <source>Invalid response from server</source>
        <translation>Ungültige Antwort vom Server</translation>
    </message>
    <message id="apiNotAuthenticated">
        <source>Not authenticated. Please scan QR code with iOS app first.</source>
        <translation>Nicht angemeldet. Bitte scannen Sie zuerst den QR-Code mit der iOS-App.</translation>
    </message>
    <message id="aboutForgetPhone">
        <source>Forget this phone</source>
        <extracomment>About screen: stop trusting the paired phone and show the pairing screen again</extracomment>
        <translation>Dieses Telefon vergessen</translation>
    </message>
    <message id="aboutPairedWithEmail">
        <source>Paired with %1 (%2, %3)</source>
        <extracomment>About screen: the phone this computer trusts. %1 is its name, %2 its address, %3 the e-mail of its user.</extracomment>
        <translation>Gekoppelt mit %1 (%2, %3)</translation>
    </message>
    <message id="forgetPhoneTitle">
        <source>Forget %1?</source>
        <extracomment>Title of the question before forgetting the paired phone. %1 is its name.</extracomment>
        <translation>%1 vergessen?</translation>
    </message>
    <message id="forgetPhoneQuestion">
        <source>This computer will no longer connect to it by itself, and the next phone that scans the code asks to pair. The files in your lists stay.</source>
        <oldsource>This computer will no longer connect to it by itself. Your lists start afresh, and the next phone that scans the code asks to pair.</oldsource>
        <extracomment>Question before forgetting the paired phone</extracomment>
        <translation>Dieser Computer verbindet sich dann nicht mehr von selbst mit ihm, und das nächste Telefon, das den Code scannt, fragt nach einer Kopplung. Die Dateien in Ihren Listen bleiben.</translation>
    </message>
    <message id="forgetPhoneButton">
        <source>Forget</source>
        <extracomment>Button that forgets the paired phone</extracomment>
        <translation>Vergessen</translation>
    </message>
    <message id="operationPhoneLost">
        <source>Contact with the phone was lost, so the operation was stopped. Nothing was changed: your files and the result folder are as they were.</source>
        <extracomment>Failure dialog when the phone stopped answering during an operation</extracomment>
        <translation>Die Verbindung zum Telefon ist abgebrochen, deshalb wurde der Vorgang beendet. Nichts wurde verändert: Ihre Dateien und der Ergebnisordner sind wie zuvor.</translation>
    </message>
    <message id="pairingRequestOne">
        <source>A device asks to pair with this computer.</source>
        <extracomment>Pairing bar when one device asks</extracomment>
        <translation>Ein Gerät möchte sich mit diesem Computer koppeln.</translation>
    </message>
    <message id="pairingRequestSeveral">
        <source>%1 devices ask to pair with this computer at once. Only one can be your phone: choose it.</source>
        <extracomment>Pairing bar when several devices ask at once. %1 is how many (2 or more).</extracomment>
        <translation>%1 Geräte möchten sich gleichzeitig mit diesem Computer koppeln. Nur eines kann Ihr Telefon sein: Wählen Sie es aus.</translation>
    </message>
    <message id="pairingRequestName">
        <source>Name it gives itself: %1</source>
        <extracomment>Pairing bar: the name the device gives itself, apart from what the desktop knows of it. %1 is the quoted name.</extracomment>
        <translation>Name, den es sich selbst gibt: %1</translation>
    </message>
    <message id="pairingQuotedName">
        <source>“%1”</source>
        <extracomment>Pairing bar: a device&apos;s name as it gives it, quoted so that nothing in it runs into the facts around it</extracomment>
        <translation>„%1“</translation>
    </message>
    <message id="pairingRequestNoName">
        <source>no name</source>
        <extracomment>Pairing bar: stands for the name of a device that sent none</extracomment>
        <translation>kein Name</translation>
    </message>
    <message id="pairingRequestNoEmail">
        <source>no e-mail</source>
        <extracomment>Pairing bar: the device sent no e-mail</extracomment>
        <translation>keine E-Mail</translation>
    </message>
    <message id="pairingRequestFacts">
        <source>Sent from %1 · E-mail: %2</source>
        <extracomment>Pairing bar: facts the desktop itself knows about the request. %1 is the address the message came from, %2 the e-mail (or &quot;no e-mail&quot;).</extracomment>
        <translation>Gesendet von %1 · E-Mail: %2</translation>
    </message>
    <message id="pairingRequestServiceHost">
        <source>Group service at %1</source>
        <extracomment>Pairing bar, after the facts, when the device&apos;s group service is on another host. %1 is that host.</extracomment>
        <translation>Gruppendienst auf %1</translation>
    </message>
    <message id="pairingClaimsTrusted">
        <source>It carries the e-mail of your paired phone %1, which answers at %2; this request comes from %3.</source>
        <extracomment>Pairing bar: the request carries the paired phone&apos;s e-mail from another address. %1 is the paired phone&apos;s name, %2 its address, %3 the address this request came from.</extracomment>
        <translation>Es trägt die E-Mail Ihres gekoppelten Telefons %1, das unter %2 antwortet; diese Anfrage kommt von %3.</translation>
    </message>
    <message id="pairingSameEmailTrusted">
        <source>Your paired phone has the same e-mail.</source>
        <extracomment>Pairing bar: a mark on a request</extracomment>
        <translation>Ihr gekoppeltes Telefon hat dieselbe E-Mail.</translation>
    </message>
    <message id="pairingSameNameTrusted">
        <source>Your paired phone has the same name.</source>
        <extracomment>Pairing bar: a mark on a request</extracomment>
        <translation>Ihr gekoppeltes Telefon hat denselben Namen.</translation>
    </message>
    <message id="pairingSameNameWaiting">
        <source>Another device asking has the same name.</source>
        <extracomment>Pairing bar: a mark on a request</extracomment>
        <translation>Ein anderes anfragendes Gerät hat denselben Namen.</translation>
    </message>
    <message id="pairingSameEmailWaiting">
        <source>Another device asking has the same e-mail.</source>
        <extracomment>Pairing bar: a mark on a request</extracomment>
        <translation>Ein anderes anfragendes Gerät hat dieselbe E-Mail.</translation>
    </message>
    <message id="pairingChoiceName">
        <source>Device to pair with</source>
        <extracomment>Accessible name of the choice among several devices asking to pair</extracomment>
        <translation>Zu koppelndes Gerät</translation>
    </message>
    <message id="pairingCompareName">
        <source>Pair only if this name is the one on your phone&apos;s own screen.</source>
        <extracomment>Pairing bar: what to check before pairing</extracomment>
        <translation>Koppeln Sie nur, wenn dieser Name auf dem Bildschirm Ihres Telefons steht.</translation>
    </message>
    <message id="listenerPortTaken">
        <source>Your phone cannot reach Varnex Desktop: another program on this computer is using port %1, where the phone sends its pairing message. Close that program. Varnex Desktop tries again every few seconds.</source>
        <extracomment>Pairing screen, in place of the code, when another program holds the listener&apos;s port. %1 is the port.</extracomment>
        <translation>Ihr Telefon erreicht Varnex Desktop nicht: Ein anderes Programm auf diesem Computer belegt Port %1, an den das Telefon seine Kopplungsnachricht sendet. Schließen Sie dieses Programm. Varnex Desktop versucht es alle paar Sekunden erneut.</translation>
    </message>
    <message id="listenerCannotStart">
        <source>Your phone cannot reach Varnex Desktop: port %1, where the phone sends its pairing message, cannot be opened (%2). Varnex Desktop tries again every few seconds.</source>
        <extracomment>Pairing screen, in place of the code, when the listener cannot start. %1 is the port, %2 the system&apos;s reason.</extracomment>
        <translation>Ihr Telefon erreicht Varnex Desktop nicht: Port %1, an den das Telefon seine Kopplungsnachricht sendet, lässt sich nicht öffnen (%2). Varnex Desktop versucht es alle paar Sekunden erneut.</translation>
    </message>
    <message id="pairingRequestPair">
        <source>Pair</source>
        <extracomment>Pairing bar on the pairing screen: accept the phone that asks</extracomment>
        <translation>Koppeln</translation>
    </message>
    <message id="lostContact">
        <source>Lost contact with %1 at %2. Varnex Desktop reconnects by itself as soon as the phone answers again.</source>
        <extracomment>Pairing screen after the paired phone stopped answering. %1 is its name, %2 the time.</extracomment>
        <translation>Verbindung zu %1 um %2 verloren. Varnex Desktop verbindet sich von selbst wieder, sobald das Telefon antwortet.</translation>
    </message>
    <message id="lookingForPhone">
        <source>Looking for %1 on the network. Or scan the code with another phone.</source>
        <extracomment>Pairing screen at start, while the paired phone has not answered yet. %1 is its name.</extracomment>
        <translation>%1 wird im Netzwerk gesucht. Oder scannen Sie den Code mit einem anderen Telefon.</translation>
    </message>
    <message id="replyEncrypted">
        <source>it is protected by a password, which Varnex cannot open</source>
        <extracomment>Why a reply was not saved: the zip archive from the phone is protected by a password</extracomment>
        <translation>sie ist mit einem Passwort geschützt, das Varnex nicht öffnen kann</translation>
    </message>
    <message id="stageReceivingSavingOf">
        <source>Receiving and saving %1 of %2</source>
        <extracomment>Progress while the results come back and are saved as they arrive</extracomment>
        <translation>Empfangen und gespeichert: %1 von %2</translation>
    </message>
    <message id="stageReceivingSaving">
        <source>Receiving and saving %1</source>
        <extracomment>Progress while the results come back and are saved as they arrive, of unknown size</extracomment>
        <translation>Empfangen und gespeichert: %1</translation>
    </message>
    <message id="refusedFolder">
        <source>a folder</source>
        <extracomment>Why a file was not added: it is a folder</extracomment>
        <translation>ein Ordner</translation>
    </message>
    <message id="refusedNotRegular">
        <source>not a regular file</source>
        <extracomment>Why a file was not added: it is a device, pipe or socket</extracomment>
        <translation>keine normale Datei</translation>
    </message>
    <message id="refusedUnreadable">
        <source>cannot be read</source>
        <extracomment>Why a file was not added: the user may not read it</extracomment>
        <translation>nicht lesbar</translation>
    </message>
    <message id="refusedAlreadyListed">
        <source>already in the list</source>
        <extracomment>Why a file was not added: a file of the same name is in the list</extracomment>
        <translation>schon in der Liste</translation>
    </message>
    <message id="refusedNameTooLong">
        <source>name too long to add &quot;.vx&quot; (255 bytes at most)</source>
        <extracomment>Why a file was not added: its name cannot take &quot;.vx&quot; within the file system&apos;s limit</extracomment>
        <translation>Name zu lang für „.vx“ (höchstens 255 Byte)</translation>
    </message>
    <message id="refusedEncrypted">
        <source>already encrypted</source>
        <extracomment>Why a file was not added to the files to encrypt</extracomment>
        <translation>schon verschlüsselt</translation>
    </message>
    <message id="refusedNotEncrypted">
        <source>not encrypted</source>
        <extracomment>Why a file was not added to the files to decrypt</extracomment>
        <translation>nicht verschlüsselt</translation>
    </message>
    <message id="refusedFileLine">
        <source>%1: %2</source>
        <extracomment>A refused file in the dialog&apos;s list: %1 its name, %2 why it was not added</extracomment>
        <translation>%1: %2</translation>
    </message>
    <message id="refusedFilesMore" numerus="yes">
        <source>and %n more</source>
        <extracomment>Ends the list of refused files when more were refused than listed</extracomment>
        <translation>
            <numerusform>und %n weitere</numerusform>
            <numerusform>und %n weitere</numerusform>
        </translation>
    </message>
    <message id="groupNameCharacters">
        <source>Use only the letters A-Z and digits, starting with a letter.</source>
        <extracomment>Under the group name field while the name has other characters</extracomment>
        <translation>Nur die Buchstaben A-Z und Ziffern verwenden, beginnend mit einem Buchstaben.</translation>
    </message>
    <message id="groupNameLength">
        <source>Use 2 to 250 characters.</source>
        <extracomment>Under the group name field while the name is too short or too long</extracomment>
        <translation>2 bis 250 Zeichen verwenden.</translation>
    </message>
    <message id="groupMenuRename">
        <source>Rename Group…</source>
        <extracomment>Group menu item that opens the dialog renaming the group</extracomment>
        <translation>Gruppe umbenennen…</translation>
    </message>
    <message id="groupRenameTitle">
        <source>Rename Group</source>
        <extracomment>Title of the dialog that renames a group</extracomment>
        <translation>Gruppe umbenennen</translation>
    </message>
    <message id="commandLineFiles">
        <source>Files to add: encrypted files (.vx) to Decrypt, the others to Encrypt.</source>
        <extracomment>Description of the files argument in the command line help</extracomment>
        <translation>Hinzuzufügende Dateien: verschlüsselte Dateien (.vx) zum Entschlüsseln, die anderen zum Verschlüsseln.</translation>
    </message>
    <message id="notificationShowInFolder">
        <source>Show in folder</source>
        <extracomment>Action of a desktop notification: shows the results in the file manager</extracomment>
        <translation>Im Ordner zeigen</translation>
    </message>
    <message id="notificationOpen">
        <source>Open</source>
        <extracomment>Action of a desktop notification: opens the one result file</extracomment>
        <translation>Öffnen</translation>
    </message>
    <message id="newResult">
        <source>New</source>
        <extracomment>Accessible description of a result row made by the last operation</extracomment>
        <translation>Neu</translation>
    </message>
    <message id="showResultsInFolder">
        <source>Show in folder</source>
        <extracomment>Button beside the summary of the last operation: shows its results in the file manager</extracomment>
        <translation>Im Ordner zeigen</translation>
    </message>
    <message id="resultOpen">
        <source>Open</source>
        <extracomment>Result row menu: opens the file with its application</extracomment>
        <translation>Öffnen</translation>
    </message>
    <message id="resultShowInFolder">
        <source>Show in folder</source>
        <extracomment>Result row menu: shows the file in the file manager</extracomment>
        <translation>Im Ordner zeigen</translation>
    </message>
    <message id="resultCopyPath">
        <source>Copy path</source>
        <extracomment>Result row menu: copies the file&apos;s full path</extracomment>
        <translation>Pfad kopieren</translation>
    </message>
    <message id="summaryEncryptedOne">
        <source>1 file encrypted</source>
        <extracomment>Summary after encrypting one file; followed by the people it was for</extracomment>
        <translation>1 Datei verschlüsselt</translation>
    </message>
    <message id="summaryEncryptedMany">
        <source>%1 files encrypted</source>
        <extracomment>Summary after encrypting several files, %1 is how many; followed by the people it was for</extracomment>
        <translation>%1 Dateien verschlüsselt</translation>
    </message>
    <message id="summaryForOnePerson">
        <source>for 1 person</source>
        <extracomment>Ends the summary after encrypting for one person</extracomment>
        <translation>für 1 Person</translation>
    </message>
    <message id="summaryForPeople">
        <source>for %1 people</source>
        <extracomment>Ends the summary after encrypting for several people, %1 is how many</extracomment>
        <translation>für %1 Personen</translation>
    </message>
    <message id="summaryDecryptedOne">
        <source>1 file decrypted</source>
        <extracomment>Summary after decrypting one file</extracomment>
        <translation>1 Datei entschlüsselt</translation>
    </message>
    <message id="summaryDecryptedMany">
        <source>%1 files decrypted</source>
        <extracomment>Summary after decrypting several files, %1 is how many</extracomment>
        <translation>%1 Dateien entschlüsselt</translation>
    </message>
    <message id="alreadyRunningNoAnswer">
        <source>Varnex Desktop is already running but does not answer. Close it and start again.</source>
        <extracomment>On standard error when a second start finds the first one not answering</extracomment>
        <translation>Varnex Desktop läuft bereits, antwortet aber nicht. Schließen Sie es und starten Sie erneut.</translation>
    </message>
    <message id="quitWhileRunningTitle">
        <source>An operation is still running</source>
        <extracomment>Dialog title when the user quits while the phone works on files</extracomment>
        <translation>Ein Vorgang läuft noch</translation>
    </message>
    <message id="quitWhileRunningDescription">
        <source>Quitting now cancels it. Your files stay as they are.</source>
        <extracomment>Dialog description when the user quits while the phone works on files</extracomment>
        <translation>Beenden bricht ihn ab. Ihre Dateien bleiben, wie sie sind.</translation>
    </message>
    <message id="quitWhileRunningQuit">
        <source>Quit</source>
        <extracomment>Button of the dialog when quitting while an operation runs: quit and cancel it</extracomment>
        <translation>Beenden</translation>
    </message>
    <message id="quitWhileRunningKeep">
        <source>Keep running</source>
        <extracomment>Button of the dialog when quitting while an operation runs: go on with it</extracomment>
        <translation>Weiterlaufen lassen</translation>
    </message>
    <message id="searchShortcutTip">
        <source>Search people and groups (%1)</source>
        <extracomment>Tool tip of the recipients&apos; search field; %1 is its shortcut (Ctrl+F)</extracomment>
        <translation>Personen und Gruppen suchen (%1)</translation>
    </message>
    <message id="refusedMissing">
        <source>does not exist</source>
        <extracomment>Why a file was not added: nothing is at that path</extracomment>
        <translation>existiert nicht</translation>
    </message>
    <message id="refusedNameNotValid">
        <source>name is not valid UTF-8</source>
        <extracomment>Why a file was not added: its name&apos;s bytes are not valid UTF-8, so it cannot be opened</extracomment>
        <translation>Name ist kein gültiges UTF-8</translation>
    </message>
    <message id="fileRefused">
        <source>the phone cannot open it: it is encrypted for someone else, or damaged</source>
        <extracomment>Why a file was not decrypted when the phone gave no reason</extracomment>
        <translation>das Telefon kann sie nicht öffnen: sie ist für jemand anderen verschlüsselt oder beschädigt</translation>
    </message>
    <message id="fileRefusedAnswer">
        <source>the phone refused it: %1</source>
        <extracomment>Why a file was not decrypted; %1 is what the phone answered</extracomment>
        <translation>das Telefon hat sie abgelehnt: %1</translation>
    </message>
    <message id="stageChecking">
        <source>Checking which files the phone can open…</source>
        <extracomment>Progress while the files the phone refused as a batch are tried in smaller groups</extracomment>
        <translation>Es wird geprüft, welche Dateien das Telefon öffnen kann …</translation>
    </message>
    <message id="partialEncryptionTitle">
        <source>Some files could not be encrypted</source>
        <extracomment>Dialog title when some files were encrypted and some were not</extracomment>
        <translation>Einige Dateien konnten nicht verschlüsselt werden</translation>
    </message>
    <message id="partialDecryptionTitle">
        <source>Some files could not be decrypted</source>
        <extracomment>Dialog title when some files were decrypted and some were not</extracomment>
        <translation>Einige Dateien konnten nicht entschlüsselt werden</translation>
    </message>
    <message id="summaryNotEncryptedOne">
        <source>1 could not be</source>
        <extracomment>Ends the summary when one of the files was not encrypted, as in &quot;2 files encrypted for 1 person, 1 could not be&quot;</extracomment>
        <translation>1 konnte nicht verschlüsselt werden</translation>
    </message>
    <message id="summaryNotEncryptedMany">
        <source>%1 could not be</source>
        <extracomment>Ends the summary when several files were not encrypted, %1 is how many</extracomment>
        <translation>%1 konnten nicht verschlüsselt werden</translation>
    </message>
    <message id="summaryNotDecryptedOne">
        <source>1 could not be</source>
        <extracomment>Ends the summary when one of the files was not decrypted, as in &quot;2 files decrypted, 1 could not be&quot;</extracomment>
        <translation>1 konnte nicht entschlüsselt werden</translation>
    </message>
    <message id="summaryNotDecryptedMany">
        <source>%1 could not be</source>
        <extracomment>Ends the summary when several files were not decrypted, %1 is how many</extracomment>
        <translation>%1 konnten nicht entschlüsselt werden</translation>
    </message>
    <message id="fileUnreadable">
        <source>it could not be read</source>
        <extracomment>Why a file was not sent: it could not be opened, or is no longer a plain file</extracomment>
        <translation>sie konnte nicht gelesen werden</translation>
    </message>
    <message id="fileNoResult">
        <source>the phone sent no result for it</source>
        <extracomment>Why a file has no result: the phone&apos;s reply held none for it</extracomment>
        <translation>das Telefon hat kein Ergebnis dafür geschickt</translation>
    </message>
    <message id="fileNotMovedIn">
        <source>its result could not be saved (%1)</source>
        <extracomment>Why a file has no result: it could not be put into the result folder; %1 says why</extracomment>
        <translation>ihr Ergebnis konnte nicht gespeichert werden (%1)</translation>
    </message>
    <message id="problemsMore">
        <source>and %1 more</source>
        <extracomment>Ends a list of files that failed, %1 is how many more failed</extracomment>
        <translation>und %1 weitere</translation>
    </message>
    <message id="resultDetails">
        <source>Details…</source>
        <extracomment>Button beside the summary of an operation when some files got no result: lists them with why</extracomment>
        <translation>Details…</translation>
    </message>
    <message id="resultTryAgain">
        <source>Try again</source>
        <extracomment>Button beside the summary of an operation: sends the files that got no result again</extracomment>
        <translation>Erneut versuchen</translation>
    </message>
    <message id="lineNamesMore">
        <source>%1, %2 and %3 more</source>
        <extracomment>Recipients shortened: %1 and %2 are names, %3 how many more are checked</extracomment>
        <translation>%1, %2 und %3 weitere</translation>
    </message>
    <message id="lineNamesThree">
        <source>%1, %2 and %3</source>
        <extracomment>Three recipients&apos; names</extracomment>
        <translation>%1, %2 und %3</translation>
    </message>
    <message id="lineNamesTwo">
        <source>%1 and %2</source>
        <extracomment>Two recipients&apos; names</extracomment>
        <translation>%1 und %2</translation>
    </message>
    <message id="lineOneOfOneFile">
        <source>1 of 1 file</source>
        <extracomment>Beside the operation button: the one listed file is marked</extracomment>
        <translation>1 von 1 Datei</translation>
    </message>
    <message id="lineFiles">
        <source>%1 of %2 files</source>
        <extracomment>Beside the operation button: %1 files marked of %2 listed</extracomment>
        <translation>%1 von %2 Dateien</translation>
    </message>
    <message id="lineForOnePerson">
        <source>%1 (1 person)</source>
        <extracomment>Who the files are for: %1 names the checked users and groups, which stand for one person</extracomment>
        <translation>%1 (1 Person)</translation>
    </message>
    <message id="lineForPeople">
        <source>%1 (%2 people)</source>
        <extracomment>Who the files are for: %1 names the checked users and groups, %2 how many people they are</extracomment>
        <translation>%1 (%2 Personen)</translation>
    </message>
    <message id="lineAddToEncryptFor">
        <source>Add the files to encrypt for %1</source>
        <extracomment>Beside the Encrypt button while its list is empty; %1 says who the files would be for</extracomment>
        <translation>Dateien zum Verschlüsseln für %1 hinzufügen</translation>
    </message>
    <message id="lineAddAndChoose">
        <source>Add the files to encrypt and choose who may open them</source>
        <extracomment>Beside the Encrypt button while its list is empty and nobody is chosen</extracomment>
        <translation>Dateien zum Verschlüsseln hinzufügen und wählen, wer sie öffnen darf</translation>
    </message>
    <message id="lineAddToDecrypt">
        <source>Add the files to decrypt</source>
        <extracomment>Beside the Decrypt button while its list is empty</extracomment>
        <translation>Dateien zum Entschlüsseln hinzufügen</translation>
    </message>
    <message id="lineMarkToDecrypt">
        <source>Mark the files to decrypt</source>
        <extracomment>Beside the Decrypt button while no file is marked</extracomment>
        <translation>Dateien zum Entschlüsseln markieren</translation>
    </message>
    <message id="lineMarkToEncryptFor">
        <source>Mark the files to encrypt for %1</source>
        <extracomment>Beside the Encrypt button while no file is marked; %1 says who they would be for</extracomment>
        <translation>Dateien zum Verschlüsseln für %1 markieren</translation>
    </message>
    <message id="lineMarkAndChoose">
        <source>Mark the files to encrypt and choose who may open them</source>
        <extracomment>Beside the Encrypt button while no file is marked and nobody is chosen</extracomment>
        <translation>Dateien zum Verschlüsseln markieren und wählen, wer sie öffnen darf</translation>
    </message>
    <message id="lineChoose">
        <source>%1: choose who may open them</source>
        <extracomment>Beside the Encrypt button while files are marked but nobody is chosen; %1 counts the files</extracomment>
        <translation>%1: wählen, wer sie öffnen darf</translation>
    </message>
    <message id="lineFilesFor">
        <source>%1 for %2</source>
        <extracomment>Beside the Encrypt button: %1 counts the marked files, %2 says who they are for</extracomment>
        <translation>%1 für %2</translation>
    </message>
    <message id="resultFilterPlaceholder">
        <source>Filter by name</source>
        <extracomment>Placeholder of the field that filters a result list by name</extracomment>
        <translation>Nach Name filtern</translation>
    </message>
    <message id="resultFilterName">
        <source>Filter %1</source>
        <extracomment>Accessible name of the field that filters a result list; %1 is the list&apos;s title</extracomment>
        <translation>%1 filtern</translation>
    </message>
    <message id="resultOrderName">
        <source>Order of the results</source>
        <extracomment>Accessible name of the choice of a result list&apos;s order</extracomment>
        <translation>Reihenfolge der Ergebnisse</translation>
    </message>
    <message id="orderNewest">
        <source>Newest first</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Neueste zuerst</translation>
    </message>
    <message id="orderOldest">
        <source>Oldest first</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Älteste zuerst</translation>
    </message>
    <message id="orderNameAscending">
        <source>Name A–Z</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Name A–Z</translation>
    </message>
    <message id="orderNameDescending">
        <source>Name Z–A</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Name Z–A</translation>
    </message>
    <message id="orderLargest">
        <source>Largest first</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Größte zuerst</translation>
    </message>
    <message id="orderSmallest">
        <source>Smallest first</source>
        <extracomment>Order of a result list</extracomment>
        <translation>Kleinste zuerst</translation>
    </message>
    <message id="resultSendToDecrypt">
        <source>Send to Decrypt</source>
        <extracomment>Encrypted result row menu: adds the file, marked, to the Decrypt screen&apos;s list and shows it</extracomment>
        <translation>Zum Entschlüsseln senden</translation>
    </message>
    <message id="resultMoveToTrash">
        <source>Move to Trash…</source>
        <extracomment>Decrypted result row menu: moves the file to the desktop&apos;s trash, after asking</extracomment>
        <translation>In den Papierkorb verschieben…</translation>
    </message>
    <message id="trashQuestionTitle">
        <source>Move “%1” to the Trash?</source>
        <extracomment>Title of the question before moving a decrypted file to the trash; %1 is its name</extracomment>
        <translation>„%1“ in den Papierkorb verschieben?</translation>
    </message>
    <message id="trashQuestion">
        <source>The decrypted file leaves the list and this folder. The desktop&apos;s Trash keeps it until it is emptied.</source>
        <extracomment>Question before moving a decrypted file to the trash</extracomment>
        <translation>Die entschlüsselte Datei verschwindet aus der Liste und aus diesem Ordner. Der Papierkorb der Arbeitsumgebung behält sie, bis er geleert wird.</translation>
    </message>
    <message id="trashButton">
        <source>Move to Trash</source>
        <extracomment>Button that moves a decrypted file to the trash</extracomment>
        <translation>In den Papierkorb</translation>
    </message>
    <message id="trashFailed">
        <source>“%1” could not be moved to the Trash: %2</source>
        <extracomment>Message when a decrypted file could not be moved to the trash; %1 is its name, %2 why</extracomment>
        <translation>„%1“ konnte nicht in den Papierkorb verschoben werden: %2</translation>
    </message>
    <message id="hiddenChecked">
        <source>%1 chosen, not shown</source>
        <extracomment>Under the recipients&apos; search: %1 checked users and groups that the search hides</extracomment>
        <translation>%1 ausgewählt, nicht angezeigt</translation>
    </message>
    <message id="tabSelectedName">
        <source>%1, selected</source>
        <extracomment>Accessible name of the navigation tab whose screen is shown; %1 is the tab&apos;s title</extracomment>
        <translation>%1, ausgewählt</translation>
    </message>
    <message id="commandLineHidden">
        <source>Start without showing the window (at login, for example).</source>
        <extracomment>Description of the --hidden option in the command line help</extracomment>
        <translation>Ohne Fenster starten (zum Beispiel bei der Anmeldung).</translation>
    </message>
    <message id="commandLineCommands">
        <source>Commands (answered by the running program; see &apos;varnex-desktop COMMAND --help&apos;):
  encrypt   encrypt files for people and groups
  decrypt   decrypt files
  people    list the people the phone knows
  groups    list your groups and their members
  status    tell the phone&apos;s state and the running operations</source>
        <extracomment>The commands in the command line help; keep the command names</extracomment>
        <translation>Befehle (beantwortet vom laufenden Programm; siehe „varnex-desktop BEFEHL --help“):
  encrypt   Dateien für Personen und Gruppen verschlüsseln
  decrypt   Dateien entschlüsseln
  people    die Personen auflisten, die das Telefon kennt
  groups    Ihre Gruppen und ihre Mitglieder auflisten
  status    den Zustand des Telefons und die laufenden Vorgänge nennen</translation>
    </message>
    <message id="commandEncryptHelp">
        <source>Encrypt files for people and groups with the paired phone. Without --wait it returns once the phone was asked.</source>
        <extracomment>Help of the encrypt command</extracomment>
        <translation>Dateien mit dem gekoppelten Telefon für Personen und Gruppen verschlüsseln. Ohne --wait kehrt der Befehl zurück, sobald das Telefon gefragt wurde.</translation>
    </message>
    <message id="commandDecryptHelp">
        <source>Decrypt encrypted files (.vx) with the paired phone. Without --wait it returns once the phone was asked.</source>
        <extracomment>Help of the decrypt command</extracomment>
        <translation>Verschlüsselte Dateien (.vx) mit dem gekoppelten Telefon entschlüsseln. Ohne --wait kehrt der Befehl zurück, sobald das Telefon gefragt wurde.</translation>
    </message>
    <message id="commandPeopleHelp">
        <source>List the people the phone knows: e-mail, then name.</source>
        <extracomment>Help of the people command</extracomment>
        <translation>Die Personen auflisten, die das Telefon kennt: E-Mail, dann Name.</translation>
    </message>
    <message id="commandGroupsHelp">
        <source>List your groups: name, then the members&apos; e-mails.</source>
        <extracomment>Help of the groups command</extracomment>
        <translation>Ihre Gruppen auflisten: Name, dann die E-Mails der Mitglieder.</translation>
    </message>
    <message id="commandStatusHelp">
        <source>Tell the phone&apos;s state and name, and the operations running.</source>
        <extracomment>Help of the status command</extracomment>
        <translation>Den Zustand und Namen des Telefons und die laufenden Vorgänge nennen.</translation>
    </message>
    <message id="commandExitStatus">
        <source>Exit status: 0 done, 1 failed, 2 bad usage or unknown recipient, 3 no phone, 4 refused by the phone, 5 some files failed, 6 cancelled.</source>
        <extracomment>The end of every command&apos;s help: the exit statuses; keep the numbers</extracomment>
        <translation>Rückgabewert: 0 erledigt, 1 fehlgeschlagen, 2 falscher Aufruf oder unbekannter Empfänger, 3 kein Telefon, 4 vom Telefon abgelehnt, 5 einige Dateien fehlgeschlagen, 6 abgebrochen.</translation>
    </message>
    <message id="commandOptionTo">
        <source>Encrypt for this person (repeat for more).</source>
        <extracomment>Description of --to in the encrypt command&apos;s help</extracomment>
        <translation>Für diese Person verschlüsseln (für mehrere wiederholen).</translation>
    </message>
    <message id="commandOptionGroup">
        <source>Encrypt for the members of this group (repeat for more).</source>
        <extracomment>Description of --group in the encrypt command&apos;s help</extracomment>
        <translation>Für die Mitglieder dieser Gruppe verschlüsseln (für mehrere wiederholen).</translation>
    </message>
    <message id="commandOptionWait">
        <source>Wait until the phone is done, print each result&apos;s path and exit with its status.</source>
        <extracomment>Description of --wait in the command line help</extracomment>
        <translation>Warten, bis das Telefon fertig ist, den Pfad jedes Ergebnisses ausgeben und mit dessen Status enden.</translation>
    </message>
    <message id="commandOptionJson">
        <source>Print JSON.</source>
        <extracomment>Description of --json in the command line help</extracomment>
        <translation>JSON ausgeben.</translation>
    </message>
    <message id="commandOptionNoStart">
        <source>Answer only if Varnex Desktop runs already (for shell completion).</source>
        <extracomment>Description of --no-start in the command line help</extracomment>
        <translation>Nur antworten, wenn Varnex Desktop schon läuft (für die Vervollständigung in der Shell).</translation>
    </message>
    <message id="commandFiles">
        <source>The files.</source>
        <extracomment>Description of the files argument of the encrypt and decrypt commands</extracomment>
        <translation>Die Dateien.</translation>
    </message>
    <message id="commandUnexpectedArgument">
        <source>Unexpected argument: %1.</source>
        <extracomment>A command that takes no files was given some; %1 is the first</extracomment>
        <translation>Unerwartetes Argument: %1.</translation>
    </message>
    <message id="commandNoFiles">
        <source>No files given.</source>
        <extracomment>The encrypt or decrypt command was given no file</extracomment>
        <translation>Keine Dateien angegeben.</translation>
    </message>
    <message id="commandNoRecipients">
        <source>No recipients given: name them with --to or --group.</source>
        <extracomment>The encrypt command was given neither --to nor --group</extracomment>
        <translation>Keine Empfänger angegeben: nennen Sie sie mit --to oder --group.</translation>
    </message>
    <message id="aboutStartAtLogin">
        <source>Start at login, in the background</source>
        <extracomment>About screen: opt-in to start the program hidden when the user logs in</extracomment>
        <translation>Bei der Anmeldung im Hintergrund starten</translation>
    </message>
    <message id="scriptPeopleNotLoaded">
        <source>The phone did not send its people and groups.</source>
        <extracomment>On standard error when the phone did not list its people and groups in time</extracomment>
        <translation>Das Telefon hat seine Personen und Gruppen nicht gesendet.</translation>
    </message>
    <message id="scriptNoPhonePaired">
        <source>No phone is paired: open Varnex Desktop and pair your phone.</source>
        <extracomment>On standard error when a command needs a phone and none is paired</extracomment>
        <translation>Kein Telefon gekoppelt: Öffnen Sie Varnex Desktop und koppeln Sie Ihr Telefon.</translation>
    </message>
    <message id="scriptPhoneNotAnswering">
        <source>The phone does not answer: is it on the same network, with the Varnex app open?</source>
        <extracomment>On standard error when a command needs the phone and it does not answer</extracomment>
        <translation>Das Telefon antwortet nicht: Ist es im selben Netzwerk und die Varnex-App geöffnet?</translation>
    </message>
    <message id="scriptUnknownRecipients">
        <source>Not known to the phone (see &apos;varnex-desktop people&apos; and &apos;varnex-desktop groups&apos;): %1</source>
        <extracomment>On standard error when the encrypt command names people or groups the phone does not know; %1 lists them</extracomment>
        <translation>Dem Telefon nicht bekannt (siehe „varnex-desktop people“ und „varnex-desktop groups“): %1</translation>
    </message>
    <message id="scriptNoAddresses">
        <source>The groups named have no members to encrypt for.</source>
        <extracomment>On standard error when the groups named have no members with an e-mail</extracomment>
        <translation>Die genannten Gruppen haben keine Mitglieder, für die verschlüsselt werden kann.</translation>
    </message>
    <message id="commandNotRunning">
        <source>Varnex Desktop is not running.</source>
        <extracomment>On standard error when a command asked only of a running program finds none</extracomment>
        <translation>Varnex Desktop läuft nicht.</translation>
    </message>
    <message id="commandNoAnswer">
        <source>Varnex Desktop did not answer.</source>
        <extracomment>On standard error when the running program did not answer a command</extracomment>
        <translation>Varnex Desktop hat nicht geantwortet.</translation>
    </message>
    <message id="trayShow">
        <source>Show Varnex Desktop</source>
        <extracomment>Tray menu: brings the window forward</extracomment>
        <translation>Varnex Desktop zeigen</translation>
    </message>
    <message id="trayQuit">
        <source>Quit</source>
        <extracomment>Tray menu: quits the program</extracomment>
        <translation>Beenden</translation>
    </message>
    <message id="trayConnected">
        <source>Connected to %1</source>
        <extracomment>Tray tool tip and menu: the phone is connected; %1 is its name</extracomment>
        <translation>Verbunden mit %1</translation>
    </message>
    <message id="traySeeking">
        <source>Looking for %1…</source>
        <extracomment>Tray tool tip and menu: looking for the trusted phone; %1 is its name</extracomment>
        <translation>Suche nach %1 …</translation>
    </message>
    <message id="trayLost">
        <source>Lost contact with %1</source>
        <extracomment>Tray tool tip and menu: the trusted phone stopped answering; %1 is its name</extracomment>
        <translation>Kontakt zu %1 verloren</translation>
    </message>
    <message id="trayNoPhone">
        <source>No phone paired</source>
        <extracomment>Tray tool tip and menu: no phone is paired</extracomment>
        <translation>Kein Telefon gekoppelt</translation>
    </message>
    <message id="trayEncrypting">
        <source>Encrypting %1 file(s): %2</source>
        <extracomment>Tray tool tip and menu while an encryption runs; %1 is how many files, %2 its stage</extracomment>
        <translation>%1 Datei(en) werden verschlüsselt: %2</translation>
    </message>
    <message id="trayDecrypting">
        <source>Decrypting %1 file(s): %2</source>
        <extracomment>Tray tool tip and menu while a decryption runs; %1 is how many files, %2 its stage</extracomment>
        <translation>%1 Datei(en) werden entschlüsselt: %2</translation>
    </message>
    <message id="trayStillRunning">
        <source>Varnex Desktop keeps running here, so your phone stays connected. Quit it from this icon&apos;s menu.</source>
        <extracomment>Tray message the first time the window is closed while the tray icon shows</extracomment>
        <translation>Varnex Desktop läuft hier weiter, damit Ihr Telefon verbunden bleibt. Beenden Sie es über das Menü dieses Symbols.</translation>
    </message>
</context>
</TS>
