#include "notify.hpp"

#include "system/file_bytes.hpp"

#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace veldan::service {

void notifySystemd(const std::string& state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string_view name = path == nullptr ? "" : path;
    if (name.empty() || name.size() >= sizeof(address.sun_path))
        return;
    name.copy(address.sun_path, name.size());
    if (name.front() == '@')
        address.sun_path[0] = '\0'; // an abstract name
    const kit::FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.get() >= 0)
        ::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                 static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size()));
}

} // namespace veldan::service
