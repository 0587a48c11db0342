#include "virtual-unit/common/Escapes.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace VirtualUnit::Escapes
{

namespace
{

constexpr unsigned char FIRST_PRINTABLE = 0x20;
constexpr unsigned char FIRST_OF_SEVERAL = 0x80;

std::string Formatted(const char* format, unsigned char byte)
{
    std::array<char, 16> text = {};
    std::snprintf(text.data(), text.size(), format, byte);
    return text.data();
}

/// The length of the character at the begin of a text; 0: it is no UTF-8 (RFC 3629), or none that XML has.
std::size_t CharacterLength(std::string_view text)
{
    const auto byte = [text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : static_cast<unsigned char>(0);
    };
    const unsigned char first = byte(0);
    const std::size_t length = first < FIRST_OF_SEVERAL ? 1
                               : first < 0xC2           ? 0
                               : first < 0xE0           ? 2
                               : first < 0xF0           ? 3
                               : first < 0xF5           ? 4
                                                        : 0;
    for (std::size_t i = 1; i < length; ++i)
    {
        if ((byte(i) & 0xC0) != 0x80)
        {
            return 0;
        }
    }
    const unsigned char second = byte(1);
    const bool tooLong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool beyond = first == 0xF4 && second > 0x8F;
    const bool noCharacter = first == 0xEF && second == 0xBF && byte(2) >= 0xBE; // U+FFFE and U+FFFF
    return tooLong || surrogate || beyond || noCharacter ? 0 : length;
}

/// @param ofOne how a character of one byte is written; empty: it cannot be
template <class OfOne>
std::string Escaped(std::string_view text, const char* otherwise, OfOne ofOne)
{
    std::string escaped;
    while (!text.empty())
    {
        const std::size_t length = CharacterLength(text);
        const std::string one = length == 1 ? ofOne(text.front()) : std::string();
        if (length > 1)
        {
            escaped += text.substr(0, length);
        }
        else
        {
            escaped += one.empty() ? Formatted(otherwise, static_cast<unsigned char>(text.front())) : one;
        }
        text.remove_prefix(length > 1 ? length : 1);
    }
    return escaped;
}

std::string Plain(char character)
{
    return static_cast<unsigned char>(character) >= FIRST_PRINTABLE ? std::string(1, character) : "";
}

}

std::string Json(std::string_view text)
{
    return '"' +
           Escaped(text, "\\\\x%02X",
                   [](char c) -> std::string {
                       switch (c)
                       {
                       case '"':
                           return "\\\"";
                       case '\\':
                           return "\\\\";
                       case '\n':
                           return "\\n";
                       case '\r':
                           return "\\r";
                       case '\t':
                           return "\\t";
                       default:
                           return Plain(c);
                       }
                   }) +
           '"';
}

std::string Xml(std::string_view text)
{
    return Escaped(text, "\\x%02X", [](char c) -> std::string {
        switch (c)
        {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\n':
            return "&#10;"; // as it stands it would be a blank in an attribute
        case '\r':
            return "&#13;";
        case '\t':
            return "&#9;";
        default:
            return Plain(c);
        }
    });
}

}
