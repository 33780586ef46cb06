#pragma once

// The session a previous run stored in the settings.
namespace StoredSession {
// Complete when an e-mail string (even empty) and a non-empty base URL are stored.
bool isComplete();
// The start-up lines that say whether a stored session exists.
void log();
} // namespace StoredSession
