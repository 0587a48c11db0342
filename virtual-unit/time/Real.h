#ifndef VIRTUAL_UNIT_TIME_REAL_H
#define VIRTUAL_UNIT_TIME_REAL_H

#include <dlfcn.h>
#include <unistd.h>

namespace VirtualTime
{

/// The C library's own function of that name, or the sanitizer's in front of it.
template <class Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}

/// Begins the definition of a function of the C library that is called in place of the real one.
#define STAND_IN extern "C" __attribute__((visibility("default")))

/**
 * Within a stand-in: calls the real function. The pointer is kept in a constant-initialised variable, so
 * that the first call may come at any time.
 */
#define REAL_CALL(name)                                                                                      \
    ([] {                                                                                                    \
        using Function = decltype(::name);                                                                   \
        static constinit Function* pointer = nullptr;                                                        \
        Function* found = __atomic_load_n(&pointer, __ATOMIC_RELAXED);                                       \
        if (found == nullptr)                                                                                \
        {                                                                                                    \
            found = VirtualTime::Real<Function>(#name);                                                      \
            __atomic_store_n(&pointer, found, __ATOMIC_RELAXED);                                             \
        }                                                                                                    \
        return found;                                                                                        \
    }())

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
