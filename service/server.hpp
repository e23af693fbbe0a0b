#ifndef VELDAN_SERVICE_SERVER_HPP
#define VELDAN_SERVICE_SERVER_HPP

#include "options.hpp"

#include <memory>

namespace veldan::service {

/** An HTTP server over a gallery. One in a process: it takes the process's signals. */
class Server {
public:
    /**
     * Opens everything that the options name; nobody is answered yet. Throws CommandError, also (Usage) when the
     * options would let in everybody without saying so.
     */
    explicit Server(Options options);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /** Answers until SIGTERM or SIGINT comes; requests that are being answered then are answered to their end. */
    void run();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace veldan::service

#endif
