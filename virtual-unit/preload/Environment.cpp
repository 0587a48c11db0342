#include "virtual-unit/preload/Environment.h"

#include "virtual-unit/preload/Protocol.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>

namespace VirtualUnit::Preload
{

namespace
{

using Text = std::array<char, 256>;

constexpr char PRELOAD[] = "LD_PRELOAD=";
constexpr char ASAN_OPTIONS[] = "ASAN_OPTIONS=";

// As they stand in an environment. Constant-initialised: other libraries may call before this one begins.
constinit Text socketVariable{};
constinit Text libraryVariable{};
constinit char asanVariable[] = "ASAN_OPTIONS=verify_asan_link_order=0";
constinit const char* socketName = nullptr;
constinit const char* library = nullptr;
constinit std::atomic<bool> begun{false};

/// @return where its value begins; null when the environment has none
const char* Keep(Text& text, const char* variable)
{
    const char* const value =
        std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nothing has happened yet
    const int size = value == nullptr ? 0 : std::snprintf(text.data(), text.size(), "%s=%s", variable, value);
    return size > 0 && static_cast<std::size_t>(size) < text.size() ? text.data() + std::strlen(variable) + 1
                                                                    : nullptr;
}

__attribute__((constructor)) void Begin()
{
    if (!begun.exchange(true))
    {
        socketName = Keep(socketVariable, VARIABLE);
        library = Keep(libraryVariable, LIBRARY_VARIABLE);
    }
}

bool Begins(const char* text, const char* with)
{
    return std::strncmp(text, with, std::strlen(with)) == 0;
}

}

bool IsOnUnit()
{
    Begin();
    return socketName != nullptr && library != nullptr;
}

std::size_t SocketAddress(sockaddr_un& address)
{
    constexpr std::size_t ROOM = sizeof(address.sun_path) - 1;
    const std::size_t length = strnlen(socketName, ROOM);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, socketName, length);
    return offsetof(sockaddr_un, sun_path) + 1 + length;
}

std::size_t RoomFor(char* const environment[])
{
    constexpr std::size_t ADDED = 5; // the variables below, and the end
    std::size_t count = 0;
    std::size_t preloaded = 0;
    for (; environment[count] != nullptr; ++count)
    {
        if (Begins(environment[count], PRELOAD))
        {
            preloaded = std::strlen(environment[count]);
        }
    }
    return (count + ADDED) * sizeof(char*) + sizeof(PRELOAD) + std::strlen(library) + 1 + preloaded;
}

char* const* Complete(char* const environment[], void* room)
{
    auto* const copy = static_cast<char**>(room);
    std::size_t count = 0;
    const char* preloaded = "";
    bool loads = false;
    bool hasAsanOptions = false;
    for (char* const* each = environment; *each != nullptr; ++each)
    {
        if (Begins(*each, PRELOAD) && std::strstr(*each, library) == nullptr)
        {
            preloaded = *each + sizeof(PRELOAD) - 1;
            continue;
        }
        loads = loads || Begins(*each, PRELOAD);
        hasAsanOptions = hasAsanOptions || Begins(*each, ASAN_OPTIONS);
        const bool ours = Begins(*each, VARIABLE) || Begins(*each, LIBRARY_VARIABLE);
        if (!ours)
        {
            copy[count++] = *each;
        }
    }
    copy[count++] = socketVariable.data();
    copy[count++] = libraryVariable.data();
    if (!hasAsanOptions)
    {
        copy[count++] = asanVariable;
    }
    if (!loads)
    {
        auto* text = reinterpret_cast<char*>(copy + count + 2);
        copy[count++] = text;
        text = stpcpy(stpcpy(text, PRELOAD), library);
        if (*preloaded != '\0')
        {
            *text++ = ':';
        }
        stpcpy(text, preloaded);
    }
    copy[count] = nullptr;
    return copy;
}

}
