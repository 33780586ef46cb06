#include "PhoneSimServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>

#include <csignal>
#include <cstdio>

namespace {
PhoneSimServer* running = nullptr;
void onSignal(int)
{
    if (running)
        running->stop();
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("varnex-phone-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays the phone's side of Varnex: its HTTP service, group API, encryption and pairing."));
    parser.addHelpOption();
    const QCommandLineOption port(u"port"_qs, u"Port to serve on (0 picks a free one)."_qs, u"N"_qs, u"8080"_qs);
    const QCommandLineOption bind(u"bind"_qs, u"Address to bind."_qs, u"ADDR"_qs, u"127.0.0.1"_qs);
    const QCommandLineOption data(u"data"_qs, u"Folder of its state (created and seeded on first use)."_qs, u"DIR"_qs);
    const QCommandLineOption user(u"user"_qs, u"E-mail of the signed-in user."_qs, u"EMAIL"_qs,
                                  u"alex.morgan@example.com"_qs);
    const QCommandLineOption name(u"name"_qs, u"Device name sent when pairing."_qs, u"NAME"_qs,
                                  u"Varnex phone simulator"_qs);
    const QCommandLineOption pair(u"pair"_qs, u"Desktop listener to pair with (port 8888 by default)."_qs,
                                  u"HOST[:PORT]"_qs);
    const QCommandLineOption advertise(u"advertise-ip"_qs, u"Address the desktop must use to reach this phone."_qs,
                                       u"IP"_qs);
    const QCommandLineOption legacy(u"legacy-groups"_qs, u"Group JSON with \"members\" and epoch-millisecond dates."_qs);
    const QCommandLineOption fault(u"fault"_qs, u"A fault as JSON, as POST /sim/faults takes it (repeatable)."_qs,
                                   u"JSON"_qs);
    parser.addOptions({ port, bind, data, user, name, pair, advertise, legacy, fault });
    parser.process(app);

    PhoneSimServer::Options options;
    bool ok = false;
    options.port = quint16(parser.value(port).toUInt(&ok));
    if (!ok) {
        std::fprintf(stderr, "varnex-phone-sim: --port needs a number\n");
        return 2;
    }
    options.bind = parser.value(bind);
    options.dataDir = parser.isSet(data) ? parser.value(data) : QDir::currentPath() + QStringLiteral("/phone-sim-data");
    options.user = parser.value(user);
    options.deviceName = parser.value(name);
    if (parser.isSet(pair)) {
        const QString target = parser.value(pair);
        const qsizetype colon = target.lastIndexOf(u':');
        options.pairHost = colon > 0 ? target.left(colon) : target;
        options.pairPort = colon > 0 ? quint16(target.mid(colon + 1).toUInt()) : 8888;
    }
    options.advertiseIp = parser.value(advertise);
    options.legacyGroups = parser.isSet(legacy);
    for (const QString& f : parser.values(fault)) {
        const QJsonDocument doc = QJsonDocument::fromJson(f.toUtf8());
        if (!doc.isObject()) {
            std::fprintf(stderr, "varnex-phone-sim: --fault needs a JSON object\n");
            return 2;
        }
        options.faults.append(doc.object());
    }

    PhoneSimServer server(options);
    if (!server.start())
        return 1;
    running = &server;
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    std::printf("varnex-phone-sim listening on %s:%u\n", qPrintable(options.bind), unsigned(server.port()));
    std::fflush(stdout);
    server.run();
    return 0;
}
