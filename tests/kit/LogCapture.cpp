#include "tests/kit/LogCapture.h"

#include "base/Tavbase/Tavlog/Logger.h"
#include "tests/kit/TempDir.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
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

std::string LogCapture::RawFile(std::size_t from) const
{
    Logger::GetInstance().Flush();
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
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

namespace
{

/// How much of a line "[2026-03-01 08:15:00]" or "[2026-03-01 08:15:00][41C]" takes; 0 without a date.
std::size_t HeaderLength(std::string_view line)
{
    constexpr std::string_view DATE = "[0000-00-00 00:00:00]"; // 0: any digit
    const auto fits = [](char wanted, char found) {
        return wanted == '0' ? std::isdigit(static_cast<unsigned char>(found)) != 0 : wanted == found;
    };
    if (line.size() < DATE.size() || !std::equal(DATE.begin(), DATE.end(), line.begin(), fits))
    {
        return 0;
    }
    const std::string_view rest = line.substr(DATE.size());
    const std::size_t end = rest.find("C]");
    int degrees = 0;
    if (rest.starts_with('[') && end != std::string_view::npos)
    {
        const auto parsed = std::from_chars(rest.data() + 1, rest.data() + end, degrees);
        if (parsed.ec == std::errc() && parsed.ptr == rest.data() + end)
        {
            return DATE.size() + end + 2;
        }
    }
    return DATE.size();
}

}

std::vector<std::string> LogLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t at = 0;
    while (at < text.size())
    {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        const std::size_t header = HeaderLength(line);
        if (header != 0 || lines.empty())
        {
            lines.push_back(line.substr(header));
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
