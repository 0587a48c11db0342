#include "virtual-unit/recording/ByteText.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr std::string_view HEX = "hex ";
constexpr std::string_view DIGITS = "0123456789ABCDEF";
constexpr std::size_t MOST_AROUND = 16;

constexpr std::pair<char, char> ESCAPES[] = {{'\r', 'r'}, {'\n', 'n'}, {'\t', 't'}, {'"', '"'}, {'\\', '\\'}};

bool IsPrintable(char character)
{
    return character >= ' ' && character <= '~';
}

bool IsText(char character)
{
    return IsPrintable(character) || character == '\r' || character == '\n' || character == '\t';
}

std::string HexDigits(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return {DIGITS[byte >> 4U], DIGITS[byte & 0x0FU]};
}

std::string Escaped(char character)
{
    const auto* const escape = std::ranges::find(ESCAPES, character, &std::pair<char, char>::first);
    if (escape != std::end(ESCAPES))
    {
        return {'\\', escape->second};
    }
    return IsPrintable(character) ? std::string(1, character) : "\\x" + HexDigits(character);
}

std::optional<char> TakeHexByte(TextCursor& cursor)
{
    const std::optional<std::uint64_t> byte = cursor.TakeNumber(16, 2);
    return byte ? std::optional(static_cast<char>(*byte)) : std::nullopt;
}

std::optional<char> TakeEscaped(TextCursor& cursor)
{
    if (cursor.Take("x"))
    {
        return TakeHexByte(cursor);
    }
    const std::optional<char> letter = cursor.TakeCharacter();
    const auto* const escape =
        std::ranges::find(ESCAPES, letter.value_or('\0'), &std::pair<char, char>::second);
    return escape != std::end(ESCAPES) ? std::optional(escape->first) : std::nullopt;
}

}

std::string ByteText::Of(std::string_view bytes)
{
    return std::ranges::all_of(bytes, IsText) ? Quoted(bytes) : std::string(HEX) + Hex(bytes);
}

std::string ByteText::Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char character : text)
    {
        quoted += Escaped(character);
    }
    return quoted + '"';
}

std::string ByteText::Hex(std::string_view bytes)
{
    std::string hex;
    for (const char byte : bytes)
    {
        hex += (hex.empty() ? "" : " ") + HexDigits(byte);
    }
    return hex;
}

std::string ByteText::Around(std::string_view bytes, std::size_t position)
{
    const std::size_t end = std::min(position + 1, bytes.size());
    const std::size_t begin = end - std::min(end, MOST_AROUND);
    return (begin > 0 ? ".. " : "") + Of(bytes.substr(begin, end - begin)) +
           (end < bytes.size() ? " .." : "");
}

std::optional<std::string> ByteText::Take(TextCursor& cursor)
{
    return cursor.Take(HEX) ? TakeHex(cursor) : TakeQuoted(cursor);
}

std::optional<std::string> ByteText::TakeQuoted(TextCursor& cursor)
{
    if (!cursor.Take("\""))
    {
        return std::nullopt;
    }
    std::string text;
    while (!cursor.Take("\""))
    {
        const bool escaped = cursor.Take("\\");
        const std::optional<char> character = escaped ? TakeEscaped(cursor) : cursor.TakeCharacter();
        if (!character || (!escaped && !IsPrintable(*character)))
        {
            return std::nullopt;
        }
        text += *character;
    }
    return text;
}

std::optional<std::string> ByteText::TakeHex(TextCursor& cursor)
{
    std::string bytes;
    do
    {
        const std::optional<char> byte = TakeHexByte(cursor);
        if (!byte)
        {
            return std::nullopt;
        }
        bytes += *byte;
    } while (cursor.Take(" "));
    return bytes;
}

}
