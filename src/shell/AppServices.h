#pragma once

class DesktopNotifier;
class PhoneConnection;

// What lives as long as the process and the screens are built on, made once by AppDelegate
// and handed down through the window to each screen, which takes only what it uses.
struct AppServices
{
    PhoneConnection& phone;
    DesktopNotifier& notifier;
};
