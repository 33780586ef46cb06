#include "VxCrypto.h"

#include <QFile>

#include <sodium.h>

namespace VxCrypto {

namespace {

constexpr char magic[4] = { 'V', 'X', 'F', '1' };
constexpr qint64 chunkSize = 64 * 1024;
constexpr int maxRecipients = 10000;

bool writeAll(QFile& file, const void* data, qint64 size)
{
    return file.write(static_cast<const char*>(data), size) == size;
}

bool readExactly(QFile& file, void* data, qint64 size)
{
    return file.read(static_cast<char*>(data), size) == size;
}

void writeU16(QByteArray& out, quint16 v)
{
    out.append(char(v >> 8));
    out.append(char(v & 0xff));
}

} // namespace

bool initialize()
{
    return sodium_init() >= 0;
}

KeyPair makeKeyPair()
{
    KeyPair pair;
    pair.publicKey.resize(crypto_box_PUBLICKEYBYTES);
    pair.secretKey.resize(crypto_box_SECRETKEYBYTES);
    crypto_box_keypair(reinterpret_cast<unsigned char*>(pair.publicKey.data()),
                       reinterpret_cast<unsigned char*>(pair.secretKey.data()));
    return pair;
}

bool encryptFile(const QString& source, const QString& target, const QList<Recipient>& recipients)
{
    QFile in(source);
    QFile out(target);
    if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;

    unsigned char key[crypto_secretstream_xchacha20poly1305_KEYBYTES];
    crypto_secretstream_xchacha20poly1305_keygen(key);

    QByteArray header(magic, 4);
    writeU16(header, quint16(recipients.size()));
    for (const Recipient& r : recipients) {
        const QByteArray email = r.email.toUtf8();
        writeU16(header, quint16(email.size()));
        header += email;
        QByteArray sealed(crypto_box_SEALBYTES + sizeof key, Qt::Uninitialized);
        crypto_box_seal(reinterpret_cast<unsigned char*>(sealed.data()), key, sizeof key,
                        reinterpret_cast<const unsigned char*>(r.publicKey.constData()));
        header += sealed;
    }
    crypto_secretstream_xchacha20poly1305_state state;
    unsigned char streamHeader[crypto_secretstream_xchacha20poly1305_HEADERBYTES];
    crypto_secretstream_xchacha20poly1305_init_push(&state, streamHeader, key);
    sodium_memzero(key, sizeof key);
    header.append(reinterpret_cast<const char*>(streamHeader), sizeof streamHeader);
    if (!writeAll(out, header.constData(), header.size()))
        return false;

    QByteArray plain(chunkSize, Qt::Uninitialized);
    QByteArray cipher(chunkSize + crypto_secretstream_xchacha20poly1305_ABYTES, Qt::Uninitialized);
    const qint64 total = in.size();
    qint64 done = 0;
    do {
        const qint64 n = in.read(plain.data(), qMin(chunkSize, total - done));
        if (n < 0)
            return false;
        done += n;
        const unsigned char tag = done >= total ? crypto_secretstream_xchacha20poly1305_TAG_FINAL : 0;
        unsigned long long written = 0;
        crypto_secretstream_xchacha20poly1305_push(&state, reinterpret_cast<unsigned char*>(cipher.data()), &written,
                                                   reinterpret_cast<const unsigned char*>(plain.constData()),
                                                   quint64(n), nullptr, 0, tag);
        if (!writeAll(out, cipher.constData(), qint64(written)))
            return false;
        if (tag == crypto_secretstream_xchacha20poly1305_TAG_FINAL)
            break;
    } while (true);
    return out.flush();
}

namespace {

struct Header
{
    QList<QString> emails;
    QList<QByteArray> sealedKeys;
    unsigned char streamHeader[crypto_secretstream_xchacha20poly1305_HEADERBYTES];
};

bool readHeader(QFile& in, Header& header)
{
    char m[4];
    unsigned char count[2];
    if (!readExactly(in, m, 4) || memcmp(m, magic, 4) != 0 || !readExactly(in, count, 2))
        return false;
    const int n = (count[0] << 8) | count[1];
    if (n > maxRecipients)
        return false;
    for (int i = 0; i < n; ++i) {
        unsigned char len[2];
        if (!readExactly(in, len, 2))
            return false;
        QByteArray email((len[0] << 8) | len[1], Qt::Uninitialized);
        QByteArray sealed(crypto_box_SEALBYTES + crypto_secretstream_xchacha20poly1305_KEYBYTES, Qt::Uninitialized);
        if (!readExactly(in, email.data(), email.size()) || !readExactly(in, sealed.data(), sealed.size()))
            return false;
        header.emails.append(QString::fromUtf8(email));
        header.sealedKeys.append(sealed);
    }
    return readExactly(in, header.streamHeader, sizeof header.streamHeader);
}

} // namespace

QList<QString> recipientsOf(const QString& source)
{
    QFile in(source);
    Header header;
    if (!in.open(QIODevice::ReadOnly) || !readHeader(in, header))
        return {};
    return header.emails;
}

DecryptResult decryptFile(const QString& source, const QString& target, const QString& email, const KeyPair& keys)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly))
        return DecryptResult::IoError;
    Header header;
    if (!readHeader(in, header))
        return DecryptResult::Damaged;

    unsigned char key[crypto_secretstream_xchacha20poly1305_KEYBYTES];
    bool opened = false;
    for (int i = 0; i < header.emails.size() && !opened; ++i) {
        if (header.emails.at(i).compare(email, Qt::CaseInsensitive) != 0)
            continue;
        opened = crypto_box_seal_open(key, reinterpret_cast<const unsigned char*>(header.sealedKeys.at(i).constData()),
                                      quint64(header.sealedKeys.at(i).size()),
                                      reinterpret_cast<const unsigned char*>(keys.publicKey.constData()),
                                      reinterpret_cast<const unsigned char*>(keys.secretKey.constData()))
            == 0;
    }
    if (!opened)
        return DecryptResult::NotARecipient;

    crypto_secretstream_xchacha20poly1305_state state;
    const bool ready = crypto_secretstream_xchacha20poly1305_init_pull(&state, header.streamHeader, key) == 0;
    sodium_memzero(key, sizeof key);
    if (!ready)
        return DecryptResult::Damaged;

    QFile out(target);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return DecryptResult::IoError;
    QByteArray cipher(chunkSize + crypto_secretstream_xchacha20poly1305_ABYTES, Qt::Uninitialized);
    QByteArray plain(chunkSize, Qt::Uninitialized);
    bool final = false;
    while (!final) {
        const qint64 n = in.read(cipher.data(), cipher.size());
        if (n < qint64(crypto_secretstream_xchacha20poly1305_ABYTES))
            break; // truncated: no final chunk
        unsigned long long plainLength = 0;
        unsigned char tag = 0;
        if (crypto_secretstream_xchacha20poly1305_pull(&state, reinterpret_cast<unsigned char*>(plain.data()),
                                                       &plainLength, &tag,
                                                       reinterpret_cast<const unsigned char*>(cipher.constData()),
                                                       quint64(n), nullptr, 0)
            != 0)
            break;
        if (!writeAll(out, plain.constData(), qint64(plainLength)))
            return DecryptResult::IoError;
        final = tag == crypto_secretstream_xchacha20poly1305_TAG_FINAL;
    }
    // Anything after the final chunk is tampering too.
    if (!final || !in.atEnd()) {
        out.close();
        out.remove();
        return DecryptResult::Damaged;
    }
    return out.flush() ? DecryptResult::Ok : DecryptResult::IoError;
}

} // namespace VxCrypto
