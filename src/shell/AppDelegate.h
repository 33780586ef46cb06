#pragma once

#include <memory>

class MobileDeviceListener;
class QLockFile;

// Runs the start-up sequence and owns what lives as long as the process: the device
// listener. Screens are made by the shell after start-up.
class AppDelegate
{
public:
    AppDelegate();
    ~AppDelegate();

    // One program at a time: true when this is the only one running. Otherwise the user is
    // told that Varnex Desktop is already running, and the caller exits.
    bool claimSingleInstance();

    // Prepares the working folders, starts the listener and logs whether a stored session
    // exists. The window opens on pairing whatever the stored session says.
    void applicationDidFinishLaunching();

    // Nothing is saved at exit: everything persistent is already on disk.
    void applicationWillTerminate() { }

    static constexpr bool applicationShouldTerminateAfterLastWindowClosed() { return true; }

    MobileDeviceListener* listener() const { return m_listener.get(); }

private:
    std::unique_ptr<QLockFile> m_instanceLock;
    std::unique_ptr<MobileDeviceListener> m_listener;
};
