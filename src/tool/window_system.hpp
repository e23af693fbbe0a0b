#ifndef VELDAN_TOOL_WINDOW_SYSTEM_HPP
#define VELDAN_TOOL_WINDOW_SYSTEM_HPP

namespace veldan {

// Whether a window can be opened. The toolkits behind OpenCV's windows (Qt in Debian, GTK elsewhere) end the process
// when they find no display, and cannot be asked before; so the display is tried here first.
bool windowSystemReachable();

} // namespace veldan

#endif
