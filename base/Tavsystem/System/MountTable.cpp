#include "base/Tavsystem/System/MountTable.h"

#include <algorithm>
#include <array>
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

/// File systems for raw flash, whatever their source is called.
constexpr std::array<std::string_view, 5> FLASH_TYPES = {"ubifs", "jffs2", "yaffs", "yaffs2", "logfs"};

/// Takes the decimal digits off the front of `rest`. @return whether there was one
bool TakeDigits(std::string_view& rest)
{
    const std::size_t before = rest.size();
    rest.remove_prefix(std::min(rest.find_first_not_of("0123456789"), before));
    return rest.size() < before;
}

/// A separator and a volume's name. What begins with a slash is a directory of a host of that name.
bool IsVolumeName(std::string_view text, std::string_view separators)
{
    return text.size() > 1 && separators.find(text[0]) != std::string_view::npos && text[1] != '/';
}

/// As raw flash is named to mount(): mtd:NAME, mtdN; ubi:NAME, ubiX:NAME, the same with '!', ubiX_Y, ubiX.
bool IsFlash(std::string_view source)
{
    const std::string_view kind = source.substr(0, 3);
    std::string_view rest = source.substr(kind.size());
    if (kind == "mtd")
    {
        return IsVolumeName(rest, ":") || (TakeDigits(rest) && rest.empty());
    }
    if (kind != "ubi")
    {
        return false;
    }
    const bool hasDevice = TakeDigits(rest);
    if (hasDevice && rest.starts_with('_'))
    {
        rest.remove_prefix(1);
        return TakeDigits(rest) && rest.empty();
    }
    return IsVolumeName(rest, ":!") || (hasDevice && rest.empty());
}

bool IsStorage(std::string_view source, std::string_view type)
{
    return source.starts_with("/dev/") || IsFlash(source) ||
           std::find(FLASH_TYPES.begin(), FLASH_TYPES.end(), type) != FLASH_TYPES.end();
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
        const std::string_view type = TakeUntil(line, ' ');
        if (isWhole && IsStorage(source, type) && point != "/")
        {
            AddByDepth(points, Decode(point));
        }
    }
    return points;
}

}
