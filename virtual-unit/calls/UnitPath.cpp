#include "virtual-unit/calls/UnitPath.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string_view>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view ROOT = UnitPath::CARD;

bool OnCard(std::string_view path)
{
    return path.starts_with(ROOT) && (path.size() == ROOT.size() || path[ROOT.size()] == '/');
}

bool PassesCard(const std::filesystem::path& path)
{
    std::filesystem::path walked;
    return std::any_of(path.begin(), path.end(), [&walked](const std::filesystem::path& part) {
        walked = (walked / part).lexically_normal();
        return OnCard(walked.native());
    });
}

}

UnitPath::UnitPath(const std::string& written, Start startsFrom)
    : text(std::filesystem::path(written).lexically_normal()), start(startsFrom),
      // The working directory is the kernel's own: it finds the way from there.
      leavesCard(startsFrom != Start::CardWorkingDirectory && !OnCard(text) &&
                 written.find("..") != std::string::npos && PassesCard(written))
{
}

bool UnitPath::IsOnCard() const
{
    return OnCard(text);
}

bool UnitPath::IsCard() const
{
    return IsOnCard() && BelowCard().empty();
}

bool UnitPath::IsMountTable() const
{
    return text == "/proc/self/mounts" || text == "/proc/mounts";
}

std::string UnitPath::BelowCard() const
{
    const std::size_t begin = text.find_first_not_of('/', ROOT.size());
    return begin == std::string::npos ? std::string() : text.substr(begin);
}

}
