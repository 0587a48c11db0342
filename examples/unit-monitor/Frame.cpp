#include "examples/unit-monitor/Frame.h"

#include <algorithm>
#include <iterator>

namespace UnitMonitor
{

namespace
{

// ECMA-48
constexpr std::string_view HOME = "\033[H";
constexpr std::string_view CLEAR_LINE = "\033[K";
constexpr std::string_view CLEAR_BELOW = "\033[J";
constexpr std::string_view PLAIN = "\033[0m";

std::string_view Begin(Frame::Colour colour)
{
    switch (colour)
    {
    case Frame::Colour::Bright:
        return "\033[1m";
    case Frame::Colour::Dim:
        return "\033[2m";
    case Frame::Colour::Red:
        return "\033[31m";
    case Frame::Colour::Green:
        return "\033[32m";
    case Frame::Colour::Yellow:
        return "\033[33m";
    case Frame::Colour::Default:
        break;
    }
    return {};
}

/// How many bytes the character at the begin of a text has: one where it is not UTF-8.
std::size_t CharacterBytes(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    if (length > text.size())
    {
        return 1;
    }
    for (std::size_t i = 1; i < length; ++i)
    {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80)
        {
            return 1;
        }
    }
    return length;
}

bool IsShown(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character.front());
    const bool control = first < 0x20 || first == 0x7F;
    const bool brokenUtf8 = character.size() == 1 && first >= 0x80;
    const bool controlOfUtf8 =
        first == 0xC2 && character.size() == 2 && static_cast<unsigned char>(character[1]) < 0xA0;
    return !control && !brokenUtf8 && !controlOfUtf8;
}

struct Likeness
{
    std::string_view character;
    std::string_view ascii;
};

constexpr Likeness LIKENESSES[] = {{"─", "-"}, {"●", "*"}, {"○", "o"}, {"°", " "}, {"▁", "_"}, {"▂", "."},
                                   {"▃", ":"}, {"▄", "-"}, {"▅", "="}, {"▆", "+"}, {"▇", "*"}, {"█", "#"}};

}

Frame::Frame(std::size_t width, std::size_t height, const Style& itsStyle)
    : style(itsStyle), columns(width), rows(height), bytes(HOME)
{
}

std::string_view Frame::Shown(std::string_view character) const
{
    if (!IsShown(character))
    {
        return " ";
    }
    if (style.utf8 || character.size() == 1)
    {
        return character;
    }
    const auto* const like = std::ranges::find(LIKENESSES, character, &Likeness::character);
    return like == std::end(LIKENESSES) ? "?" : like->ascii;
}

Frame& Frame::Text(std::string_view text, Colour colour)
{
    if (row >= rows)
    {
        return *this;
    }
    const bool coloured = style.colours && colour != Colour::Default;
    bytes += coloured ? Begin(colour) : "";
    while (!text.empty() && column < columns)
    {
        const std::string_view character = text.substr(0, CharacterBytes(text));
        bytes += Shown(character);
        text.remove_prefix(character.size());
        ++column;
    }
    bytes += coloured ? PLAIN : "";
    return *this;
}

Frame& Frame::To(std::size_t wanted)
{
    return Text(std::string(wanted > column ? wanted - column : 1, ' '));
}

void Frame::EndLine()
{
    if (row >= rows)
    {
        return;
    }
    bytes += column < columns ? CLEAR_LINE : ""; // in the last column it would clear what stands there
    ++row;
    column = 0;
    bytes += row < rows ? "\r\n" : "";
}

void Frame::Rule()
{
    std::string line;
    for (std::size_t i = 0; i < columns; ++i)
    {
        line += "─";
    }
    Text(line, Colour::Dim);
    EndLine();
}

std::string Frame::Finish()
{
    if (row < rows)
    {
        bytes += CLEAR_BELOW;
    }
    return bytes;
}

}
