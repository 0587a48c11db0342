#ifndef VIRTUAL_UNIT_TIME_MAPPING_H
#define VIRTUAL_UNIT_TIME_MAPPING_H

#include <array>
#include <cstdint>
#include <sys/types.h>

namespace VirtualTime
{

/// A line of /proc/PID/maps, cut where it is too long.
using MappingText = std::array<char, 512>;

/// What a process has mapped at an address. @return false: nothing. Nothing is allocated.
bool FindMapping(pid_t process, std::uintptr_t address, MappingText& mapping);

/// Whether other processes may have the memory at an address of this process, too. What it was at the first
/// time is remembered.
bool IsSharedMemory(const void* address);

}

#endif
