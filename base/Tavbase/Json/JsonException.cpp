#include "base/Tavbase/Json/JsonException.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Tavbase::Json
{

namespace
{

std::string Describe(std::size_t line, std::size_t column, std::size_t offset)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "JSON, line %zu, column %zu (byte %zu): ", line, column, offset);
    return text.data();
}

}

JsonException::JsonException(const std::string& problem) : IException("JSON: " + problem)
{
}

JsonException::JsonException(const std::string& problem, const std::string& text, std::size_t offset)
    : JsonException(problem, Locate(text, offset))
{
}

JsonException::JsonException(const std::string& problem, const Place& where)
    : IException(Describe(where.line, where.column, where.offset) + problem), place(where)
{
}

JsonException::Place JsonException::Locate(const std::string& text, std::size_t offset)
{
    const std::size_t lineEnd = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
    const std::size_t lineBegin = lineEnd == std::string::npos ? 0 : lineEnd + 1;
    const auto before = text.begin() + static_cast<std::ptrdiff_t>(lineBegin);
    const auto lines = std::count(text.begin(), before, '\n');
    return {offset, static_cast<std::size_t>(lines) + 1, offset - lineBegin + 1};
}

}
