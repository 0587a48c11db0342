#ifndef TESTS_KIT_LOGCAPTURE_H
#define TESTS_KIT_LOGCAPTURE_H

#include "tests/kit/Output.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Kit
{

/**
 * The log of the process while one lives: both sinks are on, and their lines are kept for the test. A line
 * is given without its date and temperature: "[ERROR][SERIAL] Unable to open serial port".
 */
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> File() const;           ///< lines of the file sink so far
    std::vector<std::string> Console() const;        ///< lines of the console sink so far
    std::vector<std::string> ConsoleOnly() const;    ///< lines that only the console got
    std::string RawFile(std::size_t from = 0) const; ///< @param from so many bytes are left out in front
    std::string RawConsole() const;

private:
    std::string path;
    Output output;
};

/// The lines of a log's text, without date and temperature. A line without a date continues the one before.
std::vector<std::string> LogLines(const std::string& text);

}

#endif
