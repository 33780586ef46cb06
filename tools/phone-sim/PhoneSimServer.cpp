#include "PhoneSimServer.h"

#include "ZipWriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QJsonDocument>
#include <QNetworkInterface>
#include <QTimeZone>
#include <QUuid>

#include <chrono>
#include <cstdio>

using namespace std::chrono_literals;

struct PhoneSimServer::Fault
{
    std::string method; // empty: any
    std::string path;
    bool prefix = false;
    int status = 0;
    std::optional<std::string> body;
    std::string contentType = "application/json";
    int delayMs = 0;
    qint64 closeAfterBytes = -1;
    bool stall = false; // with closeAfterBytes: hold the connection silent instead of dropping it
    bool noAnswer = false;
    bool hold = false; // the request waits unread until faults are cleared, then is served
    QString archive;
    QString archiveFile; // "archive": "file": these bytes are the reply, as they are
    int times = 0; // 0: until cleared
    int used = 0;

    bool matches(const std::string& m, const std::string& p) const
    {
        if (!method.empty() && method != m)
            return false;
        return prefix ? p.compare(0, path.size(), path) == 0 : p == path;
    }
};

namespace {

std::string compact(const QJsonValue& value)
{
    if (value.isArray())
        return QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact).toStdString();
    return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact).toStdString();
}

void answerJson(httplib::Response& res, int status, const QJsonValue& value)
{
    res.status = status;
    res.set_content(compact(value), "application/json");
}

// A bare status, as the phone answers a conflict or an unknown group.
void answerStatus(httplib::Response& res, int status)
{
    res.status = status;
}

void answerMessage(httplib::Response& res, int status, const QString& message)
{
    answerJson(res, status, QJsonObject { { QStringLiteral("message"), message } });
}

QString text(const std::string& s)
{
    return QString::fromStdString(s);
}

QJsonObject memberJson(const SimStore::Person& p)
{
    return { { QStringLiteral("id"), p.id }, { QStringLiteral("fullName"), p.fullName() },
        { QStringLiteral("email"), p.email }, { QStringLiteral("phoneNumber"), p.phone } };
}

std::optional<QJsonObject> jsonObjectBody(const httplib::Request& req)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(req.body), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return doc.object();
}

std::optional<QList<qint64>> idList(const QJsonObject& body)
{
    const QJsonValue users = body.value(u"users");
    if (!users.isArray())
        return std::nullopt;
    QList<qint64> ids;
    for (const QJsonValue& v : users.toArray()) {
        if (!v.isDouble())
            return std::nullopt;
        ids.append(qint64(v.toDouble()));
    }
    return ids;
}

// Whether the request being handled on this thread made it into the log.
thread_local bool requestLogged = false;

bool isLoopback(const std::string& address)
{
    const QHostAddress host(text(address));
    return host.isLoopback()
        || (host.protocol() == QAbstractSocket::IPv6Protocol && host.toIPv4Address() != 0
            && QHostAddress(host.toIPv4Address()).isLoopback());
}

} // namespace

PhoneSimServer::PhoneSimServer(Options options)
    : m_options(std::move(options))
    , m_legacyGroups(m_options.legacyGroups)
{
}

PhoneSimServer::~PhoneSimServer()
{
    stop();
    if (m_pairThread.joinable())
        m_pairThread.join();
}

bool PhoneSimServer::addFault(const QJsonObject& d)
{
    const QString path = d.value(u"path").toString();
    if (path.isEmpty())
        return false;
    auto fault = std::make_shared<Fault>();
    fault->method = d.value(u"method").toString().toUpper().toStdString();
    fault->prefix = path.endsWith(u'*');
    fault->path = (fault->prefix ? path.chopped(1) : path).toStdString();
    fault->status = d.value(u"status").toInt(0);
    if (d.contains(u"body"))
        fault->body = d.value(u"body").toString().toStdString();
    if (d.contains(u"contentType"))
        fault->contentType = d.value(u"contentType").toString().toStdString();
    fault->delayMs = d.value(u"delayMs").toInt(0);
    fault->closeAfterBytes
        = d.contains(u"closeAfterBytes") ? qint64(d.value(u"closeAfterBytes").toDouble()) : -1;
    if (d.contains(u"stallAfterBytes")) {
        fault->closeAfterBytes = qint64(d.value(u"stallAfterBytes").toDouble());
        fault->stall = true;
    }
    fault->noAnswer = d.value(u"noAnswer").toBool(false);
    fault->hold = d.value(u"hold").toBool(false);
    fault->archive = d.value(u"archive").toString();
    fault->archiveFile = d.value(u"file").toString();
    fault->times = d.value(u"times").toInt(0);
    static const QStringList archives { QString(), u"escape"_qs, u"absolute"_qs, u"symlink"_qs, u"corrupt"_qs,
        u"empty"_qs, u"unmatched"_qs, u"bomb"_qs, u"longName"_qs, u"controlChar"_qs, u"leadingDot"_qs,
        u"subfolder"_qs, u"truncated"_qs, u"corruptData"_qs, u"file"_qs };
    if (!archives.contains(fault->archive))
        return false;
    std::lock_guard lock(m_mutex);
    m_faults.append(fault);
    return true;
}

std::shared_ptr<PhoneSimServer::Fault> PhoneSimServer::takeFault(
    const std::string& method, const std::string& path, bool archiveFault)
{
    std::lock_guard lock(m_mutex);
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        auto fault = *it;
        if (fault->archive.isEmpty() == archiveFault || !fault->matches(method, path))
            continue;
        ++fault->used;
        if (fault->times > 0 && fault->used >= fault->times)
            m_faults.erase(it);
        return fault;
    }
    return nullptr;
}

QString PhoneSimServer::advertisedIp() const
{
    if (!m_options.advertiseIp.isEmpty())
        return m_options.advertiseIp;
    if (m_options.bind != u"0.0.0.0")
        return m_options.bind;
    for (const QHostAddress& a : QNetworkInterface::allAddresses()) {
        if (a.protocol() == QAbstractSocket::IPv4Protocol && !a.isLoopback())
            return a.toString();
    }
    return QStringLiteral("127.0.0.1");
}

bool PhoneSimServer::start()
{
    if (!VxCrypto::initialize() || !m_store.open(m_options.dataDir, m_options.user)) {
        std::fprintf(stderr, "varnex-phone-sim: cannot open its data in %s\n", qPrintable(m_options.dataDir));
        return false;
    }
    for (const QJsonObject& fault : std::as_const(m_options.faults)) {
        if (!addFault(fault)) {
            std::fprintf(stderr, "varnex-phone-sim: fault not understood\n");
            return false;
        }
    }
    m_server = std::make_unique<httplib::Server>();
    m_server->new_task_queue = [] { return new httplib::ThreadPool(32); };
    m_server->set_read_timeout(30, 0);
    m_server->set_write_timeout(30, 0);
    m_server->set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        return preRoute(req, res) ? httplib::Server::HandlerResponse::Handled
                                  : httplib::Server::HandlerResponse::Unhandled;
    });
    routes();
    // Requests that no route takes are logged too: tests look for what went astray.
    m_server->set_error_handler([this](const httplib::Request& req, httplib::Response&) {
        if (!requestLogged && req.path.rfind("/sim/", 0) != 0)
            logRequest(req);
    });
    const std::string bind = m_options.bind.toStdString();
    const int bound = m_options.port == 0
        ? m_server->bind_to_any_port(bind)
        : (m_server->bind_to_port(bind, m_options.port) ? m_options.port : -1);
    if (bound <= 0) {
        std::fprintf(
            stderr, "varnex-phone-sim: cannot listen on %s:%u\n", bind.c_str(), unsigned(m_options.port));
        return false;
    }
    m_port = quint16(bound);
    return true;
}

void PhoneSimServer::run()
{
    if (!m_options.pairHost.isEmpty())
        m_pairThread = std::thread([this] { pairLoop(); });
    m_server->listen_after_bind();
}

void PhoneSimServer::stop()
{
    m_stopping = true;
    if (m_server)
        m_server->stop();
}

bool PhoneSimServer::preRoute(const httplib::Request& req, httplib::Response& res)
{
    requestLogged = false;
    if (req.path.rfind("/sim/", 0) == 0) {
        if (!isLoopback(req.remote_addr)) {
            res.status = 403;
            return true;
        }
        return false;
    }
    auto fault = takeFault(req.method, req.path, false);
    if (!fault)
        return false;
    logRequest(req, {}, false);
    if (fault->delayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(fault->delayMs));
    if (fault->noAnswer || fault->hold) {
        // Hold the connection without a word until the fault is cleared (or a long time passes).
        waitForFaultsCleared(m_faultGeneration.load());
        if (fault->hold)
            return false; // now read and answered as usual
        res.status = 503;
        return true;
    }
    if (fault->closeAfterBytes >= 0) {
        const qint64 cut = fault->closeAfterBytes;
        const bool stall = fault->stall;
        const quint64 generation = m_faultGeneration.load();
        res.status = fault->status > 0 ? fault->status : 200;
        res.set_content_provider(size_t(cut + 4096), fault->contentType,
            [this, cut, stall, generation](size_t offset, size_t, httplib::DataSink& sink) {
                if (qint64(offset) < cut) {
                    // A zip's first entry (stored, 1 GiB) that never ends,
                    // so a reader takes it in and waits for more.
                    std::string part(size_t(cut - qint64(offset)), '[');
                    static const char head[] = "PK\x03\x04\x14\0\0\0\0\0\0\0\0\0\0\0\0\0"
                                               "\0\0\0\x40\0\0\0\x40\x09\0\0\0stall.bin";
                    for (size_t i = size_t(offset); i < sizeof head - 1 && i < size_t(cut); ++i)
                        part[i - size_t(offset)] = head[i];
                    sink.write(part.data(), part.size());
                    return true;
                }
                // Mid-body: silent until the faults are cleared, or dropped.
                if (stall)
                    waitForFaultsCleared(generation);
                return false;
            });
        return true;
    }
    if (fault->status > 0) {
        res.status = fault->status;
        if (fault->body)
            res.set_content(*fault->body, fault->contentType);
        return true;
    }
    return false; // a pure delay: the request goes on as usual
}

void PhoneSimServer::waitForFaultsCleared(quint64 generation) const
{
    for (int i = 0; i < 1200 && m_faultGeneration.load() == generation && !m_stopping; ++i)
        std::this_thread::sleep_for(50ms);
}

void PhoneSimServer::logRequest(const httplib::Request& req, const QJsonArray& parts, bool withBody)
{
    // A delayed request is logged on arrival; its handler must not log it a second time.
    if (requestLogged)
        return;
    QJsonObject headers;
    for (const auto& [name, value] : req.headers) {
        if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT")
            continue;
        headers.insert(text(name).toLower(), text(value));
    }
    QJsonObject entry { { QStringLiteral("method"), text(req.method) },
        { QStringLiteral("path"), text(req.path) }, { QStringLiteral("headers"), headers },
        { QStringLiteral("contentType"), text(req.get_header_value("Content-Type")) } };
    QStringList query;
    for (const auto& [key, value] : req.params)
        query.append(text(key) + u'=' + text(value));
    entry.insert(QStringLiteral("query"), query.join(u'&'));
    if (!parts.isEmpty())
        entry.insert(QStringLiteral("parts"), parts);
    else if (withBody)
        entry.insert(
            QStringLiteral("body"), QString::fromUtf8(QByteArray::fromStdString(req.body).left(64 * 1024)));
    std::lock_guard lock(m_mutex);
    m_requests.append(entry);
    requestLogged = true;
}

QJsonObject PhoneSimServer::groupJson(const SimStore::Group& g) const
{
    QJsonArray members;
    for (const auto& m : g.members)
        members.append(memberJson(m));
    QJsonObject o { { QStringLiteral("id"), g.id }, { QStringLiteral("name"), g.name },
        { QStringLiteral("username"), g.owner } };
    if (m_legacyGroups) {
        o.insert(QStringLiteral("members"), members);
        o.insert(QStringLiteral("createdOn"), double(g.createdMs));
    } else {
        o.insert(QStringLiteral("groupMembers"), members);
        o.insert(QStringLiteral("createdOn"),
            QDateTime::fromMSecsSinceEpoch(g.createdMs, Qt::UTC).toString(Qt::ISODateWithMs));
    }
    return o;
}

void PhoneSimServer::notifyDesktop(const char* path)
{
    if (!m_paired || m_options.pairHost.isEmpty())
        return;
    std::thread([host = m_options.pairHost.toStdString(), port = m_options.pairPort, p = std::string(path)] {
        httplib::Client client(host, port);
        client.set_connection_timeout(2);
        client.Post(p.c_str(), "", "application/json");
    }).detach();
}

void PhoneSimServer::pairLoop()
{
    const QString ip = advertisedIp();
    const QJsonObject message { { QStringLiteral("ip"), ip },
        { QStringLiteral("mobileDeviceName"), m_options.deviceName },
        { QStringLiteral("email"), m_options.user },
        { QStringLiteral("baseURL"), QStringLiteral("http://%1:%2/").arg(ip).arg(m_port) } };
    const std::string body = compact(message);
    httplib::Client client(m_options.pairHost.toStdString(), m_options.pairPort);
    client.set_connection_timeout(2);
    while (!m_stopping) {
        auto res = client.Post("/myInformation", body, "application/json");
        if (res && res->status == 200) {
            m_paired = true;
            std::printf("varnex-phone-sim paired with %s:%u\n", qPrintable(m_options.pairHost),
                unsigned(m_options.pairPort));
            std::fflush(stdout);
            return;
        }
        std::this_thread::sleep_for(500ms);
    }
}

void PhoneSimServer::routes()
{
    httplib::Server& s = *m_server;

    s.Get("/ping", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        res.set_content("pong", "text/plain");
    });

    s.Get("/getUsers", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        QJsonArray users;
        for (const auto& p : m_store.contacts())
            users.append(QJsonObject { { QStringLiteral("firstName"), p.firstName },
                { QStringLiteral("lastName"), p.lastName }, { QStringLiteral("email"), p.email },
                { QStringLiteral("phone"), p.phone } });
        answerJson(res, 200, QJsonObject { { QStringLiteral("getUsers"), users } });
    });

    s.Post("/updateGroups", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        res.status = 200;
    });

    s.Post("/encryptFile/",
        [this](const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader) {
            handleOperation(req, res, reader, true);
        });
    s.Post("/decryptFile/",
        [this](const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader) {
            handleOperation(req, res, reader, false);
        });

    // The group API.
    s.Post("/v2/groups", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        const auto body = jsonObjectBody(req);
        const QString owner = body ? body->value(u"username").toString() : QString();
        const QString name = body ? body->value(u"name").toString().trimmed() : QString();
        if (!body || owner.isEmpty() || name.isEmpty())
            return answerMessage(res, 400, QStringLiteral("A group needs a username and a name"));
        SimStore::Group created;
        if (m_store.createGroup(owner, name, &created) == SimStore::Result::Conflict)
            return answerStatus(res, 409);
        answerJson(res, 201, groupJson(created));
        notifyDesktop("/updateGroups");
    });
    s.Get(R"(/v2/groups/([^/]+))", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        QJsonArray groups;
        for (const auto& g : m_store.groupsOf(text(req.matches[1])))
            groups.append(groupJson(g));
        answerJson(res, 200, groups);
    });
    s.Patch(R"(/v2/groups/(-?\d+))", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        const auto body = jsonObjectBody(req);
        const QString name = body ? body->value(u"name").toString().trimmed() : QString();
        if (name.isEmpty())
            return answerMessage(res, 400, QStringLiteral("A group needs a name"));
        SimStore::Group renamed;
        switch (m_store.renameGroup(text(req.matches[1]).toLongLong(), name, &renamed)) {
        case SimStore::Result::NotFound:
            return answerStatus(res, 404);
        case SimStore::Result::Conflict:
            return answerStatus(res, 409);
        case SimStore::Result::Ok:
            break;
        }
        answerJson(res, 200, groupJson(renamed));
        notifyDesktop("/updateGroups");
    });
    s.Delete(R"(/v2/groups/(-?\d+))", [this](const httplib::Request& req, httplib::Response& res) {
        logRequest(req);
        if (m_store.deleteGroup(text(req.matches[1]).toLongLong()) == SimStore::Result::NotFound)
            return answerStatus(res, 404);
        res.status = 204;
        notifyDesktop("/updateGroups");
    });
    s.Get(R"(/v2/groups/(-?\d+)/users/([^/]+)/users-not-associated)",
        [this](const httplib::Request& req, httplib::Response& res) {
            logRequest(req);
            const auto users
                = m_store.usersNotAssociated(text(req.matches[1]).toLongLong(), text(req.matches[2]));
            if (!users)
                return answerStatus(res, 404);
            QJsonArray list;
            for (const auto& p : *users)
                list.append(memberJson(p));
            answerJson(res, 200, list);
        });
    auto members = [this](bool add) {
        return [this, add](const httplib::Request& req, httplib::Response& res) {
            logRequest(req);
            const auto body = jsonObjectBody(req);
            const auto ids = body ? idList(*body) : std::nullopt;
            if (!ids)
                return answerMessage(res, 400, QStringLiteral("\"users\" must be a list of user ids"));
            const qint64 id = text(req.matches[1]).toLongLong();
            const auto result = add ? m_store.addMembers(id, *ids) : m_store.removeMembers(id, *ids);
            if (result == SimStore::Result::NotFound)
                return answerStatus(res, 404);
            res.status = 204;
            notifyDesktop("/updateGroups");
        };
    };
    s.Post(R"(/v2/groups/(-?\d+)/users/add)", members(true));
    s.Post(R"(/v2/groups/(-?\d+)/users/remove)", members(false));

    // The control interface.
    s.Get("/sim/requests", [this](const httplib::Request&, httplib::Response& res) {
        std::lock_guard lock(m_mutex);
        answerJson(res, 200, QJsonObject { { QStringLiteral("requests"), m_requests } });
    });
    s.Delete("/sim/requests", [this](const httplib::Request&, httplib::Response& res) {
        std::lock_guard lock(m_mutex);
        m_requests = QJsonArray();
        res.status = 200;
    });
    s.Post("/sim/faults", [this](const httplib::Request& req, httplib::Response& res) {
        const auto body = jsonObjectBody(req);
        if (!body || !addFault(*body))
            return answerMessage(res, 400, QStringLiteral("fault not understood"));
        res.status = 200;
    });
    s.Delete("/sim/faults", [this](const httplib::Request&, httplib::Response& res) {
        {
            std::lock_guard lock(m_mutex);
            m_faults.clear();
        }
        ++m_faultGeneration;
        res.status = 200;
    });
    s.Post("/sim/contacts", [this](const httplib::Request& req, httplib::Response& res) {
        const auto body = jsonObjectBody(req);
        if (!body || body->value(u"email").toString().isEmpty())
            return answerMessage(res, 400, QStringLiteral("a contact needs an email"));
        m_store.addContact({ 0, body->value(u"firstName").toString(), body->value(u"lastName").toString(),
            body->value(u"email").toString(), body->value(u"phone").toString() });
        res.status = 201;
        notifyDesktop("/updateAssociates");
    });
    s.Delete(R"(/sim/contacts/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
        if (!m_store.removeContact(text(req.matches[1])))
            return answerMessage(res, 404, QStringLiteral("no such contact"));
        res.status = 200;
        notifyDesktop("/updateAssociates");
    });
    s.Get("/sim/state", [this](const httplib::Request&, httplib::Response& res) {
        QJsonArray contacts;
        for (const auto& p : m_store.contacts())
            contacts.append(memberJson(p));
        QJsonArray groups;
        for (const auto& g : m_store.groupsOf(m_store.user()))
            groups.append(groupJson(g));
        answerJson(res, 200,
            QJsonObject { { QStringLiteral("user"), m_store.user() },
                { QStringLiteral("contacts"), contacts }, { QStringLiteral("groups"), groups } });
    });
    s.Post("/sim/settings", [this](const httplib::Request& req, httplib::Response& res) {
        const auto body = jsonObjectBody(req);
        if (!body)
            return answerMessage(res, 400, QStringLiteral("settings must be a JSON object"));
        if (body->contains(u"legacyGroups"))
            m_legacyGroups = body->value(u"legacyGroups").toBool();
        res.status = 200;
    });
}

void PhoneSimServer::handleOperation(
    const httplib::Request& req, httplib::Response& res, const httplib::ContentReader& reader, bool encrypt)
{
    struct Part
    {
        QString name;
        QString filename;
        QString contentType;
        qint64 size = 0;
        QByteArray value; // non-file parts
        QString path; // file parts, on disk
        std::unique_ptr<QFile> file;
    };

    const QString work
        = m_options.dataDir + QStringLiteral("/tmp/") + QUuid::createUuid().toString(QUuid::WithoutBraces);
    QDir().mkpath(work);
    auto cleanup = [work] { QDir(work).removeRecursively(); };

    if (!req.is_multipart_form_data()) {
        logRequest(req, {}, false);
        cleanup();
        return answerMessage(res, 400, QStringLiteral("expected multipart/form-data"));
    }

    std::vector<std::unique_ptr<Part>> parts;
    bool ioFailed = false;
    reader(
        [&](const httplib::MultipartFormData& header) {
            auto part = std::make_unique<Part>();
            part->name = text(header.name);
            part->filename = text(header.filename);
            part->contentType = text(header.content_type);
            if (!header.filename.empty()) {
                part->path = work + QStringLiteral("/in-%1").arg(parts.size());
                part->file = std::make_unique<QFile>(part->path);
                ioFailed |= !part->file->open(QIODevice::WriteOnly);
            }
            parts.push_back(std::move(part));
            return !ioFailed;
        },
        [&](const char* data, size_t length) {
            if (parts.empty())
                return true;
            Part& part = *parts.back();
            part.size += qint64(length);
            if (part.file)
                ioFailed |= part.file->write(data, qint64(length)) != qint64(length);
            else if (part.value.size() < 1024 * 1024)
                part.value.append(data, qsizetype(length));
            return !ioFailed;
        });

    QJsonArray logged;
    for (const auto& part : parts) {
        if (part->file)
            part->file->close();
        QJsonObject o { { QStringLiteral("name"), part->name },
            { QStringLiteral("contentType"), part->contentType },
            { QStringLiteral("size"), double(part->size) } };
        if (part->file)
            o.insert(QStringLiteral("filename"), part->filename);
        else
            o.insert(QStringLiteral("value"), QString::fromUtf8(part->value));
        logged.append(o);
    }
    logRequest(req, logged, false);
    if (ioFailed) {
        cleanup();
        return answerMessage(res, 500, QStringLiteral("the phone could not store the upload"));
    }

    // An archive fault that replaces the reply whole answers before any work on the files, so
    // it serves whatever files were sent.
    const auto fault = takeFault(req.method, req.path, true);
    const QString kind = fault ? fault->archive : QString();
    if (kind == u"file" || kind == u"corrupt" || kind == u"empty") {
        cleanup();
        QFile given(fault->archiveFile);
        res.status = 200;
        if (kind == u"file")
            res.set_content(given.open(QIODevice::ReadOnly) ? given.readAll().toStdString() : std::string(),
                "application/zip");
        else
            res.set_content(
                kind == u"empty" ? std::string() : std::string("PK\x03\x04 this is not a zip archive"),
                "application/zip");
        return;
    }

    QList<ZipWriter::Entry> entries;
    if (encrypt) {
        QStringList emails { m_store.user() };
        for (const auto& part : parts) {
            if (!part->file && part->name == u"emails") {
                for (const QString& e : QString::fromUtf8(part->value).split(u';', Qt::SkipEmptyParts)) {
                    if (!e.trimmed().isEmpty() && !emails.contains(e.trimmed(), Qt::CaseInsensitive))
                        emails.append(e.trimmed());
                }
            }
        }
        QList<VxCrypto::Recipient> recipients;
        for (const QString& e : emails)
            recipients.append({ e, m_store.keysOf(e).publicKey });
        int index = 0;
        for (const auto& part : parts) {
            if (!part->file)
                continue;
            const QString out = work + QStringLiteral("/out-%1.vx").arg(index++);
            if (!VxCrypto::encryptFile(part->path, out, recipients)) {
                cleanup();
                return answerMessage(res, 500, QStringLiteral("encryption failed"));
            }
            QFile::remove(part->path);
            entries.append({ part->filename + QStringLiteral(".vx"), out });
        }
    } else {
        const VxCrypto::KeyPair keys = m_store.keysOf(m_store.user());
        int index = 0;
        for (const auto& part : parts) {
            if (!part->file)
                continue;
            const QString out = work + QStringLiteral("/out-%1").arg(index++);
            if (VxCrypto::decryptFile(part->path, out, m_store.user(), keys) != VxCrypto::DecryptResult::Ok) {
                cleanup();
                return answerMessage(
                    res, 400, QStringLiteral("%1 is not readable by %2").arg(part->filename, m_store.user()));
            }
            QFile::remove(part->path);
            entries.append({ part->name, out });
        }
    }

    bool compress = false;
    qint64 cutAt = -1; // the reply's bytes stop here, short of its announced length
    qint64 flipAt = -1; // this byte of the reply is damaged
    if (kind == u"escape")
        entries = { { QStringLiteral("../escape.txt"), {}, QByteArrayLiteral("escaped\n") } };
    else if (kind == u"absolute")
        entries = { { QStringLiteral("/tmp/varnex-absolute.txt"), {}, QByteArrayLiteral("absolute\n") } };
    else if (kind == u"symlink")
        entries = { { QStringLiteral("link.vx"), {}, {}, 0, QStringLiteral("/etc/passwd") } };
    // The next three keep the real results and add one entry with a name no desktop can
    // take, after them: all or nothing is what they test.
    else if (kind == u"longName")
        entries.append({ QString(303, u'n') + u".txt.vx", {}, QByteArrayLiteral("long\n") });
    else if (kind == u"controlChar")
        entries.append({ QStringLiteral("bell\x07.txt.vx"), {}, QByteArrayLiteral("bell\n") });
    else if (kind == u"leadingDot")
        entries.append({ QStringLiteral(".hidden.vx"), {}, QByteArrayLiteral("hidden\n") });
    else if (kind == u"subfolder") // harmless: a folder and a file in it, to be skipped
        entries += { { QStringLiteral("extra/"), {}, {} },
            { QStringLiteral("extra/inner.txt.vx"), {}, QByteArrayLiteral("inner\n") } };
    else if (kind == u"unmatched")
        entries.append({ QStringLiteral("not-uploaded.bin"), {}, QByteArrayLiteral("surprise\n") });
    else if (kind == u"truncated" || kind == u"corruptData") {
        // A real reply with a large first entry, deflated so damage cannot pass unseen.
        QByteArray filler;
        for (int i = 0; filler.size() < 3 * 1024 * 1024; ++i)
            filler.append(QByteArray::number(qint64(i) * 2654435761LL % 1000003));
        entries.prepend({ QStringLiteral("first.bin.vx"), {}, filler });
        compress = true;
        (kind == u"truncated" ? cutAt : flipAt) = 200000;
    } else if (kind == u"bomb" && !entries.isEmpty()) {
        // The first result, as named, made of 100 MiB of zeros packed into about 100 KB.
        entries = { { entries.first().name, {}, {}, 100LL * 1024 * 1024 } };
        compress = true;
    }

    const QString zip = work + QStringLiteral("/reply.zip");
    if (!ZipWriter::write(zip, entries, compress)) {
        cleanup();
        return answerMessage(res, 500, QStringLiteral("could not pack the reply"));
    }
    auto file = std::make_shared<QFile>(zip);
    if (flipAt >= 0 && file->open(QIODevice::ReadWrite)) {
        file->seek(flipAt);
        const char c = file->read(1).at(0);
        file->seek(flipAt);
        file->write(QByteArray(1, char(c ^ 0x5a)));
        file->close();
    }
    if (!file->open(QIODevice::ReadOnly)) {
        cleanup();
        return answerMessage(res, 500, QStringLiteral("could not read the reply"));
    }
    res.status = 200;
    res.set_content_provider(
        size_t(file->size()), "application/zip",
        [file, cutAt](size_t offset, size_t length, httplib::DataSink& sink) {
            if (cutAt >= 0 && qint64(offset) >= cutAt)
                return false; // the connection drops mid-reply
            if (cutAt >= 0)
                length = qMin<size_t>(length, size_t(cutAt) - offset);
            QByteArray buffer(qsizetype(qMin<size_t>(length, 1024 * 1024)), Qt::Uninitialized);
            file->seek(qint64(offset));
            const qint64 n = file->read(buffer.data(), buffer.size());
            if (n <= 0)
                return false;
            sink.write(buffer.constData(), size_t(n));
            return true;
        },
        [file, cleanup](bool) {
            file->close();
            cleanup();
        });
}
