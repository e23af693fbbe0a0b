#include "server.hpp"

#include "connection.hpp"
#include "gallery/records.hpp"
#include "notify.hpp"
#include "page.hpp"
#include "problem.hpp"
#include "report/messages.hpp"
#include "request_body.hpp"
#include "request_head.hpp"
#include "services.hpp"
#include "sockets.hpp"

#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <fmt/format.h>
#include <iostream>
#include <list>
#include <mutex>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace veldan::service {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds idlePatience{10};
constexpr int mostRequestsOfConnection = 1000;
constexpr std::size_t mostTurnedAway = 32; // clients beyond the most that still hear why
constexpr std::size_t mostSleepers = 16;   // answers held back after wrong tokens

constexpr const char* contentSecurity =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";

constexpr std::array<const char*, 7> methods = {"GET", "HEAD", "POST", "PATCH", "DELETE", "OPTIONS", "PUT"};

/** A request on its way, and what is known of it so far. */
struct Exchange {
    Connection* connection = nullptr;
    RequestHead head;
    const Route* route = nullptr;
    std::vector<std::string> segments;
    std::string query;
    Caller caller;
    int status = 0;
    std::string failure; ///< for the log alone
};

// cpp-httplib hands its handlers nothing but the request.
thread_local Exchange* current = nullptr;

void put(httplib::Response& response, const Answer& answer) {
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers)
        response.set_header(name, value);
    response.set_content(answer.body, answer.type);
}

void put(httplib::Response& response, const Problem& problem) {
    response.status = problem.status();
    response.set_content(kit::written(problem.json(), -1) + "\n", problemType);
    if (problem.status() == 401)
        response.set_header("WWW-Authenticate", "Bearer");
    if (problem.status() == 503 || problem.status() == 429)
        response.set_header("Retry-After", "1");
}

/** The host without its port. */
std::string hostOnly(const std::string& host) {
    if (!host.empty() && host.front() == '[')
        return host.substr(0, host.find(']') + 1);
    return host.substr(0, host.find(':'));
}

/** What pages of other places cannot be called: their names are resolved by others, addresses are not. */
bool isAddressOrLocal(const std::string& host) {
    const std::string name = hostOnly(host);
    return name == "localhost" || name == "-" || (!name.empty() && name.front() == '[') ||
           (!name.empty() && name.find_first_not_of("0123456789.") == std::string::npos);
}

} // namespace

class Server::Impl {
public:
    explicit Impl(Options options)
        : options_(checked(std::move(options))), signals_(blockedSignals()), listening_(listenAt(options_.listen)),
          services_(options_) {
        if (!options_.certificate.empty())
            tls_ = tlsContext(options_.certificate, options_.key);
        requireProtection();
        setUpEngine();
    }

    void run();

private:
    class Engine : public httplib::Server {
    public:
        bool answer(Connection& connection, bool close, bool& closed) {
            return process_request(connection, close, closed, nullptr);
        }
    };

    static Options checked(Options options) {
        if (options.certificate.empty() != options.key.empty())
            throw kit::CommandError(kit::ExitCode::Usage, "--tls-cert and --tls-key go together");
        return options;
    }

    static int blockedSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP})
            sigaddset(&signals, signal);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr); // inherited by all threads
        std::signal(SIGPIPE, SIG_IGN);
        return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    }

    bool encrypted() const { return !options_.certificate.empty(); }

    void requireProtection() const {
        const bool protectedWell = encrypted() && services_.tokens.wanted();
        if (!listening_.loopback && !protectedWell && !options_.insecure)
            throw kit::CommandError(kit::ExitCode::Usage,
                                    "--listen " + options_.listen +
                                        ": other machines could reach this address, which needs --tls-cert, --tls-key "
                                        "and --tokens; --insecure goes without");
    }

    void setUpEngine();
    void accept(int listener);
    void reap(bool all);
    void serve(Connection& connection);
    void turnAway(Connection& connection);
    void log(const Exchange& exchange, const Connection& connection, double seconds);

    /** @name Steps of a request; each throws Problem */
    ///@{
    void begin(Exchange& exchange, httplib::Response& response);
    bool answeredByPage(const Exchange& exchange, const std::string& path, httplib::Response& response) const;
    void requireOrigin(const Exchange& exchange, httplib::Response& response) const;
    void requireCaller(Exchange& exchange);
    void requireBody(const Exchange& exchange) const;
    ///@}

    Call callOf(const Exchange& exchange) {
        Call call{services_, exchange.segments, {}, exchange.caller.name, exchange.connection->remote(), {}, {}};
        takeQuery(*exchange.route, exchange.query, call);
        return call;
    }

    /** Does something that may fail, which is answered then. */
    template <class Work>
    void guarded(Exchange& exchange, httplib::Response& response, const Work& work);

    /** Answers what cannot be handed to cpp-httplib. */
    void refuse(Exchange& exchange, const Problem& problem);

    struct Client {
        std::thread thread;
        std::atomic<bool> done{false};
    };

    const Options options_;
    kit::FileDescriptor signals_;
    Listening listening_;
    Services services_;
    std::shared_ptr<SSL_CTX> tls_; ///< of the thread that runs the server
    Engine engine_;
    std::list<Client> clients_;
    std::atomic<std::size_t> bodyBytes_{0};
    std::atomic<std::size_t> sleepers_{0};
    std::atomic<std::uint64_t> number_{0};
    std::mutex logMutex_;
};

template <class Work>
void Server::Impl::guarded(Exchange& exchange, httplib::Response& response, const Work& work) {
    try {
        work();
    } catch (const Problem& problem) {
        put(response, problem);
    } catch (const kit::CommandError& error) {
        const Problem problem(error);
        if (problem.status() < 500) {
            put(response, problem);
        } else {
            // Its words name files of this machine.
            exchange.failure = error.what();
            put(response, Problem(problem.status(), "the server cannot do this now")
                              .with("code", kit::exitCodeName(error.code())));
        }
    } catch (const std::exception& error) {
        exchange.failure = error.what();
        put(response, Problem(500, "unexpected failure"));
    }
    exchange.connection->setDeadline(Clock::now() + std::chrono::seconds(options_.timeout));
}

void Server::Impl::setUpEngine() {
    engine_.set_payload_max_length(options_.mostBody);
    engine_.set_keep_alive_max_count(mostRequestsOfConnection); // what it tells clients
    engine_.set_keep_alive_timeout(idlePatience.count());
    engine_.set_pre_routing_handler([this](const httplib::Request&, httplib::Response& response) {
        bool done = true;
        guarded(*current, response, [&] {
            begin(*current, response);
            done = current->route == nullptr || current->route->body == Body::None;
            if (current->route != nullptr && done) {
                Call call = callOf(*current);
                put(response, current->route->handler(call));
            }
        });
        if (response.status >= 400)
            done = true;
        return done ? httplib::Server::HandlerResponse::Handled : httplib::Server::HandlerResponse::Unhandled;
    });
    const auto withBody = [this](const httplib::Request& request, httplib::Response& response) {
        guarded(*current, response, [&] {
            Call call = callOf(*current);
            if (request.is_multipart_form_data()) {
                std::vector<Part> parts;
                for (const auto& [name, file] : request.files)
                    parts.push_back({name, file.filename, file.content_type, &file.content});
                takeParts(current->route->body, parts, call);
            } else {
                takeWhole(current->route->body, request.body, call);
            }
            put(response, current->route->handler(call));
        });
    };
    engine_.Post("[^]*", withBody);
    engine_.Patch("[^]*", withBody);
    // What cpp-httplib refuses by itself.
    engine_.set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty())
            return;
        const bool late = current->connection->timedOut();
        const int status = late ? 408 : response.status;
        put(response, Problem(status, late            ? "the request did not come in time"
                                      : status == 413 ? "the body is too large"
                                                      : "the body cannot be understood"));
        response.set_header("Connection", "close");
    });
    engine_.set_logger(
        [](const httplib::Request&, const httplib::Response& response) { current->status = response.status; });
}

void Server::Impl::requireOrigin(const Exchange& exchange, httplib::Response& response) const {
    // Without tokens the address is all that protects: a page elsewhere must not call this server by a name of its own.
    if (listening_.loopback && !services_.tokens.wanted() && !isAddressOrLocal(exchange.head.host))
        throw Problem(421, "this server is not called \"" + exchange.head.host + "\"");
    const std::string& origin = exchange.head.origin;
    if (origin.empty())
        return;
    const bool own = origin == (encrypted() ? "https://" : "http://") + exchange.head.host;
    const bool allowed =
        std::find(options_.corsOrigins.begin(), options_.corsOrigins.end(), origin) != options_.corsOrigins.end();
    if (!own && !allowed)
        throw Problem(403, "pages of other places may not ask here");
    if (allowed) {
        response.set_header("Access-Control-Allow-Origin", origin);
        response.set_header("Vary", "Origin");
    }
}

void Server::Impl::requireCaller(Exchange& exchange) {
    if (!services_.tokens.wanted()) {
        exchange.caller.role = Role::Admin;
        return;
    }
    if (exchange.route->role == Role::Nobody)
        return;
    const std::string& authorization = exchange.head.authorization;
    const bool bearer = authorization.size() > 7 &&
                        (authorization.compare(0, 7, "Bearer ") == 0 || authorization.compare(0, 7, "bearer ") == 0);
    const Tokens::Verdict verdict =
        bearer ? services_.tokens.check(authorization.substr(7), exchange.caller) : Tokens::Verdict::Unknown;
    if (verdict != Tokens::Verdict::Known) {
        services_.metrics.countRefusedToken();
        if (bearer) {
            const std::chrono::milliseconds delay = services_.tokens.countFailure(exchange.connection->remote());
            if (sleepers_++ >= mostSleepers) {
                --sleepers_;
                throw Problem(429, "too many wrong tokens");
            }
            std::this_thread::sleep_for(delay);
            --sleepers_;
        }
        throw Problem(401, !bearer                               ? "a token is needed: Authorization: Bearer ..."
                           : verdict == Tokens::Verdict::Expired ? "the token has expired"
                                                                 : "the token is not known");
    }
    if (exchange.caller.role < exchange.route->role)
        throw Problem(403, std::string("the role ") + nameOf(exchange.route->role) + " is needed");
}

void Server::Impl::requireBody(const Exchange& exchange) const {
    const RequestHead& head = exchange.head;
    if (exchange.route->body == Body::None) {
        if (head.bodyBytes > 0)
            throw Problem(400, "no body is taken here");
    } else if (!head.hasBodyLength) {
        throw Problem(411, "a body is wanted, with its Content-Length");
    } else {
        requireType(exchange.route->body, head.contentType);
    }
}

bool Server::Impl::answeredByPage(const Exchange& exchange, const std::string& path,
                                  httplib::Response& response) const {
    const PageFile* file = pageFile(path);
    if (file == nullptr)
        return false;
    if (exchange.head.method != "GET" && exchange.head.method != "HEAD")
        throw Problem(405, "only GET");
    if (exchange.head.bodyBytes > 0)
        throw Problem(400, "no body is taken here");
    response.status = 200;
    response.set_header("Cache-Control", "no-cache");
    response.set_content(std::string(file->text()), file->type);
    return true;
}

void Server::Impl::begin(Exchange& exchange, httplib::Response& response) {
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_header("Referrer-Policy", "no-referrer");
    response.set_header("Content-Security-Policy", contentSecurity);
    response.set_header("Cross-Origin-Opener-Policy", "same-origin");
    response.set_header("Cross-Origin-Resource-Policy", "same-origin");
    response.set_header("Permissions-Policy", "camera=(self), microphone=(), geolocation=()");
    if (encrypted())
        response.set_header("Strict-Transport-Security", "max-age=31536000");

    const std::string& target = exchange.head.target;
    const std::size_t mark = std::min(target.find('?'), target.size());
    const std::string path = target.substr(0, mark);
    exchange.query = target.substr(std::min(mark + 1, target.size()));
    requireOrigin(exchange, response);
    if (answeredByPage(exchange, path, response))
        return;
    response.set_header("Cache-Control", "no-store");

    std::vector<std::string> segments;
    for (std::size_t at = 1; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::optional<std::string> segment = percentDecoded(path.substr(at, end - at), false);
        if (!segment)
            throw Problem(400, "the path is not encoded as it should be");
        segments.push_back(*segment);
        at = end + 1;
    }
    const std::vector<const Route*> found = routesAt(segments, exchange.segments);
    if (found.empty())
        throw Problem(404, "there is nothing at this address");
    std::string allowed = "OPTIONS";
    for (const Route* route : found) {
        allowed += std::string(", ") + route->method + (std::string(route->method) == "GET" ? ", HEAD" : "");
        if (exchange.head.method == route->method ||
            (exchange.head.method == "HEAD" && std::string(route->method) == "GET"))
            exchange.route = route;
    }
    if (exchange.head.method == "OPTIONS") {
        response.status = 204;
        response.set_header("Allow", allowed);
        response.set_header("Access-Control-Allow-Methods", allowed);
        response.set_header("Access-Control-Allow-Headers", "Authorization, Content-Type");
        response.set_header("Access-Control-Max-Age", "600");
        return;
    }
    if (exchange.route == nullptr) {
        response.set_header("Allow", allowed);
        throw Problem(405, exchange.head.method + " means nothing here");
    }
    requireCaller(exchange);
    requireBody(exchange);
    callOf(exchange); // a wrong query is refused before the body is read
}

void Server::Impl::refuse(Exchange& exchange, const Problem& problem) {
    exchange.status = problem.status();
    const std::string body = kit::written(problem.json(), -1) + "\n";
    const std::string text = fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\n"
                                         "Connection: close\r\n{}\r\n{}",
                                         problem.status(), phraseOf(problem.status()), problemType, body.size(),
                                         problem.status() == 503 ? "Retry-After: 1\r\n" : "", body);
    exchange.connection->setDeadline(Clock::now() + std::chrono::seconds(2));
    exchange.connection->write(text.data(), text.size());
}

void Server::Impl::serve(Connection& connection) {
    const auto timeout = std::chrono::seconds(options_.timeout);
    connection.setDeadline(Clock::now() + timeout);
    if (!connection.greet())
        return;
    for (int count = 1; connection.waitForRequest(count == 1 ? timeout : idlePatience, services_.stopping); ++count) {
        Exchange exchange;
        exchange.connection = &connection;
        connection.setDeadline(Clock::now() + timeout);
        std::string text;
        const Connection::Head result = connection.readHead(text);
        const Clock::time_point start = Clock::now();
        bool closed = true;
        std::size_t reserved = 0;
        try {
            if (result == Connection::Head::TooLong)
                throw Problem(431, "the head is longer than " + std::to_string(mostHeadBytes) + " bytes");
            if (result == Connection::Head::Broken && !connection.timedOut())
                return;
            if (result == Connection::Head::Broken)
                throw Problem(408, "the request did not come in time");
            exchange.head = readHead(text);
            if (std::find(methods.begin(), methods.end(), exchange.head.method) == methods.end())
                throw Problem(501, "the method is not known");
            if (exchange.head.bodyBytes > options_.mostBody)
                throw Problem(413, "the body is larger than " + std::to_string(options_.mostBody) + " bytes");
            reserved = static_cast<std::size_t>(exchange.head.bodyBytes);
            if (bodyBytes_.fetch_add(reserved) + reserved > std::max<std::size_t>(options_.mostBody * 2, 256U << 20))
                throw Problem(503, "too many large requests at a time");
            connection.setRequest(exchange.head.forwarded, reserved);
            current = &exchange;
            const bool last = services_.stopping || count >= mostRequestsOfConnection;
            closed = false;
            if (!engine_.answer(connection, last, closed) || connection.unread() > 0 || last)
                closed = true;
        } catch (const Problem& problem) {
            refuse(exchange, problem);
        }
        current = nullptr;
        bodyBytes_ -= reserved;
        log(exchange, connection, std::chrono::duration<double>(Clock::now() - start).count());
        if (closed)
            break;
    }
    connection.finish();
}

void Server::Impl::turnAway(Connection& connection) {
    Exchange exchange;
    exchange.connection = &connection;
    connection.setDeadline(Clock::now() + std::chrono::seconds(2));
    if (!connection.greet())
        return;
    refuse(exchange, Problem(503, "there are too many clients"));
    log(exchange, connection, 0);
    connection.finish();
}

void Server::Impl::log(const Exchange& exchange, const Connection& connection, double seconds) {
    const std::string route = exchange.route == nullptr ? "" : exchange.route->path;
    const bool known = std::find(methods.begin(), methods.end(), exchange.head.method) != methods.end();
    const std::string method = known ? exchange.head.method : "";
    services_.metrics.countRequest(method, route, exchange.status, seconds);
    Json line = {{"time", kit::dateNow()},
                 {"request", ++number_},
                 {"remote", connection.remote()},
                 {"method", method},
                 {"route", route}, // not the path, which names people
                 {"status", exchange.status},
                 {"milliseconds", std::round(seconds * 1e6) / 1e3},
                 {"received", exchange.head.bodyBytes},
                 {"sent", connection.bytesWritten()}};
    if (!exchange.caller.name.empty())
        line["caller"] = exchange.caller.name;
    if (!exchange.failure.empty())
        line["failure"] = exchange.failure;
    const std::string text = kit::written(line, -1) + "\n";
    const std::lock_guard<std::mutex> lock(logMutex_);
    std::cerr << text << std::flush;
}

void Server::Impl::accept(int listener) {
    const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return;
    reap(false);
    const bool tooMany = clients_.size() >= options_.connections;
    if (tooMany)
        services_.metrics.countTurnedAway();
    if (clients_.size() >= options_.connections + mostTurnedAway) {
        ::close(fd);
        return;
    }
    std::shared_ptr<SSL_CTX> tls = tls_;
    Client& client = clients_.emplace_back();
    try {
        client.thread = std::thread([this, &client, fd, tooMany, tls = std::move(tls)] {
            try {
                Connection connection(fd, tls);
                if (tooMany)
                    turnAway(connection);
                else
                    serve(connection);
            } catch (const std::exception& error) {
                kit::tellUser(std::string("a connection failed: ") + error.what());
            }
            client.done = true;
        });
    } catch (const std::system_error&) { // no thread to be had
        clients_.pop_back();
        ::close(fd);
    }
    services_.metrics.setConnections(clients_.size());
}

void Server::Impl::reap(bool all) {
    for (auto client = clients_.begin(); client != clients_.end();) {
        if (!all && !client->done) {
            ++client;
            continue;
        }
        client->thread.join();
        client = clients_.erase(client);
    }
    services_.metrics.setConnections(clients_.size());
}

void Server::Impl::run() {
    cv::setNumThreads(1); // the workers are the threads
    std::cout << "listening on " << (encrypted() ? "https://" : "http://") << listening_.address << std::endl;
    notifySystemd("READY=1");
    std::vector<pollfd> sources = {{signals_.get(), POLLIN, 0}};
    for (const auto& socket : listening_.sockets)
        sources.push_back({socket->get(), POLLIN, 0});
    while (!services_.stopping) {
        if (::poll(sources.data(), sources.size(), 1000) < 0 && errno != EINTR)
            break;
        reap(false);
        for (std::size_t i = 1; i < sources.size(); ++i)
            if ((sources[i].revents & POLLIN) != 0)
                accept(sources[i].fd);
        signalfd_siginfo signal{};
        if (::read(signals_.get(), &signal, sizeof(signal)) != sizeof(signal))
            continue;
        if (signal.ssi_signo != SIGHUP) {
            services_.stopping = true;
            continue;
        }
        notifySystemd("RELOADING=1");
        const auto attempt = [](const auto& work) {
            try {
                work();
            } catch (const kit::CommandError& error) {
                kit::tellUser(std::string("not reloaded: ") + error.what());
            }
        };
        attempt([&] { services_.tokens.reload(); });
        attempt([&] { services_.audit.reopen(); });
        attempt([&] { services_.gallery.reload(); });
        attempt([&] {
            if (encrypted())
                tls_ = tlsContext(options_.certificate, options_.key);
        });
        notifySystemd("READY=1");
    }
    notifySystemd("STOPPING=1");
    listening_.sockets.clear();
    // A second signal ends the process at once.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    reap(true);
}

Server::Server(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Server::~Server() = default;

void Server::run() {
    impl_->run();
}

} // namespace veldan::service
