#ifndef VIRTUAL_UNIT_TIME_VIRTUALTIME_H
#define VIRTUAL_UNIT_TIME_VIRTUALTIME_H

#include <stdexcept>

namespace VirtualTime
{

/// The file through which processes share their time, in the environment of each of them.
constexpr const char* VARIABLE = "VIRTUAL_UNIT_TIME";

/// Where the dynamic linker is told to load the library of virtual time, first of all.
constexpr const char* PRELOAD = "LD_PRELOAD";

/// The function of that library which tells whether time is virtual: bool().
constexpr const char* TELLS = "VirtualUnitTimeIsVirtual";

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

}

#endif
