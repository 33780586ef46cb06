#pragma once

class QNetworkAccessManager;

// The HTTP session for the screens' own calls to the phone's service on port 8080 (ping,
// users, the groups notice). Lives on the main thread for the whole process.
namespace PhoneService {
QNetworkAccessManager* network();
}
