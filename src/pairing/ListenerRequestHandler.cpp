#include "pairing/ListenerRequestHandler.h"

#include "pairing/LocalAddressRule.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

std::optional<int> screenListenerRequestHead(const ListenerRequest& head)
{
    if (head.hasOrigin)
        return 403;
    if (head.headSize > maxListenerHeadSize)
        return 431;
    const bool changeSignal = head.path == "/updateAssociates" || head.path == "/updateGroups";
    if ((head.isChunked && !changeSignal) || head.contentLength > maxListenerBodySize)
        return 413;
    if (head.hasContentEncoding)
        return 415;
    return std::nullopt;
}

std::optional<PairingMessage> parsePairingMessage(
    const QByteArray& method, const QByteArray& path, const QByteArray& body)
{
    // The request's printable text: its request line, then the body, then a line end.
    const QByteArray text = method + ' ' + path + " HTTP/1.1\n" + body + '\n';
    QList<QByteArray> pieces = text.split('{');
    pieces.removeAll(QByteArray());
    if (pieces.size() < 2)
        return std::nullopt;
    QByteArray candidate = pieces.at(1);
    candidate.chop(1);
    candidate.prepend('{');

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(candidate, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;

    const QJsonObject object = document.object();
    PairingMessage message;
    message.ip = object.value(u"ip").toString();
    message.mobileDeviceName = object.value(u"mobileDeviceName").toString();
    if (const QString email = object.value(u"email").toString(); !email.isEmpty())
        message.email = email;
    if (const QString baseURL = object.value(u"baseURL").toString(); !baseURL.isEmpty())
        message.baseURL = baseURL;
    return message;
}

bool isAcceptableEmail(const QString& email)
{
    if (email.toUtf8().size() > 254 || email.count(u'@') != 1)
        return false;
    for (QChar c : email) {
        if (c.isSpace() || c.category() == QChar::Other_Control || c.category() == QChar::Other_Format)
            return false;
    }
    return true;
}

ListenerOutcome handleListenerRequest(
    const ListenerRequest& request, const QString& peer, const QSet<quint32>& own)
{
    ListenerOutcome outcome;
    if (auto refusal = screenListenerRequestHead(request)) {
        outcome.status = *refusal;
        return outcome;
    }
    if (request.body.size() > maxListenerBodySize) {
        outcome.status = 413;
        return outcome;
    }
    if (request.method != "POST")
        return outcome;

    if (request.path == "/myInformation") {
        auto message = parsePairingMessage(request.method, request.path, request.body);
        if (message && !LocalAddressRule::isLocalIPv4Literal(message->ip)) {
            outcome.refusal = QStringLiteral("\"ip\" is not a local IPv4 address: ") + message->ip;
            message.reset();
        } else if (message
            && !LocalAddressRule::isPhoneHost(*LocalAddressRule::parseIPv4(message->ip), own)) {
            outcome.refusal = QStringLiteral("\"ip\" is this computer's own address: ") + message->ip;
            message.reset();
        } else if (message && message->ip != peer) {
            outcome.refusal = QStringLiteral("\"ip\" names another address: ") + message->ip;
            message.reset();
        } else if (message && message->email && !isAcceptableEmail(*message->email)) {
            outcome.refusal = QStringLiteral("not an e-mail address: ") + *message->email;
            message.reset();
        }
        outcome.pairing = std::move(message);
        outcome.status = outcome.pairing ? 200 : 400;
    } else if (request.path == "/updateAssociates") {
        outcome.associatesChanged = true;
        outcome.status = 200;
    } else if (request.path == "/updateGroups") {
        outcome.groupsChanged = true;
        outcome.status = 200;
    }
    return outcome;
}
