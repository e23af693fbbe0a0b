#ifndef VELDAN_CLI_STOP_SIGNAL_HPP
#define VELDAN_CLI_STOP_SIGNAL_HPP

namespace veldan::cli {

/** From now on the first Ctrl-C (or SIGTERM) only makes stopRequested() true; a second one ends the process. */
void catchStopSignals();

bool stopRequested();

} // namespace veldan::cli

#endif
