#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// The QR code the phone scans: the address text's ASCII bytes, nothing else.
struct QrMatrix
{
    int width = 0;
    QVector<bool> modules; // row by row, true = dark

    bool isValid() const { return width > 0; }
    bool dark(int x, int y) const { return modules.at(y * width + x); }
};

namespace QrPayload {
// Error correction level M, version chosen by size, 8-bit mode. Invalid on failure.
QrMatrix encode(const QByteArray& message);
inline QrMatrix encodeAddress(const QString& address)
{
    return encode(address.toLatin1());
}
} // namespace QrPayload
