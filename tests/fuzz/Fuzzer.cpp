// What each program of a target has besides it.

#include "tests/fuzz/Target.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>

namespace
{

/// Says what does not hold; the fuzzer keeps the input.
[[noreturn]] void Tell()
{
    try
    {
        std::rethrow_exception(std::current_exception());
    }
    catch (const Fuzz::Broken& broken)
    {
        std::fprintf(stderr, "does not hold: %s\n", broken.what.c_str());
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "not caught: %s\n", failure.what());
    }
    catch (...)
    {
        std::fprintf(stderr, "something was thrown\n");
    }
    std::abort();
}

}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    setenv("TZ", "UTC", 1);
    tzset();
    std::set_terminate(Tell);
    return 0;
}
