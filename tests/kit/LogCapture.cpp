#include "tests/kit/LogCapture.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/TempDir.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

namespace Kit
{

using Tavbase::Tavlog::Logger;

LogCapture::LogCapture() : path(TempDir::Path() + "/captured.log")
{
    Logger::GetInstance().OpenFile(path, 0, 0);
    Logger::GetInstance().EnableConsole(true);
}

LogCapture::~LogCapture()
{
    Logger::GetInstance().Flush();
    Logger::GetInstance().CloseFile();
    Logger::GetInstance().EnableConsole(true);
    unlink(path.c_str());
}

std::string LogCapture::RawFile() const
{
    Logger::GetInstance().Flush();
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string LogCapture::RawConsole() const
{
    Logger::GetInstance().Flush();
    return Output::Text();
}

std::vector<std::string> LogCapture::File() const
{
    return LogLines(RawFile());
}

std::vector<std::string> LogCapture::Console() const
{
    return LogLines(RawConsole());
}

std::vector<std::string> LogCapture::ConsoleOnly() const
{
    std::vector<std::string> lines = Console();
    for (const std::string& line : File())
    {
        const auto same = std::find(lines.begin(), lines.end(), line);
        if (same != lines.end())
        {
            lines.erase(same);
        }
    }
    return lines;
}

std::vector<std::string> LogLines(const std::string& text)
{
    static const std::regex header(R"(^\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\](\[-?\d+C\])?)");
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < text.size())
    {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        std::smatch match;
        // A short prefix is enough for the pattern, and spares it binary noise and long blocks.
        const std::string start = line.substr(0, 40);
        if (std::regex_search(start, match, header))
        {
            lines.push_back(line.substr(static_cast<std::size_t>(match.length())));
        }
        else if (lines.empty())
        {
            lines.push_back(line);
        }
        else
        {
            lines.back() += '\n' + line;
        }
        at = end + 1;
    }
    return lines;
}

}
