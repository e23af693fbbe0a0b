#include "report/messages.hpp"

#include "report/printable.hpp"

#include <iostream>

namespace veldan::kit {

void tellUser(const std::string& message) {
    std::cout.flush();
    std::cerr << "veldan: " << printable(message) << '\n';
}

} // namespace veldan::kit
