#ifndef VIRTUAL_UNIT_CALLS_APPLICATIONMEMORY_H
#define VIRTUAL_UNIT_CALLS_APPLICATIONMEMORY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

/// Reading and writing the memory of a process whose system call waits for an answer.
namespace VirtualUnit::ApplicationMemory
{

/**
 * Reads a zero-terminated path.
 * @return 0; EFAULT when it does not lie in the process' memory; ENAMETOOLONG when it is longer than the
 *         kernel takes; EPERM when the process does not let itself be read; ESRCH when it is gone
 */
int ReadPath(pid_t thread, std::uint64_t address, std::string& path);

int Read(pid_t thread, std::uint64_t address, void* data, std::size_t size);        ///< @return 0 or an errno
int Write(pid_t thread, std::uint64_t address, const void* data, std::size_t size); ///< @return 0 or an errno

}

#endif
