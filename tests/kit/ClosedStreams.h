#ifndef TESTS_KIT_CLOSEDSTREAMS_H
#define TESTS_KIT_CLOSEDSTREAMS_H

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/Program.h"
#include "tests/kit/System.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace Kit
{

/**
 * For programs (Program.h) that run without standard output, without standard error, and without both, as
 * under a parent that closes them: the next files that are opened would get their numbers.
 */
class ClosedStreams
{
public:
    /// In the program, once the kit's devices are there.
    ClosedStreams()
    {
        const char* const names = std::getenv(VARIABLE);
        const std::string_view closed = names == nullptr ? "" : names;
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        {
            if (closed.find(static_cast<char>('0' + stream)) != std::string_view::npos)
            {
                close(stream);
            }
        }
    }

    /// In the program: prints by every road. The log's line is out on return.
    static void Print()
    {
        using Tavbase::Tavlog::Logger;
        using Tavbase::Tavlog::LogType;
        std::printf("printed\n");
        std::cout << "printed" << std::endl;
        std::fprintf(stderr, "printed\n");
        std::cerr << "printed" << std::endl;
        for (int line = 0; line < 2; ++line) // the second one waits until the first one is out
        {
            Logger::GetInstance().Console() << LogType::Error << "printed" << std::endl;
        }
    }

    /// In the program: whether no file got the number of a standard stream, be it for a moment.
    static bool WereKept()
    {
        const std::vector<System::Call> opened = System::CallsOf("open");
        return std::ranges::none_of(opened, [](const System::Call& call) {
            return call.result == STDOUT_FILENO || call.result == STDERR_FILENO;
        });
    }

    /// In the test: the program returns 0 whichever of them is closed. Else it returns the line of its source
    /// that is wrong (its low eight bits).
    static void Run(const std::string& program)
    {
        for (const char* const closed : {"1", "2", "12"})
        {
            // The log's writer prints while the numbers of the closed streams are held and given back: that
            // is what is tried here, and to the thread sanitizer a race of the descriptor. Its report would
            // open files in other threads meanwhile.
            const ChildResult result = RunProgram(
                program,
                {.environment = {std::string(VARIABLE) + '=' + closed, "TSAN_OPTIONS=report_bugs=0"}});
            EXPECT_EQ(result.exitStatus, 0) << program << ", closed: " << closed << '\n' << result.output;
        }
    }

private:
    static constexpr const char* VARIABLE = "KIT_CLOSED_STREAMS";
};

}

/// In a program: ends it with the number of the source line unless the condition holds.
#define KIT_REQUIRE(condition)                                                                               \
    if (!(condition))                                                                                        \
    {                                                                                                        \
        return __LINE__ % 256 == 0 ? 1 : __LINE__ % 256;                                                     \
    }

#endif
