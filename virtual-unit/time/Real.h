#ifndef VIRTUAL_UNIT_TIME_REAL_H
#define VIRTUAL_UNIT_TIME_REAL_H

#include <algorithm>
#include <cstddef>
#include <dlfcn.h>
#include <unistd.h>

namespace VirtualTime
{

template <std::size_t SIZE>
struct FunctionName
{
    consteval FunctionName(const char (&name)[SIZE]) { std::copy_n(name, SIZE, text); }

    char text[SIZE];
};

/// The C library's own function of that name, or the sanitizer's in front of it. It is looked for when the
/// program begins: a signal handler must not be the first to do it.
template <FunctionName NAME>
class RealFunction
{
public:
    /// Also before constructors have run.
    static void* Get()
    {
        void* found = __atomic_load_n(&address, __ATOMIC_RELAXED);
        if (found == nullptr)
        {
            found = dlsym(RTLD_NEXT, NAME.text);
            __atomic_store_n(&address, found, __ATOMIC_RELAXED);
        }
        return found;
    }

    static inline const bool IS_THERE = Get() != nullptr;

private:
    static inline constinit void* address = nullptr;
};

}

/// Begins the definition of a function of the C library that is called in place of the real one.
#define STAND_IN extern "C" __attribute__((visibility("default")))

/// Within a stand-in: calls the real function.
#define REAL_CALL(name)                                                                                      \
    (static_cast<void>(&VirtualTime::RealFunction<#name>::IS_THERE),                                         \
     reinterpret_cast<decltype(&::name)>(VirtualTime::RealFunction<#name>::Get()))

namespace VirtualTime
{

/// A system call as such: the stand-ins and the sanitizers have no part in it. As syscall().
template <class... Arguments>
long RawCall(long number, Arguments... arguments)
{
    return REAL_CALL(syscall)(number, arguments...);
}

}

#endif
