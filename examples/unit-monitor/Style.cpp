#include "examples/unit-monitor/Style.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string>

namespace UnitMonitor
{

namespace
{

std::string Variable(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): see the header
    return value != nullptr ? value : "";
}

/// What counts is what the user says: the locale itself need not be installed.
bool HasUtf8()
{
    std::string locale;
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"})
    {
        locale = locale.empty() ? Variable(name) : locale;
    }
    std::erase(locale, '-');
    std::ranges::transform(locale, locale.begin(), [](unsigned char c) { return std::tolower(c); });
    return locale.find("utf8") != std::string::npos;
}

}

Style Style::OfEnvironment()
{
    return {Variable("NO_COLOR").empty(), HasUtf8()};
}

bool Style::IsDumb()
{
    return Variable("TERM") == "dumb";
}

}
