#ifndef VELDAN_API_INSTANCE_HANDLE_HPP
#define VELDAN_API_INSTANCE_HANDLE_HPP

#include <veldan/instance.hpp>

namespace veldan {

inline VdFaceAPI* instanceOf(void* handle) {
    return static_cast<VdFaceAPI*>(handle);
}

} // namespace veldan

#endif
