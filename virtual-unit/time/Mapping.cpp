#include "virtual-unit/time/Mapping.h"

#include "virtual-unit/time/Real.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace VirtualTime
{

bool FindMapping(pid_t process, std::uintptr_t address, MappingText& mapping)
{
    std::array<char, 64> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/maps", process);
    const auto fd = static_cast<int>(RawCall(SYS_openat, AT_FDCWD, path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> part{};
    std::size_t length = 0;
    bool found = false;
    for (long bytes = 0; !found && (bytes = RawCall(SYS_read, fd, part.data(), part.size())) > 0;)
    {
        for (const char character : std::string_view(part.data(), static_cast<std::size_t>(bytes)))
        {
            if (character != '\n')
            {
                length += length + 1 < mapping.size() ? 1 : 0;
                mapping[length - 1] = character;
                continue;
            }
            mapping[length] = '\0';
            length = 0;
            char* at = mapping.data();
            const std::uintptr_t begin = std::strtoul(at, &at, 16);
            const std::uintptr_t end = *at == '-' ? std::strtoul(at + 1, &at, 16) : 0;
            if (begin <= address && address < end)
            {
                found = true;
                break;
            }
        }
    }
    RawCall(SYS_close, fd);
    return found;
}

bool IsSharedMemory(const void* address)
{
    // Above an address, which leaves its lowest bit free, what it was found to be.
    static constinit std::array<std::atomic<std::uintptr_t>, 64> known{};
    const auto value = reinterpret_cast<std::uintptr_t>(address) & ~std::uintptr_t{1};
    std::atomic<std::uintptr_t>& entry = known[(value >> 2) % known.size()];
    if (const std::uintptr_t present = entry; (present & ~std::uintptr_t{1}) == value)
    {
        return (present & 1) != 0;
    }
    MappingText mapping{};
    constexpr std::size_t SHARED_PLACE = 3; // in "rwxs", behind the addresses
    const bool found = FindMapping(getpid(), value, mapping);
    const char* const rights = found ? std::strchr(mapping.data(), ' ') : nullptr;
    const bool isShared =
        rights != nullptr && std::strlen(rights) > SHARED_PLACE + 1 && rights[1 + SHARED_PLACE] == 's';
    entry = value | (isShared ? 1 : 0);
    return isShared;
}

}
