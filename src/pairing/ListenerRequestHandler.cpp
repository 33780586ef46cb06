#include "pairing/ListenerRequestHandler.h"

#include "app/BaseUrlStore.h"
#include "app/Session.h"
#include "app/Settings.h"
#include "pairing/LocalAddressRule.h"
#include "pairing/PairingGate.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

std::optional<int> screenListenerRequestHead(const ListenerRequest& head)
{
    if (head.hasOrigin)
        return 403;
    if (head.headSize > maxListenerHeadSize)
        return 431;
    if (head.isChunked || head.contentLength > maxListenerBodySize)
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

ListenerOutcome handleListenerRequest(const ListenerRequest& request)
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

void applyPairingMessage(const PairingMessage& message)
{
    Session& session = Session::instance();
    session.setPhoneIPAddress(message.ip);
    session.setMobileDeviceName(message.mobileDeviceName);
    if (message.email)
        Settings::setString(Settings::userEmailKey, *message.email);
    if (message.baseURL)
        BaseUrlStore::setBaseURL(*message.baseURL);
    session.setPhoneConnected(true);
}

void applyListenerOutcome(const ListenerOutcome& outcome, const QString& peer)
{
    Session& session = Session::instance();
    if (outcome.pairing)
        PairingGate::instance().offer(*outcome.pairing, peer);
    if (outcome.associatesChanged)
        session.markAssociatesUpdated();
    if (outcome.groupsChanged)
        session.markGroupsUpdated();
}
