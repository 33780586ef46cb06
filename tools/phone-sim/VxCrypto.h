#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>

// The .vx file format: a file key wrapped for every recipient with a sealed box, then the
// content in authenticated chunks (libsodium secretstream). Streams from file to file.
namespace VxCrypto {

struct KeyPair
{
    QByteArray publicKey; // crypto_box_PUBLICKEYBYTES
    QByteArray secretKey; // crypto_box_SECRETKEYBYTES
};

struct Recipient
{
    QString email;
    QByteArray publicKey;
};

bool initialize();
KeyPair makeKeyPair();

// Encrypts the file at `source` into `target` for every recipient. False on an I/O error.
bool encryptFile(const QString& source, const QString& target, const QList<Recipient>& recipients);

enum class DecryptResult { Ok, NotARecipient, Damaged, IoError };

// Decrypts `source` into `target` with the key pair of `email`.
DecryptResult decryptFile(const QString& source, const QString& target, const QString& email, const KeyPair& keys);

// The recipients' e-mail addresses listed in a .vx file's header (empty when unreadable).
QList<QString> recipientsOf(const QString& source);

} // namespace VxCrypto
