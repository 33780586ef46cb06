#include "pairing/LocalAddressRule.h"

#include <QStringList>

#include <array>

namespace LocalAddressRule {

std::optional<quint32> parseIPv4(const QString& text)
{
    const QStringList pieces = text.split(u'.');
    if (pieces.size() != 4)
        return std::nullopt;
    quint32 address = 0;
    for (const QString& piece : pieces) {
        if (piece.isEmpty() || piece.size() > 3 || (piece.size() > 1 && piece.front() == u'0'))
            return std::nullopt;
        uint value = 0;
        for (QChar c : piece) {
            if (c < u'0' || c > u'9')
                return std::nullopt;
            value = value * 10 + uint(c.unicode() - u'0');
        }
        if (value > 255)
            return std::nullopt;
        address = (address << 8) | value;
    }
    return address;
}

bool loopbackCountsAsPhone()
{
    return qEnvironmentVariableIntValue("VARNEX_ALLOW_LOOPBACK_PHONE") == 1;
}

bool isLocalIPv4(quint32 address)
{
    // Any account on this computer can bind port 8080 on loopback: a phone is never there,
    // except the simulator that scripts/run and the tests start on purpose.
    if ((address >> 24) == 127)
        return loopbackCountsAsPhone();
    struct Range
    {
        quint32 network;
        int prefix;
    };
    static constexpr std::array<Range, 5> ranges { {
        { 0x0A000000, 8 }, // 10.0.0.0/8
        { 0xAC100000, 12 }, // 172.16.0.0/12
        { 0xC0A80000, 16 }, // 192.168.0.0/16
        { 0xA9FE0000, 16 }, // 169.254.0.0/16
        { 0x64400000, 10 }, // 100.64.0.0/10
    } };
    for (const Range& range : ranges) {
        const quint32 mask = ~quint32(0) << (32 - range.prefix);
        if ((address & mask) == range.network)
            return true;
    }
    return false;
}

bool isLocalIPv4Literal(const QString& text)
{
    const auto address = parseIPv4(text);
    return address && isLocalIPv4(*address);
}

bool isPhoneHost(quint32 address, const QSet<quint32>& own)
{
    return isLocalIPv4(address) && (!own.contains(address) || loopbackCountsAsPhone());
}

} // namespace LocalAddressRule
