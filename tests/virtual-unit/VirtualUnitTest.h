#ifndef TESTS_VIRTUAL_UNIT_VIRTUALUNITTEST_H
#define TESTS_VIRTUAL_UNIT_VIRTUALUNITTEST_H

#include "tests/virtual-unit/RunningUnit.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

/// A test that runs programs on the virtual unit, where this machine can.
class VirtualUnitTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { check = RunUnit({"check"}); }

    static void TearDownTestSuite() { check = {}; }

    static constexpr int CANNOT_RUN = 3;

    void SetUp() override
    {
        if (check.status == CANNOT_RUN)
        {
            GTEST_SKIP() << "this machine cannot run the virtual unit:\n" << check.output << check.errors;
        }
    }

    static inline Outcome check;
};

inline constexpr int NOT_EXECUTABLE = 126; ///< the status of a run whose program cannot be executed

inline std::string ReadFile(const std::string& path) ///< empty when it cannot be read
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> Lines(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

/// A run of a program, with options of the virtual unit.
inline Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                          const std::vector<std::string>& options = {}, RunningUnit::Options how = {})
{
    std::vector<std::string> all = {"run"};
    all.insert(all.end(), options.begin(), options.end());
    all.insert(all.end(), {"--", program});
    all.insert(all.end(), arguments.begin(), arguments.end());
    return RunUnit(all, how);
}

/// A command line of the shell in virtual time: a sleep in it ends when all others wait.
inline Outcome RunFast(const std::string& command, std::vector<std::string> options = {})
{
    options.emplace_back("--fast");
    return RunProgram("/bin/sh", {"-c", command}, options);
}

#ifdef PROBE
inline const std::string PROBE_WORD = Word(PROBE); ///< of a command line of the shell

inline Outcome Probe(const std::vector<std::string>& arguments, const std::vector<std::string>& options = {},
                     RunningUnit::Options how = {}, const char* program = PROBE)
{
    return RunProgram(program, arguments, options, how);
}
#endif

#ifdef DRIVER_PROBE
inline const std::string DRIVER_PROBE_WORD = Word(DRIVER_PROBE);
#endif

#endif
