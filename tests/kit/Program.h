#ifndef TESTS_KIT_PROGRAM_H
#define TESTS_KIT_PROGRAM_H

#include "tests/kit/Child.h"

#include <string>
#include <vector>

namespace Kit
{

/**
 * A small program inside the test program, for what must be seen from the beginning of a process to its
 * end: nothing has been logged, no thread started, and exit() is the real one.
 *
 *     KIT_PROGRAM(LogsAndExits)
 *     {
 *         Logger::GetInstance() << ...
 *         return 0;
 *     }
 *
 *     const Kit::ChildResult result = Kit::RunProgram("LogsAndExits");
 *
 * It has real time unless it makes a Clock of its own. When it hangs it is killed.
 */
class Program
{
public:
    using Work = int (*)();

    Program(const char* programName, Work programWork);

    static Work Find(const std::string& name); ///< null when there is none of that name

    /// For the kit's main: runs the program that the arguments name. False when they name none.
    static bool RunByArguments(int argc, char** argv, int& status);
};

#define KIT_PROGRAM(name)                                                                                    \
    int name();                                                                                              \
    const Kit::Program name##Program(#name, name);                                                           \
    int name()

/// How a program is run.
struct ProgramSetting
{
    static constexpr int CAPTURED = -1;
    static constexpr int CLOSED = -2;

    std::vector<std::string> environment{}; ///< "NAME=VALUE", added to that of the test
    int standardOutput = CAPTURED;          ///< CAPTURED, CLOSED, or the descriptor to use
};

/// Runs a program of this test program in a process of its own and waits for it. Its standard error, and its
/// standard output where that is captured, are in the result.
ChildResult RunProgram(const std::string& name, const ProgramSetting& setting = {});

}

#endif
