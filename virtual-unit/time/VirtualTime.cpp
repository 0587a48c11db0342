#include "virtual-unit/time/VirtualTime.h"

#include "virtual-unit/common/PreloadedLibrary.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace VirtualTime
{

namespace
{

/// @throws NotPossible
std::filesystem::path Library()
{
    try
    {
        return VirtualUnit::PreloadedLibrary::Find(TIME_LIBRARY);
    }
    catch (const std::runtime_error& missing)
    {
        throw NotPossible(missing.what());
    }
}

/// What is asked of the kernel about each thread: its children, how often it ran, where it waits,
/// and in which system call.
void RequireAnswers()
{
    const std::string self = "/proc/self/task/" + std::to_string(gettid()) + "/";
    for (const char* const file : {"children", "schedstat", "wchan", "syscall"})
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
        auto* const isVirtual = reinterpret_cast<bool (*)()>(dlsym(RTLD_DEFAULT, TELLS));
        if (isVirtual == nullptr || !isVirtual())
        {
            throw NotPossible(std::string(TIME_LIBRARY) + " could not be preloaded");
        }
        return;
    }
    Require();
    const int memory = memfd_create("virtual-time", 0);
    if (memory < 0)
    {
        throw NotPossible("no memory to share: " + std::generic_category().message(errno));
    }
    const int library = open(Library().c_str(), O_RDONLY);
    if (library < 0)
    {
        throw NotPossible(std::string(TIME_LIBRARY) + ": " + std::generic_category().message(errno));
    }
    setenv(VARIABLE, VirtualUnit::PreloadedLibrary::PathOf(memory).c_str(), 1);
    VirtualUnit::PreloadedLibrary::Preload(VirtualUnit::PreloadedLibrary::PathOf(library));
    // The thread sanitizer naps at the end of a process, in real time.
    VirtualUnit::PreloadedLibrary::AddOption("TSAN_OPTIONS", "atexit_sleep_ms=0");
    // NOLINTEND(concurrency-mt-unsafe)
    execv("/proc/self/exe", arguments);
    throw NotPossible("the program cannot be executed anew: " + std::generic_category().message(errno));
}

bool LivesInIt(pid_t process)
{
    static auto* const has = reinterpret_cast<bool (*)(pid_t)>(dlsym(RTLD_DEFAULT, HAS));
    return has == nullptr || has(process);
}

void Executes(pid_t thread)
{
    static auto* const executes = reinterpret_cast<void (*)(pid_t)>(dlsym(RTLD_DEFAULT, EXECUTES));
    if (executes != nullptr)
    {
        executes(thread);
    }
}

}
