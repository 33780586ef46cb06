#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include <httplib.h>

// Runs the phone simulator on a free loopback port for one test, with its state in a fresh
// folder, and talks to its control interface.
class PhoneSimProcess
{
public:
    explicit PhoneSimProcess(const QStringList& extraArguments = {})
    {
        m_process.setProcessChannelMode(QProcess::SeparateChannels);
        m_process.start(qEnvironmentVariable("VARNEX_PHONE_SIM_BINARY"),
            QStringList {
                QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--data"), m_data.path() }
                + extraArguments);
        if (!m_process.waitForStarted(10000))
            return;
        static const QRegularExpression listening(QStringLiteral("listening on ([^:\\s]+):(\\d+)"));
        QByteArray output;
        while (m_port == 0 && m_process.waitForReadyRead(15000)) {
            output += m_process.readAllStandardOutput();
            const auto match = listening.match(QString::fromUtf8(output));
            if (match.hasMatch())
                m_port = quint16(match.captured(2).toUInt());
        }
    }

    ~PhoneSimProcess()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(2000);
    }

    bool isRunning() const { return m_port != 0 && m_process.state() == QProcess::Running; }
    quint16 port() const { return m_port; }
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1/").arg(m_port); }

    // Sets a fault (see the simulator's README); true when it was accepted.
    bool setFault(const QJsonObject& fault) { return post("/sim/faults", fault) == 200; }
    bool clearFaults() { return request("DELETE", "/sim/faults") == 200; }
    bool clearRequests() { return request("DELETE", "/sim/requests") == 200; }

    // The requests the simulator received, oldest first.
    QJsonArray requests()
    {
        httplib::Client client("127.0.0.1", m_port);
        auto res = client.Get("/sim/requests");
        const QByteArray body = res ? QByteArray::fromStdString(res->body) : QByteArray();
        return QJsonDocument::fromJson(body).object().value(u"requests").toArray();
    }

    // The parts of a multipart request as the phone read them: "name=value" for a field,
    // "name | file name | type | size" for a file.
    static QStringList partsOf(const QJsonValue& request)
    {
        QStringList result;
        for (const QJsonValue& value : request.toObject().value(u"parts").toArray()) {
            const QJsonObject part = value.toObject();
            const QString name = part.value(u"name").toString();
            result.append(!part.contains(u"filename")
                    ? name + u'=' + part.value(u"value").toString()
                    : QStringList { name, part.value(u"filename").toString(),
                        part.value(u"contentType").toString(),
                        QString::number(part.value(u"size").toInteger()) }
                          .join(u" | "));
        }
        return result;
    }

    int post(const char* path, const QJsonObject& body)
    {
        httplib::Client client("127.0.0.1", m_port);
        auto res = client.Post(
            path, QJsonDocument(body).toJson(QJsonDocument::Compact).toStdString(), "application/json");
        return res ? res->status : -1;
    }

    int request(const char* method, const char* path)
    {
        httplib::Client client("127.0.0.1", m_port);
        httplib::Result res = std::string_view(method) == "DELETE" ? client.Delete(path) : client.Get(path);
        return res ? res->status : -1;
    }

private:
    QTemporaryDir m_data;
    QProcess m_process;
    quint16 m_port = 0;
};
