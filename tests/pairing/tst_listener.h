#pragma once

#include "pairing/MobileDeviceListener.h"

#include <QObject>

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
    void ipMustBeALocalIPv4Literal_data();
    void ipMustBeALocalIPv4Literal();
    void emptyEmailKeepsTheStoredOne();
    void badBaseUrlIsLoggedEscapedAndPairingStands_data();
    void badBaseUrlIsLoggedEscapedAndPairingStands();
    void refusedRequestsChangeNothing_data();
    void refusedRequestsChangeNothing();
    void nothingHidesBehindARefusedHead();
    void lengthlessChangeSignalIsAnsweredWithoutReadingOn();
    void changeSignalsMoveOnlyTheirStamp();
    void slowHeadIsDroppedWhileAnotherPeerPairs();
    void perPeerConnectionCap();
    void totalConnectionCap();
    void pairingBurstsAnswer429UntilTheWindowPasses();
    void malformedRequestsDoNotHurtIt();
    void concurrentRequests();
    void busyPortIsReportedAndTolerated();

private:
    int post(const QByteArray& path, const QByteArray& body, const QByteArray& headers = {},
        const char* source = "127.0.0.1");
    std::unique_ptr<MobileDeviceListener> m_listener;
};
