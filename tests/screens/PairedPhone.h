#pragma once

#include "app/Session.h"
#include "app/Settings.h"
#include "common/PhoneSimProcess.h"
#include "recipients/AssociationsStore.h"
#include "recipients/RecipientsModel.h"

// The phone simulator as the paired, connected phone of the screens under test.
class PairedPhone : public PhoneSimProcess
{
public:
    static inline const QString owner = QStringLiteral("alex.morgan@example.com");

    // Fresh settings and session, paired with this phone as the listener leaves them; no
    // faults set and no requests recorded yet.
    void pair()
    {
        Settings::open()->clear();
        Settings::setString(Settings::baseUrlKey, baseUrl());
        Settings::setString(Settings::userEmailKey, owner);
        Session::instance().resetForTesting();
        Session::instance().setPhoneIPAddress(QStringLiteral("127.0.0.1"));
        Session::instance().setPhoneServicePortForTesting(port());
        Session::instance().setPhoneConnected(true);
        clearFaults();
        clearRequests();
    }

    int count(const QString& method, const QString& path)
    {
        int n = 0;
        for (const auto& r : requests()) {
            const QJsonObject request = r.toObject();
            n += request.value(u"method").toString() == method && request.value(u"path").toString() == path;
        }
        return n;
    }

    static qint64 groupId(const AssociationsStore* store, const QString& name)
    {
        for (const auto& g : store->groups()) {
            if (g->name == name)
                return g->id;
        }
        return -1;
    }

    static int userRow(const RecipientsModel* model, const QString& email)
    {
        for (int row = 0; row < model->rowCount(); ++row) {
            const auto type = model->rowType(row);
            if (type && type->user && type->user->email == email)
                return row;
        }
        return -1;
    }
};
