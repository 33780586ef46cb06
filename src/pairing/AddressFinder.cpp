#include "pairing/AddressFinder.h"

#include "pairing/LocalAddressRule.h"

#include <QHostAddress>
#include <QNetworkInterface>

namespace AddressFinder {

namespace {

bool isLanInterface(const InterfaceEntry& entry, bool macOS)
{
    if (macOS)
        return entry.name == u"en0";
    return entry.isUp && entry.isRunning
        && (entry.kind == InterfaceKind::Ethernet || entry.kind == InterfaceKind::Wifi)
        && !looksVirtual(entry.name);
}

bool isDottedQuad(const QString& text)
{
    return text.split(u'.', Qt::SkipEmptyParts).size() == 4;
}

} // namespace

bool looksVirtual(const QString& name)
{
    static const QStringList prefixes { u"docker"_qs, u"veth"_qs, u"br-"_qs, u"bridge"_qs, u"virbr"_qs,
        u"tun"_qs, u"tap"_qs, u"wg"_qs, u"vmnet"_qs, u"vboxnet"_qs, u"zt"_qs, u"tailscale"_qs, u"utun"_qs,
        u"lxc"_qs, u"lxd"_qs, u"cni"_qs, u"flannel"_qs, u"podman"_qs };
    for (const QString& prefix : prefixes) {
        if (name.startsWith(prefix))
            return true;
    }
    return false;
}

std::optional<QString> pickAddress(const QList<InterfaceEntry>& interfaces, bool macOS)
{
    for (const InterfaceEntry& entry : interfaces) {
        if (!isLanInterface(entry, macOS))
            continue;
        if (entry.addresses.isEmpty())
            continue;
        const QString last = entry.addresses.last();
        if (isDottedQuad(last))
            return last;
        return std::nullopt;
    }
    return std::nullopt;
}

QStringList candidateAddresses(const QList<InterfaceEntry>& interfaces, bool macOS)
{
    QStringList result;
    if (auto chosen = pickAddress(interfaces, macOS))
        result.append(*chosen);
    for (const InterfaceEntry& entry : interfaces) {
        if (!isLanInterface(entry, false) && !(macOS && entry.name == u"en0"))
            continue;
        for (const QString& address : entry.addresses) {
            if (QHostAddress(address).protocol() == QAbstractSocket::IPv4Protocol
                && !result.contains(address))
                result.append(address);
        }
    }
    return result;
}

QStringList pairableAddresses(const QStringList& addresses)
{
    QStringList result;
    for (const QString& address : addresses) {
        if (LocalAddressRule::isLocalIPv4Literal(address))
            result.append(address);
    }
    return result;
}

QSet<quint32> ownAddresses(const QList<InterfaceEntry>& interfaces)
{
    QSet<quint32> result;
    for (const InterfaceEntry& entry : interfaces) {
        for (const QString& address : entry.addresses) {
            if (const auto parsed = LocalAddressRule::parseIPv4(address))
                result.insert(*parsed);
        }
    }
    return result;
}

QList<InterfaceEntry> systemInterfaces()
{
    QList<InterfaceEntry> result;
    for (const QNetworkInterface& iface : QNetworkInterface::allInterfaces()) {
        InterfaceEntry entry;
        entry.name = iface.name();
        entry.isUp = iface.flags().testFlag(QNetworkInterface::IsUp);
        entry.isRunning = iface.flags().testFlag(QNetworkInterface::IsRunning);
        switch (iface.type()) {
        case QNetworkInterface::Ethernet:
            entry.kind = InterfaceKind::Ethernet;
            break;
        case QNetworkInterface::Wifi:
            entry.kind = InterfaceKind::Wifi;
            break;
        case QNetworkInterface::Loopback:
            entry.kind = InterfaceKind::Loopback;
            break;
        case QNetworkInterface::Virtual:
            entry.kind = InterfaceKind::Virtual;
            break;
        default:
            entry.kind = InterfaceKind::Other;
        }
        if (iface.flags().testFlag(QNetworkInterface::IsLoopBack))
            entry.kind = InterfaceKind::Loopback;
        for (const QNetworkAddressEntry& address : iface.addressEntries()) {
            QHostAddress ip = address.ip();
            ip.setScopeId(QString());
            entry.addresses.append(ip.toString());
        }
        result.append(entry);
    }
    return result;
}

std::optional<QString> findLocalIPAddress()
{
#ifdef Q_OS_MACOS
    return pickAddress(systemInterfaces(), true);
#else
    return pickAddress(systemInterfaces(), false);
#endif
}

} // namespace AddressFinder
