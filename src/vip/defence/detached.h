// Processes a run leaves behind on purpose (the announcer, the listening
// half of the check after a removal): out of the run's session, with the
// standard streams on /dev/null and nothing else of the caller's open but
// what they name, so that the run ends at once, nobody waits on their
// output, and they hold neither the caller's pipes nor its locks.
//
// Main thread only, while no worker thread runs (a forked copy of a
// process with threads may find a lock held forever).
#pragma once

#include <initializer_list>

namespace vyr {

// Puts the standard streams on /dev/null and closes every other descriptor
// but those in `keep` (negative entries are ignored).
void DetachDescriptors(std::initializer_list<int> keep);

// Forks a process in a session of its own (fork, setsid, fork again; the
// middle process ends at once and is reaped here). 0 in the new process,
// 1 in the caller once the new process exists, -1 when it could not be
// started.
int ForkDetached();

}  // namespace vyr
