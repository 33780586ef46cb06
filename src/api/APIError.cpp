#include "api/APIError.h"

QString APIError::description() const
{
    switch (m_kind) {
    case Kind::decodingError:
        //% "Decoding error: %1"
        return qtTrId("apiDecodingError").arg(m_text);
    case Kind::networkError:
        //% "Network error: %1"
        return qtTrId("apiNetworkError").arg(m_text);
    case Kind::error:
        return m_text;
    case Kind::badRequest:
        //% "Bad request: %1"
        return qtTrId("apiBadRequest").arg(m_text);
    case Kind::notFound:
        //% "Not found: %1"
        return qtTrId("apiNotFound").arg(m_text);
    case Kind::conflict:
        //% "Conflict: %1"
        return qtTrId("apiConflict").arg(m_text);
    case Kind::httpError:
        //% "HTTP error %1"
        return qtTrId("apiHttpError").arg(m_statusCode);
    case Kind::invalidURL:
        //% "Invalid URL"
        return qtTrId("apiInvalidURL");
    case Kind::invalidResponse:
        //% "Invalid response from server"
        return qtTrId("apiInvalidResponse");
    case Kind::notAuthenticated:
        //% "Not authenticated. Please scan QR code with iOS app first."
        return qtTrId("apiNotAuthenticated");
    }
    return {};
}
