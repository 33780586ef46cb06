#pragma once

#include <QString>

#include <optional>

// The phone the user accepted on this computer. It is remembered across starts, so the
// desktop finds it again by itself, and its pairing messages take effect without asking.
struct TrustedPhone
{
    QString email; // may be empty: a phone that sent none when it was accepted
    QString name;
    QString address; // the IPv4 address its messages came from
    QString baseURL;

    bool operator==(const TrustedPhone&) const = default;

    static std::optional<TrustedPhone> load();
    void save() const;
    static void forget();
};
