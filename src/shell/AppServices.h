#pragma once

class DesktopNotifier;
class NetworkClient;
class PhoneConnection;
class PhoneServiceClient;

// What lives as long as the process and the screens are built on, made once by AppDelegate
// and handed down through the window to each screen, which takes only what it uses.
struct AppServices
{
    PhoneConnection& phone;
    DesktopNotifier& notifier;
    // The phone's own service (users, the groups notice, ping) and its group API.
    PhoneServiceClient& phoneService;
    NetworkClient& api;
};
