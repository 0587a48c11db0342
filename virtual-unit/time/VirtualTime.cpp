#include "virtual-unit/time/VirtualTime.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace VirtualTime
{

namespace
{

constexpr const char* PRELOAD = "LD_PRELOAD";

/// Beside the program where it was built, in the directory of libraries where it was installed.
std::filesystem::path Library()
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const char* const place : {".", TIME_LIBRARY_DIRECTORY})
    {
        const std::filesystem::path library = program / place / TIME_LIBRARY;
        if (std::filesystem::exists(library))
        {
            return library.lexically_normal();
        }
    }
    throw NotPossible(std::string(TIME_LIBRARY) + " is neither beside the program nor in " +
                      (program / TIME_LIBRARY_DIRECTORY).lexically_normal().string());
}

/// What is asked of the kernel about each thread: its children, how often it ran, and where it waits.
void RequireAnswers()
{
    const std::string self = "/proc/self/task/" + std::to_string(gettid()) + "/";
    for (const char* const file : {"children", "schedstat", "wchan"})
    {
        if (access((self + file).c_str(), R_OK) != 0)
        {
            throw NotPossible("this kernel has no " + self + file);
        }
    }
}

}

void Require()
{
    RequireAnswers();
    Library();
}

void Enter(char** arguments)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): nothing has happened yet
    if (std::getenv(VARIABLE) != nullptr)
    {
        return;
    }
    Require();
    const int memory = memfd_create("virtual-time", 0);
    if (memory < 0)
    {
        throw NotPossible("no memory to share: " + std::generic_category().message(errno));
    }
    const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(memory);
    const char* const preloaded = std::getenv(PRELOAD);
    const std::string libraries =
        Library().string() + (preloaded != nullptr ? ":" + std::string(preloaded) : "");
    setenv(VARIABLE, path.c_str(), 1);
    setenv(PRELOAD, libraries.c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
    execv("/proc/self/exe", arguments);
    throw NotPossible("the program cannot be executed anew: " + std::generic_category().message(errno));
}

}
