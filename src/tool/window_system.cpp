#include "tool/window_system.hpp"

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <memory>
#include <string>

namespace veldan {
namespace {

// The client libraries of both window systems come with the toolkit that uses them. They are looked up at run time: a
// server without them needs them no more than it needs a display.
class ClientLibrary {
public:
    explicit ClientLibrary(const char* name) : handle_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {}

    template <typename Function>
    Function* find(const char* name) const {
        return handle_ ? reinterpret_cast<Function*>(dlsym(handle_.get(), name)) : nullptr;
    }

private:
    struct Close {
        void operator()(void* handle) const { dlclose(handle); }
    };
    std::unique_ptr<void, Close> handle_;
};

bool x11Reachable() {
    const ClientLibrary xcb("libxcb.so.1");
    auto* const connect = xcb.find<void*(const char*, int*)>("xcb_connect");
    auto* const hasError = xcb.find<int(void*)>("xcb_connection_has_error");
    auto* const disconnect = xcb.find<void(void*)>("xcb_disconnect");
    if (connect == nullptr || hasError == nullptr || disconnect == nullptr)
        return false;
    // Never null; a connection that failed is disconnected like any other.
    void* const connection = connect(nullptr, nullptr);
    const bool reached = hasError(connection) == 0;
    disconnect(connection);
    return reached;
}

bool waylandReachable() {
    const ClientLibrary wayland("libwayland-client.so.0");
    auto* const connect = wayland.find<void*(const char*)>("wl_display_connect");
    auto* const disconnect = wayland.find<void(void*)>("wl_display_disconnect");
    if (connect == nullptr || disconnect == nullptr)
        return false;
    void* const display = connect(nullptr);
    if (display == nullptr)
        return false;
    disconnect(display);
    return true;
}

bool tryWindowSystem() {
    const char* const chosen = std::getenv("QT_QPA_PLATFORM");
    const std::string platform = chosen == nullptr ? "" : chosen;
    // A Wayland session normally has an X server for programs like ours. Whether the toolkit can do without it depends
    // on a plugin that may be missing, so Wayland alone is only used when the environment asks for it.
    if (platform.empty() || platform.rfind("xcb", 0) == 0)
        return x11Reachable();
    if (platform.rfind("wayland", 0) == 0)
        return waylandReachable();
    // Framebuffers, offscreen and the like: no server that could be asked, and somebody chose it knowingly.
    return true;
}

} // namespace

bool windowSystemReachable() {
    // Once reached, the toolkit holds its own connection: no more asking. A failure may be over by the next call.
    static std::atomic<bool> reached{false};
    if (!reached && tryWindowSystem())
        reached = true;
    return reached;
}

} // namespace veldan
