#include "api/AnswerJudging.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>

namespace AnswerJudging {

namespace {

const QString emptyBodyFailure
    = QStringLiteral("Response could not be serialized, input data was nil or zero length.");

std::optional<QString> utf8(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<QString> messageOf(const std::optional<QByteArray>& body)
{
    // An empty body is no body: nothing arrived to read a message from.
    if (!body || body->isEmpty())
        return std::nullopt;
    const auto text = utf8(*body);
    if (!text)
        return std::nullopt;
    const QJsonDocument doc = QJsonDocument::fromJson(*body);
    if (doc.isObject()) {
        const QJsonObject o = doc.object();
        if (o.value(u"message").isString())
            return o.value(u"message").toString();
        if (o.value(u"error").isString())
            return o.value(u"error").toString();
    }
    return text;
}

// The common path of record and list answers once a success is ruled out.
template <typename T>
APIResult<T> failed(const Exchange& exchange, const std::optional<DecodingFailure>& decoding)
{
    if (decoding)
        return APIError::decodingError(decoding->description);
    const std::optional<QString> failure
        = exchange.failure ? exchange.failure : std::optional<QString>(emptyBodyFailure);
    if (failure && isDecodingFailure(*failure))
        return APIError::decodingError(*failure);
    return mapFailure(exchange.status, exchange.body, failure);
}

template <typename T>
APIResult<T> judge(const Exchange& exchange, Decoded<T> (*decode)(const QByteArray&), bool isList)
{
    const bool answered = exchange.status.has_value() && !exchange.failure;
    std::optional<DecodingFailure> decoding;
    if (answered && exchange.body && !exchange.body->isEmpty()) {
        Decoded<T> decoded = decode(*exchange.body);
        if (auto* value = std::get_if<T>(&decoded))
            return *value;
        decoding = std::get<DecodingFailure>(decoded);
    }
    if (isList && exchange.status == 200) {
        const QString text = exchange.body ? utf8(*exchange.body).value_or(QString()) : QString();
        if (text.trimmed().isEmpty() || text == u"null" || text == u"[]")
            return T {};
    }
    return failed<T>(exchange, decoding);
}

} // namespace

bool isDecodingFailure(const QString& description)
{
    const QString lower = description.toLower();
    return lower.contains(u"decod") || lower.contains(u"couldn't be read")
        || lower.contains(u"isn't in the correct format");
}

APIError mapFailure(
    std::optional<int> status, const std::optional<QByteArray>& body, const std::optional<QString>& failure)
{
    if (status) {
        const std::optional<QString> message = messageOf(body);
        const int code = *status;
        if (code == 400)
            return APIError::badRequest(message.value_or(QStringLiteral("Bad request")));
        if (code == 401 || code == 403)
            return APIError::notAuthenticated();
        if (code == 404)
            return APIError::notFound(message.value_or(QStringLiteral("Resource not found")));
        if (code == 409)
            return APIError::conflict(
                message.value_or(QStringLiteral("A group with this name already exists")));
        if (code >= 400 && code <= 599)
            return APIError::httpError(code);
    }
    if (failure)
        return APIError::networkError(*failure);
    return APIError::invalidResponse();
}

APIResult<GroupPtr> judgeRecord(const Exchange& exchange)
{
    return judge<GroupPtr>(exchange, &RecordDecoding::groupBody, false);
}

APIResult<QList<GroupPtr>> judgeGroupList(const Exchange& exchange)
{
    return judge<QList<GroupPtr>>(exchange, &RecordDecoding::groupListBody, true);
}

APIResult<QList<GroupMemberModel>> judgeMemberList(const Exchange& exchange)
{
    return judge<QList<GroupMemberModel>>(exchange, &RecordDecoding::memberListBody, true);
}

APIResult<NoContent> judgeNoContent(const Exchange& exchange)
{
    if (exchange.status && !exchange.failure)
        return NoContent {};
    return mapFailure(exchange.status, exchange.body, exchange.failure);
}

} // namespace AnswerJudging
