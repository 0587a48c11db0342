#ifndef VIRTUAL_UNIT_TIME_VIRTUALTIME_H
#define VIRTUAL_UNIT_TIME_VIRTUALTIME_H

#include <stdexcept>
#include <sys/types.h>

namespace VirtualTime
{

/// The file through which processes share their time, in the environment of each of them.
constexpr const char* VARIABLE = "VIRTUAL_UNIT_TIME";

/// Functions of that library: bool() tells whether time is virtual, bool(pid_t) whether a process lives in
/// it, void(pid_t) takes notice of a thread that is about to execute a program.
constexpr const char* TELLS = "VirtualUnitTimeIsVirtual";
constexpr const char* HAS = "VirtualUnitTimeHas";
constexpr const char* EXECUTES = "VirtualUnitTimeExecutes";

/// There is no virtual time to be had; what() says why.
class NotPossible : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

void Require(); ///< @throws NotPossible when this machine or installation lacks what is needed

/**
 * Has this process, and all dynamically linked programs that it starts, live in virtual time: clocks stand
 * still while any of their threads runs, and jump to the next deadline when all of them wait.
 *
 * It executes the present program anew, with the library of virtual time preloaded; call it before anything
 * has happened. Returns when that is so already. The library is preloaded by a path of this process, so that
 * it does not matter what its own path looks like.
 *
 * @param arguments of main() @throws NotPossible
 */
void Enter(char** arguments);

/// False when time is virtual, and the program of a process (which may have ended by now, but has not been
/// waited for long ago) knows nothing of it.
bool LivesInIt(pid_t process);

/// A thread is about to execute a program, of which nothing is known yet.
void Executes(pid_t thread);

}

#endif
