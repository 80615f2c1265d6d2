#pragma once

namespace Tavrinox {

// tasklist gets five seconds to answer.
inline constexpr int kTasklistTimeoutMs = 5000;

// Asks "tasklist" from the search path whether a Tavrinox.exe image is running. A tasklist that
// cannot start or outlasts timeoutMs counts as "running", so a doubtful answer never lets an update
// replace the bundles under a running application.
bool isTavrinoxListedByTasklist(int timeoutMs);

// Looks through /proc for a process whose executable is named exactly "Tavrinox", other than this one.
bool isTavrinoxProcessRunning();

// Whether the portable application is running on this computer, from wherever it was started.
bool isTavrinoxRunning();

} // namespace Tavrinox
