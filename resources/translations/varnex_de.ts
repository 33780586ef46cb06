<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name></name>
    <message id="commandLineDescription">
        <source>Encrypt and decrypt files with your phone.</source>
        <translation>Dateien mit Ihrem Telefon ver- und entschlüsseln.</translation>
    </message>
    <message id="commandLineUnexpectedArgument">
        <source>Unexpected argument: %1</source>
        <translation>Unerwartetes Argument: %1</translation>
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
        <translation>DATEIEN HOCHLADEN</translation>
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
        <translation>DATEIEN HOCHLADEN</translation>
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
        <extracomment>Select deselect all users button
----------
Select deselect all files button</extracomment>
        <translation>ALLE AN/ABWÄHLEN</translation>
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
    <message id="stageWaiting">
        <source>Waiting for the phone...</source>
        <extracomment>Progress while the phone works on the files</extracomment>
        <translation>Warten auf das Telefon …</translation>
    </message>
    <message id="stageReceiving">
        <source>Receiving %1</source>
        <extracomment>Progress while the results come back</extracomment>
        <translation>Empfangen: %1</translation>
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
        <translation>WIRD VERSCHLÜSSELT</translation>
    </message>
    <message id="decrypting">
        <source>DECRYPTING</source>
        <extracomment>Decrypting text</extracomment>
        <translation>WIRD ENTSCHLÜSSELT</translation>
    </message>
    <message id="aboutButton">
        <source>About</source>
        <extracomment>Name and tool tip of the About navigation button</extracomment>
        <translation>Info</translation>
    </message>
    <message id="tabShown">
        <source>Shown</source>
        <extracomment>Accessible description of the navigation tab whose screen is shown</extracomment>
        <translation>Angezeigt</translation>
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
</context>
</TS>
