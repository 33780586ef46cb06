#pragma once

#include <QString>

// The only writer of the stored base URL of the phone's service.
namespace BaseUrlStore {

// True when text is a well-formed http or https URL with a host: only characters a URL may
// carry, valid percent escapes, and a parseable authority. Rejects, for instance, any text
// holding a space, a relative reference, or a file: or ftp: URL.
bool isWellFormedUrl(const QString& text);

// Stores text unchanged when it is well formed and logs the outcome either way; true when
// it was stored.
bool setBaseURL(const QString& text);

// No base URL any more: the group API answers notAuthenticated until a phone brings one.
void clear();

bool hasBaseURL();

} // namespace BaseUrlStore
