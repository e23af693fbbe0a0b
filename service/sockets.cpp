#include "sockets.hpp"

#include "report/exit_codes.hpp"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <sys/socket.h>
#include <unistd.h>

namespace veldan::service {

namespace {

using kit::CommandError;
using kit::ExitCode;

constexpr int waitingClients = 512;

bool isLoopback(const sockaddr* address) {
    if (address->sa_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr) >> 24 == 127;
    return address->sa_family == AF_INET6 &&
           IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
}

std::string textOf(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::getsockname(socket, plain, &size) != 0 || ::getnameinfo(plain, size, host.data(), host.size(), port.data(),
                                                                  port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "?";
    const std::string name = host.data();
    return (address.ss_family == AF_INET6 ? "[" + name + "]" : name) + ":" + port.data();
}

} // namespace

Listening listenAt(const std::string& where) {
    const std::size_t colon = where.rfind(':');
    std::string host = where.substr(0, colon == std::string::npos ? 0 : colon);
    const std::string port = colon == std::string::npos ? "" : where.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    const bool isNumber =
        !port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (host.empty() || !isNumber || std::stoi(port) > 65535)
        throw CommandError(ExitCode::Usage, "--listen " + where + ": not ADDRESS:PORT, such as 127.0.0.1:8080");
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_PASSIVE;
    addrinfo* list = nullptr;
    if (const int error = ::getaddrinfo(host.c_str(), port.c_str(), &wanted, &list); error != 0)
        throw CommandError(ExitCode::Usage, "--listen " + where + ": " + ::gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(list, &::freeaddrinfo);

    Listening result;
    int failure = 0;
    for (const addrinfo* address = list; address != nullptr; address = address->ai_next) {
        if (port == "0" && !result.sockets.empty())
            break; // each would get another port
        auto socket = std::make_unique<kit::FileDescriptor>(
            ::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const int on = 1;
        ::setsockopt(socket->get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        if (address->ai_family == AF_INET6)
            ::setsockopt(socket->get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on));
        if (socket->get() < 0 || ::bind(socket->get(), address->ai_addr, address->ai_addrlen) != 0 ||
            ::listen(socket->get(), waitingClients) != 0) {
            failure = errno;
            continue;
        }
        result.loopback = result.loopback && isLoopback(address->ai_addr);
        result.sockets.push_back(std::move(socket));
    }
    if (result.sockets.empty())
        throw CommandError(ExitCode::NotWritten, "--listen " + where + ": " + kit::reasonOf(failure));
    result.address = textOf(result.sockets.front()->get());
    return result;
}

std::shared_ptr<SSL_CTX> tlsContext(const std::string& certificate, const std::string& key) {
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
    const auto failed = [](const std::string& what) {
        std::array<char, 256> reason{};
        ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
        ERR_clear_error();
        return CommandError(ExitCode::Unreadable, what + ": cannot be used for TLS: " + reason.data());
    };
    if (context == nullptr)
        throw failed("OpenSSL");
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(),
                        SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str()) != 1)
        throw failed(certificate);
    if (SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(context.get()) != 1)
        throw failed(key);
    return context;
}

} // namespace veldan::service
