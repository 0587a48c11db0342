#include "base/Tavbase/Tavlog/ConsoleLogPolicy.h"

#include "base/Tavbase/Tavlog/WriteAll.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace Tavbase::Tavlog
{

namespace
{

constexpr std::string_view YELLOW = "\033[33m";
constexpr std::string_view RED = "\033[31m";
constexpr std::string_view PLAIN = "\033[0m";

bool ColourAllowed()
{
    const char* const noColour = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): read only
    const char* const terminal = std::getenv("TERM");     // NOLINT(concurrency-mt-unsafe): read only
    return (noColour == nullptr || *noColour == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string_view Colour(LogType type)
{
    switch (type)
    {
    case LogType::Warning:
        return YELLOW;
    case LogType::Error:
        return RED;
    default:
        return {};
    }
}

}

ConsoleLogPolicy::ConsoleLogPolicy() : colourAllowed(ColourAllowed())
{
}

void ConsoleLogPolicy::WriteHeader(LogType type)
{
    lineType = type;
}

void ConsoleLogPolicy::Write(std::string_view line)
{
    const std::string_view colour = colourAllowed ? Colour(lineType) : std::string_view();
    lineType = LogType::Info; // a line without a header has none
    if (colour.empty() || line.empty() || isatty(STDOUT_FILENO) == 0)
    {
        WriteAll(STDOUT_FILENO, line);
        return;
    }
    std::string coloured(colour);
    coloured += line.substr(0, line.size() - 1);
    coloured += PLAIN;
    coloured += line.back();
    WriteAll(STDOUT_FILENO, coloured);
}

}
