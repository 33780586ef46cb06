#include "pairing/QrPayload.h"

#include <qrencode.h>

namespace QrPayload {

QrMatrix encode(const QByteArray& message)
{
    QrMatrix matrix;
    QRcode* code = QRcode_encodeData(
        int(message.size()), reinterpret_cast<const unsigned char*>(message.constData()), 0, QR_ECLEVEL_M);
    if (!code)
        return matrix;
    matrix.width = code->width;
    matrix.modules.resize(code->width * code->width);
    for (int i = 0; i < matrix.modules.size(); ++i)
        matrix.modules[i] = code->data[i] & 1;
    QRcode_free(code);
    return matrix;
}

} // namespace QrPayload
