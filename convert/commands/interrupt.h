// SIGINT, SIGTERM and SIGHUP remove the partial outputs of the run before the tool dies of the
// signal, so that the shell sees 130, 143 or 129 and nothing half-written is left behind.
#pragma once

#include <string>

namespace zulconvert {

// Installs the handlers; called once at the start of the program.
void installInterruptCleanup();

// Registers a file to remove if the run is interrupted; returns its slot (-1 if none is free,
// which leaves the file unguarded, never unremovable).
int guardPartialFile(const std::string& path);
// Forgets the slot once the file is committed or removed.
void releasePartialFile(int slot);

}  // namespace zulconvert
