#include "api/APIError.h"

QString APIError::description() const
{
    switch (m_kind) {
    case Kind::decodingError:
        return QStringLiteral("Decoding error: ") + m_text;
    case Kind::networkError:
        return QStringLiteral("Network error: ") + m_text;
    case Kind::error:
        return m_text;
    case Kind::badRequest:
        return QStringLiteral("Bad request: ") + m_text;
    case Kind::notFound:
        return QStringLiteral("Not found: ") + m_text;
    case Kind::conflict:
        return QStringLiteral("Conflict: ") + m_text;
    case Kind::httpError:
        return QStringLiteral("HTTP error ") + QString::number(m_statusCode);
    case Kind::invalidURL:
        return QStringLiteral("Invalid URL");
    case Kind::invalidResponse:
        return QStringLiteral("Invalid response from server");
    case Kind::notAuthenticated:
        return QStringLiteral("Not authenticated. Please scan QR code with iOS app first.");
    }
    return {};
}
