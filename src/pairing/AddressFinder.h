#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// Finds the address the phone must use to reach this computer on the local network.
namespace AddressFinder {

enum class InterfaceKind { Ethernet, Wifi, Loopback, Virtual, Other };

struct InterfaceEntry
{
    QString name;
    InterfaceKind kind = InterfaceKind::Other;
    bool isUp = false;
    bool isRunning = false;
    QStringList addresses; // numeric texts, IPv4 and IPv6, in the system's order
};

// True for names of virtual interfaces (containers, VPNs, bridges) that a phone cannot reach.
bool looksVirtual(const QString& name);

// The LAN interface: "en0" on macOS; elsewhere the first up, running Ethernet or Wi-Fi
// interface that is not virtual. Its last address wins, and only a text of exactly four
// dot-separated pieces counts.
std::optional<QString> pickAddress(const QList<InterfaceEntry>& interfaces, bool macOS = false);

// Every IPv4 address of up, running, non-virtual Ethernet or Wi-Fi interfaces, with the
// rule's choice first: the choices a user may prefer when the machine has several.
QStringList candidateAddresses(const QList<InterfaceEntry>& interfaces, bool macOS = false);

// The addresses of `addresses` that the listener takes pairing messages on: a phone that
// reaches this computer on any other (a public address) is always refused, so it is never offered.
QStringList pairableAddresses(const QStringList& addresses);

// Every IPv4 address of every interface, whatever its kind: where another account of this
// computer could listen.
QSet<quint32> ownAddresses(const QList<InterfaceEntry>& interfaces);

// This machine's interfaces.
QList<InterfaceEntry> systemInterfaces();

std::optional<QString> findLocalIPAddress();

} // namespace AddressFinder
