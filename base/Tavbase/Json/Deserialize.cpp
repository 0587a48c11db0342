#include "base/Tavbase/Json/Json.h"
#include "base/Tavbase/Json/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <utility>

namespace Tavbase::Json
{

namespace
{

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// The halves of surrogate pairs, and the first character that needs a pair (RFC 3629, section 3).
constexpr std::uint32_t FIRST_HALVES = 0xD800;
constexpr std::uint32_t SECOND_HALVES = 0xDC00;
constexpr std::uint32_t AFTER_HALVES = 0xE000;
constexpr std::uint32_t FIRST_PAIRED = 0x10000;

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// A byte that is a whole character and stands for itself in a string.
bool IsPlain(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte <= 0x7F && c != '"' && c != '\\';
}

/**
 * Whether a number, given in JSON's grammar and too large or too small for a double, is too small: its
 * first digit other than 0 stands behind the decimal point, once the exponent has moved it.
 */
bool IsTooSmall(std::string_view number)
{
    constexpr std::int64_t FAR = INT64_MAX / 2; // beyond every position in a text

    const auto exponentAt = number.find_first_of("eE");
    const std::string_view digits = number.substr(0, exponentAt);
    const auto first = digits.find_first_of("123456789");
    if (first == std::string_view::npos)
    {
        return true;
    }
    const auto point = std::min(digits.find('.'), digits.size());
    std::int64_t exponent = 0;
    if (exponentAt != std::string_view::npos)
    {
        std::string_view text = number.substr(exponentAt + 1);
        text.remove_prefix(text.front() == '+' ? 1 : 0);
        const auto result = std::from_chars(text.data(), text.data() + text.size(), exponent);
        if (result.ec != std::errc() || exponent > FAR || exponent < -FAR)
        {
            exponent = text.front() == '-' ? -FAR : FAR;
        }
    }
    return static_cast<std::int64_t>(point) + exponent <= static_cast<std::int64_t>(first);
}

class Reader
{
public:
    explicit Reader(const std::string& document) : text(document) {}

    Value ReadDocument();

private:
    Value ReadValue();
    Value ReadWord(std::string_view word, Value value);
    Value ReadNumber();
    Value ReadArray();
    Value ReadObject();
    std::string ReadString();
    void ReadEscape(std::string& string);
    std::uint32_t ReadCodeUnit();
    void ReadDigits();

    void Open();
    bool Continues(char closing, const char* expected);
    void SkipWhitespace();

    bool AtEnd() const { return at == text.size(); }

    bool IsNext(char c) const { return !AtEnd() && text[at] == c; }

    bool Skip(char c);

    [[noreturn]] void Fail(const std::string& problem) const { Fail(problem, at); }

    [[noreturn]] void Fail(const std::string& problem, std::size_t where) const;

    const std::string& text;
    std::size_t at = 0;    ///< the next byte
    std::size_t depth = 0; ///< arrays and objects that are open
};

Value Reader::ReadDocument()
{
    if (std::string_view(text).starts_with(BYTE_ORDER_MARK))
    {
        at = BYTE_ORDER_MARK.size();
    }
    SkipWhitespace();
    Value value = ReadValue();
    SkipWhitespace();
    if (!AtEnd())
    {
        Fail("the text goes on after the value");
    }
    return value;
}

Value Reader::ReadValue()
{
    switch (AtEnd() ? '\0' : text[at])
    {
    case '{':
        return ReadObject();
    case '[':
        return ReadArray();
    case '"':
        return ReadString();
    case 't':
        return ReadWord("true", true);
    case 'f':
        return ReadWord("false", false);
    case 'n':
        return ReadWord("null", nullptr);
    default:
        if (!IsNext('-') && (AtEnd() || !IsDigit(text[at])))
        {
            Fail("a value is expected");
        }
        return ReadNumber();
    }
}

Value Reader::ReadWord(std::string_view word, Value value)
{
    for (const char c : word)
    {
        if (!Skip(c))
        {
            Fail('"' + std::string(word) + "\" is expected");
        }
    }
    return value;
}

Value Reader::ReadNumber()
{
    const std::size_t begin = at;
    Skip('-');
    if (!Skip('0'))
    {
        ReadDigits();
    }
    const std::size_t integerEnd = at;
    if (Skip('.'))
    {
        ReadDigits();
    }
    if (Skip('e') || Skip('E'))
    {
        if (!Skip('+'))
        {
            Skip('-');
        }
        ReadDigits();
    }

    const std::string_view number = std::string_view(text).substr(begin, at - begin);
    const char* const first = number.data();
    const char* const last = first + number.size();
    if (at == integerEnd && number != "-0")
    {
        std::int64_t integer = 0;
        if (std::from_chars(first, last, integer).ec == std::errc())
        {
            return integer;
        }
        std::uint64_t bigInteger = 0;
        if (std::from_chars(first, last, bigInteger).ec == std::errc())
        {
            return bigInteger;
        }
    }
    double nearest = 0;
    if (std::from_chars(first, last, nearest).ec == std::errc())
    {
        return nearest;
    }
    if (!IsTooSmall(number))
    {
        Fail("the number is too large", begin);
    }
    return number.front() == '-' ? -0.0 : 0.0;
}

Value Reader::ReadArray()
{
    Open();
    Array array;
    if (Skip(']'))
    {
        --depth;
        return array;
    }
    do
    {
        SkipWhitespace();
        array.Push(ReadValue());
    } while (Continues(']', "\",\" or \"]\" is expected in the array"));
    return array;
}

Value Reader::ReadObject()
{
    Open();
    Object object;
    if (Skip('}'))
    {
        --depth;
        return object;
    }
    do
    {
        SkipWhitespace();
        if (!IsNext('"'))
        {
            Fail("a key in quotes is expected");
        }
        Value& value = object[ReadString()];
        SkipWhitespace();
        if (!Skip(':'))
        {
            Fail("\":\" is expected after the key");
        }
        SkipWhitespace();
        value = ReadValue();
    } while (Continues('}', "\",\" or \"}\" is expected in the object"));
    return object;
}

std::string Reader::ReadString()
{
    std::string string;
    ++at;
    while (!Skip('"'))
    {
        const std::size_t begin = at;
        while (!AtEnd() && IsPlain(text[at]))
        {
            ++at;
        }
        string.append(text, begin, at - begin);
        if (AtEnd())
        {
            Fail("the string is not closed");
        }
        if (text[at] == '\\')
        {
            ReadEscape(string);
        }
        else if (text[at] != '"')
        {
            const std::size_t length = Utf8Length(std::string_view(text).substr(at));
            if (length <= 1)
            {
                Fail(length == 0 ? "the string is not well-formed UTF-8"
                                 : "a control character in a string must be escaped");
            }
            string.append(text, at, length);
            at += length;
        }
    }
    return string;
}

void Reader::ReadEscape(std::string& string)
{
    const std::size_t begin = at++;
    if (AtEnd())
    {
        Fail("the string is not closed");
    }
    switch (text[at++])
    {
    case '"':
        string += '"';
        return;
    case '\\':
        string += '\\';
        return;
    case '/':
        string += '/';
        return;
    case 'b':
        string += '\b';
        return;
    case 'f':
        string += '\f';
        return;
    case 'n':
        string += '\n';
        return;
    case 'r':
        string += '\r';
        return;
    case 't':
        string += '\t';
        return;
    case 'u':
        break;
    default:
        Fail("the escape is unknown", begin);
    }

    std::uint32_t character = ReadCodeUnit();
    if (character >= FIRST_HALVES && character < SECOND_HALVES && Skip('\\') && Skip('u'))
    {
        const std::uint32_t second = ReadCodeUnit();
        if (second >= SECOND_HALVES && second < AFTER_HALVES)
        {
            character = FIRST_PAIRED + (character - FIRST_HALVES) * 0x400 + (second - SECOND_HALVES);
        }
    }
    if (character >= FIRST_HALVES && character < AFTER_HALVES)
    {
        Fail("half of a surrogate pair stands alone", begin);
    }
    AppendUtf8(string, character);
}

/// The four hexadecimal digits behind "\u".
std::uint32_t Reader::ReadCodeUnit()
{
    constexpr std::size_t DIGITS = 4;
    std::uint32_t unit = 0;
    const char* const begin = text.data() + at;
    const char* const end = begin + std::min(DIGITS, text.size() - at);
    const auto result = std::from_chars(begin, end, unit, 16);
    at += static_cast<std::size_t>(result.ptr - begin);
    if (result.ptr != begin + DIGITS)
    {
        Fail("four hexadecimal digits are expected");
    }
    return unit;
}

/// One digit or more.
void Reader::ReadDigits()
{
    if (AtEnd() || !IsDigit(text[at]))
    {
        Fail("a digit is expected");
    }
    while (!AtEnd() && IsDigit(text[at]))
    {
        ++at;
    }
}

/// The opening bracket of an array or object, and what may stand between it and the first element.
void Reader::Open()
{
    if (depth == MAX_DEPTH)
    {
        Fail("arrays and objects are nested deeper than " + std::to_string(MAX_DEPTH));
    }
    ++depth;
    ++at;
    SkipWhitespace();
}

/// After an element: true when a comma announces another one, false at the closing bracket.
bool Reader::Continues(char closing, const char* expected)
{
    SkipWhitespace();
    if (Skip(','))
    {
        return true;
    }
    if (!Skip(closing))
    {
        Fail(expected);
    }
    --depth;
    return false;
}

void Reader::SkipWhitespace()
{
    at = std::min(text.find_first_not_of(" \t\n\r", at), text.size());
}

bool Reader::Skip(char c)
{
    const bool isNext = IsNext(c);
    at += isNext ? 1 : 0;
    return isNext;
}

void Reader::Fail(const std::string& problem, std::size_t where) const
{
    throw JsonException(where == text.size() ? problem + ", the text ends here" : problem, text, where);
}

}

Value Deserialize(const std::string& text)
{
    return Reader(text).ReadDocument();
}

}
