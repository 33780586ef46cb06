#pragma once

#include <QtGlobal>

class QNetworkReply;

// Every answer the phone (or whatever sits at its address) sends is read into memory, so each
// is capped. 16 MiB is over a hundred times the users of a phone with ten thousand contacts,
// or the groups of a user with a thousand groups of a hundred members, and small enough that a
// host answering with gigabytes costs the desktop nothing.
namespace ReplyCap {

inline constexpr qint64 maxReplyBytes = 16 * 1024 * 1024;

// Aborts `reply` as soon as its body is declared or received past `cap` bytes, with one log
// line; wasCut() then tells why it ended.
void limit(QNetworkReply* reply, qint64 cap = maxReplyBytes);
bool wasCut(const QNetworkReply* reply);

} // namespace ReplyCap
