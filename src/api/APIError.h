#pragma once

#include <QString>

// The error of every group API call, each case with the text the user is shown.
class APIError
{
public:
    enum class Kind {
        decodingError, // payload: the underlying failure's description
        networkError, // payload: the underlying failure's description
        error, // payload: the underlying failure's description
        badRequest, // payload: message
        notFound, // payload: message
        conflict, // payload: message
        httpError, // payload: status code
        invalidURL,
        invalidResponse,
        notAuthenticated,
    };

    static APIError decodingError(const QString& failure) { return { Kind::decodingError, failure }; }
    static APIError networkError(const QString& failure) { return { Kind::networkError, failure }; }
    static APIError error(const QString& failure) { return { Kind::error, failure }; }
    static APIError badRequest(const QString& message) { return { Kind::badRequest, message }; }
    static APIError notFound(const QString& message) { return { Kind::notFound, message }; }
    static APIError conflict(const QString& message) { return { Kind::conflict, message }; }
    static APIError httpError(int statusCode) { return { Kind::httpError, {}, statusCode }; }
    static APIError invalidURL() { return { Kind::invalidURL }; }
    static APIError invalidResponse() { return { Kind::invalidResponse }; }
    static APIError notAuthenticated() { return { Kind::notAuthenticated }; }

    Kind kind() const { return m_kind; }
    // The message or the underlying failure's description, where the case carries one.
    QString text() const { return m_text; }
    int statusCode() const { return m_statusCode; }

    // The user-facing description.
    QString description() const;

    friend bool operator==(const APIError&, const APIError&) = default;

private:
    APIError(Kind kind, QString text = {}, int statusCode = 0)
        : m_kind(kind)
        , m_text(std::move(text))
        , m_statusCode(statusCode)
    {
    }

    Kind m_kind;
    QString m_text;
    int m_statusCode = 0;
};
