// Every test program has its own main, from an object file: libTavdevice exports one too, and would be
// taken instead of a main in an archive, and the program would end well with no test executed.

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/Emulator.h"
#include "tests/kit/Leaks.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/Program.h"
#include "tests/kit/TempDir.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

namespace
{

/// What the process makes once and keeps is made before the first test, so that it is nobody's leak.
void WarmUp()
{
    using namespace Tavbase::Tavlog;
    const Kit::LogCapture log;
    Logger::GetInstance() << LogType::Info << LogModule::Tavthread << "warm-up" << std::endl;
    static_cast<void>(log.File());
    static_cast<void>(log.Console());
    EXPECT_NO_FATAL_FAILURE(Logger::GetInstance().Flush()); // keeps a place for failures of this thread
}

}

#if defined(__SANITIZE_THREAD__)
/// The sanitizer otherwise waits a second at the end of each process and allows a forked child no threads.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options()
{
    return "atexit_sleep_ms=0:die_after_fork=0";
}
#endif

#if defined(__SANITIZE_ADDRESS__)
namespace
{

const pid_t firstProcess = getpid();

}

/// A forked child has the parent's memory and none of its other threads: what only they hold looks leaked.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off()
{
    return getpid() == firstProcess ? 0 : 1;
}
#endif

int main(int argc, char** argv)
{
    setenv("TZ", "UTC", 1);
    tzset();
    Kit::Emulator::TakeSignalsThatNeverCome();
    int status = 0;
    if (Kit::Program::RunByArguments(argc, argv, status))
    {
        return status;
    }
    testing::InitGoogleMock(&argc, argv);
    if (testing::UnitTest::GetInstance()->total_test_count() == 0)
    {
        std::fprintf(stderr, "no test in this program\n");
        return 1;
    }
    if (!GTEST_FLAG_GET(list_tests))
    {
        WarmUp();
        Kit::Leaks::CheckEveryTest();
    }
    return RUN_ALL_TESTS();
}
