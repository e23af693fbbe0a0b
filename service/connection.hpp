#ifndef VELDAN_SERVICE_CONNECTION_HPP
#define VELDAN_SERVICE_CONNECTION_HPP

#include <atomic>
#include <chrono>
#include <cstddef>
#include <httplib.h>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <string_view>

namespace veldan::service {

/**
 * A client's connection, with TLS or without. Nothing waits beyond the deadline, however slowly the other side sends or
 * reads. One thread at a time.
 */
class Connection : public httplib::Stream {
public:
    using Clock = std::chrono::steady_clock;

    /**
     * @param fd        a connected socket, which the object closes
     * @param tls       null: none
     */
    Connection(int fd, const std::shared_ptr<SSL_CTX>& tls);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void setDeadline(Clock::time_point deadline) { deadline_ = deadline; }
    bool timedOut() const { return timedOut_; }

    /** The start of a TLS connection. @return whether it succeeded, in time */
    bool greet();

    /**
     * Waits for the first byte of a request.
     * @param stopping  ends the wait early
     * @return false: none came
     */
    bool waitForRequest(std::chrono::milliseconds patience, const std::atomic<bool>& stopping);

    enum class Head { Complete, TooLong, Broken };

    /** Reads up to the empty line that ends a head. @param head  receives it; what follows stays to be read */
    Head readHead(std::string& head);

    /** What read() gives next, before the bytes that come from the other side; and how many of these at most. */
    void setRequest(std::string head, std::size_t bodyBytes);
    /** Bytes of the body that nobody has read. */
    std::size_t unread() const { return bodyLeft_; }

    /** Ends the connection so that the other side can read the last answer, even when it is still sending. */
    void finish();

    std::size_t bytesWritten() const { return written_; }
    const std::string& remote() const { return remote_; }

    /** @name What cpp-httplib calls */
    ///@{
    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* to, std::size_t size) override;
    ssize_t write(const char* from, std::size_t size) override;
    using httplib::Stream::write;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    /** Not the real one: cpp-httplib refuses large numbers, which matter to select() alone. */
    socket_t socket() const override { return 0; }
    ///@}

private:
    /** @return whether the socket is ready before the deadline */
    bool wait(short events);
    ssize_t receive(char* to, std::size_t size);
    ssize_t send(const char* from, std::size_t size);
    /** Waits for what TLS asks for. @return false: it is over */
    bool waitForTls(int result);

    int fd_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
    std::string remote_;
    int port_ = 0;
    Clock::time_point deadline_;
    bool timedOut_ = false;
    std::string ahead_; // came from the other side and was not asked for yet
    std::string head_;
    std::size_t headRead_ = 0;
    std::size_t bodyLeft_ = 0;
    std::size_t written_ = 0;
};

} // namespace veldan::service

#endif
