#pragma once

#include "SimStore.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include <httplib.h>

// The phone's HTTP service as the desktop sees it, plus a loopback-only control interface
// under /sim/ for tests and demos: faults, a log of the requests received, contacts.
class PhoneSimServer
{
public:
    struct Options
    {
        QString bind = QStringLiteral("127.0.0.1");
        quint16 port = 8080;
        QString dataDir;
        QString user = QStringLiteral("alex.morgan@example.com");
        QString deviceName = QStringLiteral("Varnex phone simulator");
        QString pairHost;         // empty: do not pair
        quint16 pairPort = 8888;
        QString advertiseIp;      // the "ip" the desktop must use to reach us
        bool legacyGroups = false;
        QList<QJsonObject> faults;
    };

    explicit PhoneSimServer(Options options);
    ~PhoneSimServer();

    // Opens the store and binds the port. False with a message on stderr on failure.
    bool start();
    quint16 port() const { return m_port; }
    QString advertisedIp() const;
    // Serves until stop(); also starts pairing when asked for.
    void run();
    void stop();

    // A fault from its JSON description; false when the description is not understood.
    bool addFault(const QJsonObject& description);

private:
    struct Fault;

    void routes();
    bool preRoute(const httplib::Request& req, httplib::Response& res);
    // Returns once the faults were cleared after `generation`, a minute passed, or it stops.
    void waitForFaultsCleared(quint64 generation) const;
    std::shared_ptr<Fault> takeFault(const std::string& method, const std::string& path, bool archiveFault);
    void logRequest(const httplib::Request& req, const QJsonArray& parts = {}, bool withBody = true);
    void handleOperation(const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader,
                         bool encrypt);
    QJsonObject groupJson(const SimStore::Group& group) const;
    void notifyDesktop(const char* path);
    void pairLoop();

    Options m_options;
    SimStore m_store;
    std::unique_ptr<httplib::Server> m_server;
    quint16 m_port = 0;
    std::atomic<bool> m_legacyGroups { false };
    std::atomic<bool> m_paired { false };
    std::atomic<quint64> m_faultGeneration { 0 };
    std::mutex m_mutex; // guards faults and the request log
    QList<std::shared_ptr<Fault>> m_faults;
    QJsonArray m_requests;
    std::thread m_pairThread;
    std::atomic<bool> m_stopping { false };
};
