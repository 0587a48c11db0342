#ifndef BASE_TAVSYSTEM_SYSUTIL_EXECSYSTEMCMDTHROUGHPIPE_H
#define BASE_TAVSYSTEM_SYSUTIL_EXECSYSTEMCMDTHROUGHPIPE_H

#include "base/Export.h"

#include <string>

namespace Tavsystem::SysUtil
{

/**
 * Runs a command line with "/bin/sh -c" and waits for it.
 *
 * The command reads nothing ("/dev/null"), shares the standard error output of this process, inherits no
 * other file descriptor, and runs with no signal blocked and SIGPIPE at its default. There is no time
 * limit: the call returns when the command, and whatever it left running with the same output, has closed
 * its output, and the shell has ended (docs/limits.md).
 *
 * @param command the command line; it ends at its first zero byte
 * @return what the command wrote to its standard output, whatever its exit status; empty when the shell
 *         cannot be run or its output cannot be read
 *
 * Threads: any, several at a time.
 *
 * @throws std::bad_alloc when the output does not fit into memory; the command's output is then closed and
 *         its end awaited
 */
TAVSYSTEM_API std::string ExecSystemCmdThroughPipe(std::string command);

}

#endif
