#pragma once

#include <QSet>
#include <QString>
#include <QtGlobal>

#include <optional>

// Which IPv4 addresses count as "this local network": private (10/8, 172.16/12, 192.168/16),
// link-local (169.254/16) and shared (100.64/10); loopback (127/8) only where
// VARNEX_ALLOW_LOOPBACK_PHONE=1 lets a phone simulator on this computer pair. A phone on the LAN is
// always in one of them; anything else is either a public host or not an address at all, and
// must never end up in the URLs the desktop sends the user's files to.
namespace LocalAddressRule {

// A strict dotted-quad literal: four decimal pieces of 1 to 3 digits, each 0..255, without
// leading zeros (which some parsers read as octal), nothing before or after.
std::optional<quint32> parseIPv4(const QString& text);

bool isLocalIPv4(quint32 address);

// True when VARNEX_ALLOW_LOOPBACK_PHONE=1: the bundled simulator on this computer plays the phone.
bool loopbackCountsAsPhone();

// The "ip" member of a pairing message: a literal in one of the local ranges.
bool isLocalIPv4Literal(const QString& text);

// A host a phone may be on: a local address that is not one of this computer's own (`own`),
// which count like loopback (any account here could listen on them).
bool isPhoneHost(quint32 address, const QSet<quint32>& own);

} // namespace LocalAddressRule
