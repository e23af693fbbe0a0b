#include "system/stop_signal.hpp"

#include <csignal>
#include <initializer_list>

namespace veldan::kit {

namespace {

volatile std::sig_atomic_t requested = 0;

} // namespace

void catchStopSignals() {
    struct sigaction action {};
    action.sa_handler = [](int) { requested = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    for (const int signal : {SIGINT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

bool stopRequested() {
    return requested != 0;
}

} // namespace veldan::kit
