#ifndef TESTS_KIT_DEVICETEST_H
#define TESTS_KIT_DEVICETEST_H

#include "tests/kit/Clock.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/System.h"

#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Kit
{

/// A test with virtual time and a captured log: what most tests of a device want.
class DeviceTest : public testing::Test
{
protected:
    using Texts = std::vector<std::string>;

    void ForgetLog() ///< what is in the log so far is not looked at any more by the operations below
    {
        fileSeen = log.File().size();
        consoleSeen = log.Console().size();
        consoleOnlySeen = log.ConsoleOnly().size();
    }

    Texts FileLines() const { return Behind(log.File(), fileSeen); }

    Texts ConsoleLines() const { return Behind(log.Console(), consoleSeen); }

    Texts ConsoleOnlyLines() const { return Behind(log.ConsoleOnly(), consoleOnlySeen); }

    Clock clock;
    LogCapture log;

private:
    static Texts Behind(Texts lines, std::size_t seen)
    {
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
        return lines;
    }

    std::size_t fileSeen = 0;
    std::size_t consoleSeen = 0;
    std::size_t consoleOnlySeen = 0;
};

}

#endif
