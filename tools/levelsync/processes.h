// processes.h - what can be told of a running process.

#ifndef LEVELSYNC_PROCESSES_H
#define LEVELSYNC_PROCESSES_H

#include <string>

#include "tool.h"

namespace levelsync
{
/// The name that a process gave its log, empty where it gave none yet. Where it cannot be looked into, the name of its
/// program, with a warning. Throws Failure where no such process runs.
std::string application_of(const Tool& tool, unsigned long process);
} // namespace levelsync

#endif // LEVELSYNC_PROCESSES_H
