#ifndef VIRTUAL_UNIT_PRELOAD_ENVIRONMENT_H
#define VIRTUAL_UNIT_PRELOAD_ENVIRONMENT_H

#include <alloca.h>
#include <cstddef>
#include <sys/un.h>

/// What a program on the unit has to have in its environment.
namespace VirtualUnit::Preload
{

bool IsOnUnit(); ///< false: the library stands in for nothing

std::size_t SocketAddress(sockaddr_un& address); ///< of the supervisor @return its size

/// The room that an environment needs for which Complete() provides, in bytes.
std::size_t RoomFor(char* const environment[]);

/// A copy of an environment in which nothing is missing that leads to the unit: a program may execute others
/// with an environment of its own. @param room of the caller's, which lasts as long as the copy
char* const* Complete(char* const environment[], void* room);

/// Calls `execute` with the complete environment. Nothing is allocated: this may be behind a vfork().
template <class Execute>
int WithCompleteEnvironment(char* const environment[], Execute execute)
{
    if (!IsOnUnit() || environment == nullptr)
    {
        return execute(environment);
    }
    return execute(Complete(environment, alloca(RoomFor(environment))));
}

}

#endif
