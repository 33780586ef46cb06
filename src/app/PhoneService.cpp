#include "app/PhoneService.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>

namespace PhoneService {

QNetworkAccessManager* network()
{
    static QNetworkAccessManager* manager = [] {
        auto* m = new QNetworkAccessManager(QCoreApplication::instance());
        // The phone is on the local network: a system proxy must not intercept it.
        m->setProxy(QNetworkProxy::NoProxy);
        return m;
    }();
    return manager;
}

} // namespace PhoneService
