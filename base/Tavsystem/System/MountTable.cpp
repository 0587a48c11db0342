#include "base/Tavsystem/System/MountTable.h"

#include <algorithm>
#include <utility>

namespace Tavsystem::System
{

namespace
{

/// Takes the text up to the next `separator` off the front of `rest`; without one, all of it.
std::string_view TakeUntil(std::string_view& rest, char separator)
{
    const auto end = rest.find(separator);
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return taken;
}

bool IsOctalEscape(std::string_view text)
{
    const auto isDigit = [](char c, char most) { return c >= '0' && c <= most; };
    return text.size() >= 4 && text[0] == '\\' && isDigit(text[1], '3') && isDigit(text[2], '7') &&
           isDigit(text[3], '7');
}

std::string Decode(std::string_view field)
{
    std::string text;
    while (!field.empty())
    {
        if (IsOctalEscape(field))
        {
            text += static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'));
            field.remove_prefix(4);
        }
        else
        {
            text += field.front();
            field.remove_prefix(1);
        }
    }
    return text;
}

std::ptrdiff_t Depth(const std::string& path)
{
    return std::count(path.begin(), path.end(), '/');
}

/// Puts a point, mounted later than those in the list, in front of all that are not deeper.
void AddByDepth(std::vector<std::string>& points, std::string point)
{
    const std::ptrdiff_t depth = Depth(point);
    auto before = points.begin();
    while (before != points.end() && Depth(*before) > depth)
    {
        ++before;
    }
    points.insert(before, std::move(point));
}

}

std::vector<std::string> MountPointsToUnmount(std::string_view table)
{
    std::vector<std::string> points;
    while (!table.empty())
    {
        std::string_view line = TakeUntil(table, '\n');
        const std::string_view source = TakeUntil(line, ' ');
        const std::string_view point = TakeUntil(line, ' ');
        const bool isWhole = !line.empty();
        if (isWhole && source.starts_with("/dev/") && point != "/")
        {
            AddByDepth(points, Decode(point));
        }
    }
    return points;
}

}
