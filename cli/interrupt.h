// Ctrl-C (SIGINT) and SIGTERM: the first one only raises a flag that the decode
// loops check between two reads, so that they stop, remove their temporary output
// and leave no file under the requested name; main then ends the process by the
// same signal, as a shell expects. A second signal ends the process at once.
#pragma once

namespace kxhost {

// Installs the handlers (once, at start).
void InstallInterruptHandlers();
// Whether a signal arrived.
bool Interrupted();
// If a signal arrived: runs the cleanup registered below, then re-raises the
// signal with its default action (does not return).
void ExitIfInterrupted();
// Registers `cleanup` (temporary files) for ExitIfInterrupted; one at most.
void AtInterruptExit(void (*cleanup)());

}  // namespace kxhost
