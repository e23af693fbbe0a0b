#ifndef VELDAN_KIT_SYSTEM_STOP_SIGNAL_HPP
#define VELDAN_KIT_SYSTEM_STOP_SIGNAL_HPP

namespace veldan::kit {

/** From now on the first Ctrl-C (or SIGTERM) only makes stopRequested() true; a second one ends the process. */
void catchStopSignals();

bool stopRequested();

} // namespace veldan::kit

#endif
