#include "base/Tavbase/Json/Utf8.h"

#include <algorithm>
#include <array>

namespace Tavbase::Json
{

namespace
{

/// A row of the table of well-formed byte sequences in RFC 3629, section 4.
struct Form
{
    unsigned char firstFrom;
    unsigned char firstTo;
    unsigned char secondFrom;
    unsigned char secondTo;
    std::size_t length;
};

constexpr std::array<Form, 8> FORMS{{{0xC2, 0xDF, 0x80, 0xBF, 2},
                                     {0xE0, 0xE0, 0xA0, 0xBF, 3},
                                     {0xE1, 0xEC, 0x80, 0xBF, 3},
                                     {0xED, 0xED, 0x80, 0x9F, 3},
                                     {0xEE, 0xEF, 0x80, 0xBF, 3},
                                     {0xF0, 0xF0, 0x90, 0xBF, 4},
                                     {0xF1, 0xF3, 0x80, 0xBF, 4},
                                     {0xF4, 0xF4, 0x80, 0x8F, 4}}};

bool IsWithin(char c, unsigned char from, unsigned char to)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte >= from && byte <= to;
}

}

std::size_t Utf8Length(std::string_view text) noexcept
{
    if (text.empty())
    {
        return 0;
    }
    if (IsWithin(text[0], 0, 0x7F))
    {
        return 1;
    }
    for (const Form& form : FORMS)
    {
        if (IsWithin(text[0], form.firstFrom, form.firstTo))
        {
            const bool good =
                text.size() >= form.length && IsWithin(text[1], form.secondFrom, form.secondTo) &&
                std::all_of(text.begin() + 2, text.begin() + static_cast<std::ptrdiff_t>(form.length),
                            [](char c) { return IsWithin(c, 0x80, 0xBF); });
            return good ? form.length : 0;
        }
    }
    return 0;
}

void AppendUtf8(std::string& text, std::uint32_t character)
{
    const auto tail = [character](int shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80)
    {
        text += static_cast<char>(character);
    }
    else if (character < 0x800)
    {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += tail(0);
    }
    else if (character < 0x10000)
    {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += tail(6);
        text += tail(0);
    }
    else
    {
        text += static_cast<char>(0xF0 | (character >> 18));
        text += tail(12);
        text += tail(6);
        text += tail(0);
    }
}

}
