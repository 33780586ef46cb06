#pragma once

#include "pairing/MobileDeviceListener.h"

#include <QObject>

#include <httplib.h>

#include <memory>

// Declared apart from its bodies: moc cannot read the raw JSON strings the tests use.
class TestListener : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void pairingExtraction_data();
    void pairingExtraction();
    void routing_data();
    void routing();
    void pairingOverHttp();
    void emptyEmailKeepsStoredOneAndMissingIpEmptiesAddress();
    void invalidBaseUrlKeepsOldOneButStillPairs();
    void refusedBodiesChangeNothing_data();
    void refusedBodiesChangeNothing();
    void changeSignalsMoveOnlyTheirStamp();
    void abuseIsRefused();
    void malformedRequestsDoNotHurtIt();
    void concurrentRequests();
    void busyPortIsReportedAndTolerated();

private:
    httplib::Result post(const char* path, const std::string& body, httplib::Headers headers = {});
    std::unique_ptr<MobileDeviceListener> m_listener;
};
