#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

#include <optional>

// What the device listener makes of one request, without sockets: bytes in, a status and
// the session changes to apply out.

inline constexpr qint64 maxListenerBodySize = 64 * 1024;
inline constexpr qint64 maxListenerHeadSize = 8 * 1024;

struct ListenerRequest
{
    QByteArray method;
    QByteArray path;
    QByteArray body;
    bool hasOrigin = false; // browsers send Origin on every cross-site POST
    bool isChunked = false; // a body of unknown length
    qint64 contentLength = -1; // -1 when the header is absent
    bool hasContentEncoding = false; // a compressed body could inflate past every cap
    qint64 headSize = 0; // request line and header lines, in bytes
};

struct PairingMessage
{
    QString ip; // empty when missing or not a string
    QString mobileDeviceName; // empty when missing or not a string
    std::optional<QString> email; // only a non-empty string
    std::optional<QString> baseURL; // only a non-empty string
};

struct ListenerOutcome
{
    int status = 404;
    std::optional<PairingMessage> pairing;
    bool associatesChanged = false;
    bool groupsChanged = false;
    QString refusal; // why a well-formed pairing message was refused (for the log)
};

// The checks that need only the request head: Origin (403), head size (431), body size or
// unknown length (413; a change signal may come chunked, as its body is read only to be
// discarded), any content encoding (415). Nothing when the request may go on to be read.
std::optional<int> screenListenerRequestHead(const ListenerRequest& head);

// Extracts the pairing object from a request's text as the phone's listener always has: the
// text after the first "{" up to the next "{" is the object. So a flat object is accepted and
// an array, a nested object or array, or a "{" inside a string fail.
std::optional<PairingMessage> parsePairingMessage(
    const QByteArray& method, const QByteArray& path, const QByteArray& body);

// An e-mail a phone may name its user by: at most 254 bytes, exactly one "@", no white space
// (line separators included) or control characters.
bool isAcceptableEmail(const QString& email);

// Routes one whole request from peer (the sender's address); parses, never decides. A pairing
// message answers 400 and carries no pairing when its "ip" is not a local IPv4 literal, is one
// of this computer's `own` addresses (see LocalAddressRule::isPhoneHost) or is not the address
// it came from (a real phone posts from its own address), or when its e-mail is unacceptable:
// every later request to the phone is built from these values. A pairing message that may go
// on answers 200 only once the phone connection kept it (see PhoneConnection::offer).
ListenerOutcome handleListenerRequest(
    const ListenerRequest& request, const QString& peer, const QSet<quint32>& own = {});
