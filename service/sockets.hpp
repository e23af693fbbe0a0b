#ifndef VELDAN_SERVICE_SOCKETS_HPP
#define VELDAN_SERVICE_SOCKETS_HPP

#include "system/file_bytes.hpp"

#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <vector>

namespace veldan::service {

/** Sockets that clients connect to. */
struct Listening {
    std::vector<std::unique_ptr<kit::FileDescriptor>> sockets;
    std::string address;  ///< of the first one, with the port that it has
    bool loopback = true; ///< whether only this machine can reach all of them
};

/** @param where  "ADDRESS:PORT"; of IPv6 "[ADDRESS]:PORT". Throws CommandError (Usage, NotWritten). */
Listening listenAt(const std::string& where);

/** TLS with a certificate (and those that vouch for it) and its key, both PEM. Throws CommandError. */
std::shared_ptr<SSL_CTX> tlsContext(const std::string& certificate, const std::string& key);

} // namespace veldan::service

#endif
