// The functions of the C library that execute programs: these are to be on the unit, too, whatever
// environment they are given.

#include "virtual-unit/preload/Ask.h"
#include "virtual-unit/preload/Environment.h"
#include "virtual-unit/preload/Protocol.h"
#include "virtual-unit/preload/StandIns.h"

#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace VirtualUnit::Preload;

STAND_IN int execve(const char* path, char* const arguments[], char* const environment[]) noexcept
{
    return Either(Ask(SYS_execve, path), [&] {
        return WithCompleteEnvironment(environment, [&](char* const complete[]) {
            return REAL_CALL(execve)(path, arguments, complete);
        });
    });
}

STAND_IN int execveat(int directory, const char* path, char* const arguments[], char* const environment[],
                      int flags) noexcept
{
    return Either(Ask(SYS_execveat, directory, path), [&] {
        return WithCompleteEnvironment(environment, [&](char* const complete[]) {
            return REAL_CALL(execveat)(directory, path, arguments, complete, flags);
        });
    });
}

STAND_IN int fexecve(int fd, char* const arguments[], char* const environment[]) noexcept
{
    return WithCompleteEnvironment(
        environment, [&](char* const complete[]) { return REAL_CALL(fexecve)(fd, arguments, complete); });
}

STAND_IN int execv(const char* path, char* const arguments[]) noexcept
{
    return execve(path, arguments, environ);
}

namespace
{

using Candidate = std::array<char, PATH_MAX>;

/// The next place of PATH where a program may lie. @param directories moves on @return false: that was all
bool Next(const char*& directories, const char* file, Candidate& candidate)
{
    while (directories != nullptr)
    {
        const char* const end = strchrnul(directories, ':');
        const bool here = end == directories; // an empty name is the working directory
        const int size =
            std::snprintf(candidate.data(), candidate.size(), "%.*s/%s",
                          here ? 1 : static_cast<int>(end - directories), here ? "." : directories, file);
        directories = *end == '\0' ? nullptr : end + 1;
        if (size > 0 && static_cast<std::size_t>(size) < candidate.size())
        {
            return true;
        }
    }
    return false;
}

const char* Directories()
{
    const char* const path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): as execvp() does
    return path != nullptr ? path : "/bin:/usr/bin";
}

/// Executes what a path names, by a shell where it is none of the kernel's formats: as the real one does.
int ExecutePath(const char* path, char* const arguments[], char* const environment[])
{
    return Either(Ask(SYS_execve, path), [&] {
        return WithCompleteEnvironment(environment, [&](char* const complete[]) {
            return REAL_CALL(execvpe)(path, arguments, complete);
        });
    });
}

/// Whether the search goes on behind a place where the program could not be executed.
bool LiesElsewhere(int error)
{
    return error == EACCES || error == ENOENT || error == ENOTDIR || error == ESTALE || error == ENODEV ||
           error == ETIMEDOUT;
}

}

STAND_IN int execvpe(const char* file, char* const arguments[], char* const environment[]) noexcept
{
    if (*file == '\0' || std::strchr(file, '/') != nullptr)
    {
        return ExecutePath(file, arguments, environment);
    }
    Candidate candidate{};
    bool refused = false;
    errno = ENOENT;
    for (const char* directories = Directories(); Next(directories, file, candidate);)
    {
        ExecutePath(candidate.data(), arguments, environment);
        refused = refused || errno == EACCES;
        if (!LiesElsewhere(errno))
        {
            return -1;
        }
    }
    errno = refused ? EACCES : errno;
    return -1;
}

STAND_IN int execvp(const char* file, char* const arguments[]) noexcept
{
    return execvpe(file, arguments, environ);
}

/// The arguments of a call, up to their end, as a list `arguments`; what follows is still to be taken from
/// `list`.
#define LISTED_ARGUMENTS(first)                                                                              \
    va_list list;                                                                                            \
    va_start(list, first);                                                                                   \
    std::size_t count = 1;                                                                                   \
    while (va_arg(list, char*) != nullptr)                                                                   \
    {                                                                                                        \
        ++count;                                                                                             \
    }                                                                                                        \
    va_end(list);                                                                                            \
    auto* const arguments = static_cast<char**>(alloca((count + 1) * sizeof(char*)));                        \
    va_start(list, first);                                                                                   \
    arguments[0] = const_cast<char*>(first);                                                                 \
    for (std::size_t i = 1; i <= count; ++i)                                                                 \
    {                                                                                                        \
        arguments[i] = va_arg(list, char*);                                                                  \
    }

STAND_IN int execl(const char* path, const char* first, ...) noexcept
{
    LISTED_ARGUMENTS(first)
    va_end(list);
    return execv(path, arguments);
}

STAND_IN int execlp(const char* file, const char* first, ...) noexcept
{
    LISTED_ARGUMENTS(first)
    va_end(list);
    return execvp(file, arguments);
}

STAND_IN int execle(const char* path, const char* first, ...) noexcept
{
    LISTED_ARGUMENTS(first)
    char* const* const environment = va_arg(list, char**);
    va_end(list);
    return execve(path, arguments, environment);
}

namespace
{

/// Whether the unit lets a program be executed. @return 0 or an errno
int RefusalToSpawn(const char* path)
{
    const Reply reply = Ask(SYS_execve, path, 0, 0, 0, 0, BY_CHILD);
    return reply.goesOn ? 0 : static_cast<int>(-reply.value);
}

}

STAND_IN int posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t* actions,
                         const posix_spawnattr_t* attributes, char* const arguments[],
                         char* const environment[])
{
    if (const int error = RefusalToSpawn(path); error != 0)
    {
        return error;
    }
    return WithCompleteEnvironment(environment, [&](char* const complete[]) {
        return REAL_CALL(posix_spawn)(process, path, actions, attributes, arguments, complete);
    });
}

STAND_IN int posix_spawnp(pid_t* process, const char* file, const posix_spawn_file_actions_t* actions,
                          const posix_spawnattr_t* attributes, char* const arguments[],
                          char* const environment[])
{
    const int error = std::strchr(file, '/') != nullptr ? RefusalToSpawn(file) : 0;
    return error != 0 ? error : WithCompleteEnvironment(environment, [&](char* const complete[]) {
        return REAL_CALL(posix_spawnp)(process, file, actions, attributes, arguments, complete);
    });
}
