#include "connection.hpp"

#include "request_head.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace veldan::service {

namespace {

constexpr std::chrono::milliseconds stopPeriod{200};
constexpr std::chrono::seconds lingering{2};
constexpr std::size_t mostLingering = 64U << 20;

} // namespace

Connection::Connection(int fd, const std::shared_ptr<SSL_CTX>& tls) : fd_(fd), ssl_(nullptr, &SSL_free) {
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (::getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
        if (address.ss_family == AF_INET) {
            const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
            ::inet_ntop(AF_INET, &v4.sin_addr, text.data(), text.size());
            port_ = ntohs(v4.sin_port);
        } else if (address.ss_family == AF_INET6) {
            const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
            ::inet_ntop(AF_INET6, &v6.sin6_addr, text.data(), text.size());
            port_ = ntohs(v6.sin6_port);
        }
    }
    remote_ = text.data();
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (tls) {
        ssl_.reset(SSL_new(tls.get()));
        if (ssl_ != nullptr)
            SSL_set_fd(ssl_.get(), fd_);
    }
}

Connection::~Connection() {
    ::close(fd_);
}

bool Connection::wait(short events) {
    pollfd socket{fd_, events, 0};
    while (true) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
        if (left <= 0)
            break;
        const int ready = ::poll(&socket, 1, static_cast<int>(std::min<long long>(left, 60000)));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
    timedOut_ = true;
    return false;
}

bool Connection::waitForTls(int result) {
    const int error = SSL_get_error(ssl_.get(), result);
    ERR_clear_error();
    if (error == SSL_ERROR_WANT_READ)
        return wait(POLLIN);
    return error == SSL_ERROR_WANT_WRITE && wait(POLLOUT);
}

bool Connection::greet() {
    if (ssl_ == nullptr)
        return true;
    while (true) {
        const int result = SSL_accept(ssl_.get());
        if (result == 1)
            return true;
        if (!waitForTls(result))
            return false;
    }
}

ssize_t Connection::receive(char* to, std::size_t size) {
    while (true) {
        if (ssl_ != nullptr) {
            const int result = SSL_read(ssl_.get(), to, static_cast<int>(std::min<std::size_t>(size, 1U << 20)));
            if (result > 0)
                return result;
            if (!waitForTls(result))
                return 0;
            continue;
        }
        const ssize_t received = ::recv(fd_, to, size, MSG_DONTWAIT);
        if (received >= 0)
            return received;
        if (errno == EINTR)
            continue;
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || !wait(POLLIN))
            return -1;
    }
}

ssize_t Connection::send(const char* from, std::size_t size) {
    while (true) {
        if (ssl_ != nullptr) {
            const int result = SSL_write(ssl_.get(), from, static_cast<int>(std::min<std::size_t>(size, 1U << 20)));
            if (result > 0)
                return result;
            if (!waitForTls(result))
                return -1;
            continue;
        }
        const ssize_t sent = ::send(fd_, from, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            return sent;
        if (errno == EINTR)
            continue;
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || !wait(POLLOUT))
            return -1;
    }
}

bool Connection::waitForRequest(std::chrono::milliseconds patience, const std::atomic<bool>& stopping) {
    if (!ahead_.empty() || (ssl_ != nullptr && SSL_pending(ssl_.get()) > 0))
        return true;
    const Clock::time_point end = Clock::now() + patience;
    while (!stopping && Clock::now() < end) {
        pollfd socket{fd_, POLLIN, 0};
        if (::poll(&socket, 1, static_cast<int>(std::min(patience, stopPeriod).count())) > 0)
            return true;
    }
    return false;
}

Connection::Head Connection::readHead(std::string& head) {
    std::array<char, 4096> bytes{};
    while (true) {
        if (const std::size_t end = ahead_.find("\r\n\r\n"); end != std::string::npos && end + 4 <= mostHeadBytes) {
            head = ahead_.substr(0, end + 4);
            ahead_.erase(0, end + 4);
            return Head::Complete;
        }
        if (ahead_.size() >= mostHeadBytes)
            return Head::TooLong;
        const ssize_t received = receive(bytes.data(), bytes.size());
        if (received <= 0)
            return Head::Broken;
        ahead_.append(bytes.data(), static_cast<std::size_t>(received));
    }
}

void Connection::setRequest(std::string head, std::size_t bodyBytes) {
    head_ = std::move(head);
    headRead_ = 0;
    bodyLeft_ = bodyBytes;
    written_ = 0;
    timedOut_ = false;
}

ssize_t Connection::read(char* to, std::size_t size) {
    if (headRead_ < head_.size()) {
        const std::size_t part = head_.copy(to, size, headRead_);
        headRead_ += part;
        return static_cast<ssize_t>(part);
    }
    size = std::min(size, bodyLeft_);
    if (size == 0)
        return 0;
    std::size_t part = std::min(size, ahead_.size());
    if (part > 0) {
        std::copy_n(ahead_.begin(), part, to);
        ahead_.erase(0, part);
    } else {
        const ssize_t received = receive(to, size);
        if (received <= 0)
            return received;
        part = static_cast<std::size_t>(received);
    }
    bodyLeft_ -= part;
    return static_cast<ssize_t>(part);
}

ssize_t Connection::write(const char* from, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t sent = send(from + done, size - done);
        if (sent <= 0)
            return -1;
        done += static_cast<std::size_t>(sent);
    }
    written_ += done;
    return static_cast<ssize_t>(done);
}

void Connection::finish() {
    if (ssl_ != nullptr)
        SSL_shutdown(ssl_.get());
    ::shutdown(fd_, SHUT_WR);
    // Closing with bytes unread would tell the other side to drop what it has not read of the answer.
    deadline_ = Clock::now() + lingering;
    std::array<char, 16384> bytes{};
    for (std::size_t dropped = 0; dropped < mostLingering && wait(POLLIN);) {
        const ssize_t received = ::recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (received <= 0)
            return;
        dropped += static_cast<std::size_t>(received);
    }
}

void Connection::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip = remote_;
    port = port_;
}

void Connection::get_local_ip_and_port(std::string& ip, int& port) const {
    ip.clear();
    port = 0;
}

} // namespace veldan::service
