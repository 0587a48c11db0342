#include "virtual-unit/common/PreloadedLibrary.h"

#include <cstdlib>
#include <stdexcept>
#include <unistd.h>

namespace VirtualUnit::PreloadedLibrary
{

std::filesystem::path Find(const char* name)
{
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const char* const place : {".", PRELOADED_DIRECTORY})
    {
        const std::filesystem::path library = program / place / name;
        if (std::filesystem::exists(library))
        {
            return library.lexically_normal();
        }
    }
    throw std::runtime_error(std::string(name) + " is neither beside the program nor in " +
                             (program / PRELOADED_DIRECTORY).lexically_normal().string());
}

std::string PathOf(int descriptor)
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor);
}

void Preload(const std::string& path)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): nothing else looks at the environment of this process
    const char* const present = std::getenv(VARIABLE);
    setenv(VARIABLE, (present != nullptr ? path + ":" + present : path).c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
    AddOption("ASAN_OPTIONS", "verify_asan_link_order=0"); // it minds what comes before its own library
}

void AddOption(const char* variable, const std::string& option)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): nothing else looks at the environment of this process
    const char* const present = std::getenv(variable);
    setenv(variable, (present != nullptr ? present + (":" + option) : option).c_str(), 1);
    // NOLINTEND(concurrency-mt-unsafe)
}

}
