#ifndef VELDAN_SERVICE_OPTIONS_HPP
#define VELDAN_SERVICE_OPTIONS_HPP

#include <cstddef>
#include <string>
#include <vector>

namespace veldan::service {

/** What a server is started with. */
struct Options {
    std::string gallery;
    std::string listen = "127.0.0.1:8080"; ///< address and port; 0: any free port
    std::string certificate;               ///< PEM files; both or none
    std::string key;
    std::string tokens;    ///< file of who may do what; empty: whoever reaches the server may do everything
    std::string audit;     ///< file that gets a line for every change; empty: none
    bool insecure = false; ///< other addresses than loopback without TLS and tokens
    std::vector<std::string> corsOrigins;

    std::size_t workers = 1;          ///< instances of the library
    std::size_t queue = 64;           ///< most requests that wait for one
    std::size_t connections = 256;    ///< most clients at a time
    std::size_t mostBody = 16U << 20; ///< bytes
    std::size_t mostMegapixels = 40;
    int timeout = 30; ///< seconds that a request may take to come, and to wait for a worker
};

} // namespace veldan::service

#endif
