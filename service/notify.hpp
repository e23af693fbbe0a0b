#ifndef VELDAN_SERVICE_NOTIFY_HPP
#define VELDAN_SERVICE_NOTIFY_HPP

#include <string>

namespace veldan::service {

/** Tells systemd about this process, such as "READY=1", when systemd has started it and wants to know. */
void notifySystemd(const std::string& state);

} // namespace veldan::service

#endif
