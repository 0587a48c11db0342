#include "base/Tavbase/Json/Json.h"
#include "base/Tavbase/Json/Utf8.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <utility>

namespace Tavbase::Json
{

namespace
{

class Writer
{
public:
    void WriteValue(const Value& value);

    std::string TakeText() { return std::move(text); }

private:
    template <typename Number>
    void WriteDigits(Number number);

    void WriteInteger(const Value& value);
    void WriteDouble(double number);
    void WriteString(std::string_view string);
    void WriteEscaped(char c);
    void WriteArray(const Array& array);
    void WriteObject(const Object& object);
    void Open(char bracket);
    void Close(char bracket);
    void Separate();

    std::string text;
    std::size_t depth = 0;
};

void Writer::WriteValue(const Value& value)
{
    switch (value.GetType())
    {
    case Value::Type::Null:
        text += "null";
        break;
    case Value::Type::Boolean:
        text += value.ToBool() ? "true" : "false";
        break;
    case Value::Type::Integer:
        WriteInteger(value);
        break;
    case Value::Type::Double:
        WriteDouble(value.ToDouble());
        break;
    case Value::Type::String:
        WriteString(value.ToString());
        break;
    case Value::Type::Array:
        WriteArray(value.ToArray());
        break;
    case Value::Type::Object:
        WriteObject(value.ToObject());
        break;
    }
}

template <typename Number>
void Writer::WriteDigits(Number number)
{
    std::array<char, 32> digits{}; // the longest are 24 bytes, as "-2.2250738585072014e-308"
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    text.append(digits.data(), result.ptr);
}

void Writer::WriteInteger(const Value& value)
{
    if (value.ToDouble() < 0)
    {
        WriteDigits(value.ToInteger());
    }
    else
    {
        WriteDigits(value.ToUnsigned());
    }
}

void Writer::WriteDouble(double number)
{
    if (!std::isfinite(number))
    {
        throw JsonException("a number that is infinite or none (NaN) cannot be written");
    }
    const std::size_t begin = text.size();
    WriteDigits(number);
    if (text.find_first_of(".e", begin) == std::string::npos)
    {
        text += ".0";
    }
}

void Writer::WriteString(std::string_view string)
{
    text += '"';
    while (!string.empty())
    {
        const std::size_t length = Utf8Length(string);
        if (length == 0)
        {
            throw JsonException("a string that is not well-formed UTF-8 cannot be written");
        }
        if (length == 1)
        {
            WriteEscaped(string.front());
        }
        else
        {
            text += string.substr(0, length);
        }
        string.remove_prefix(length);
    }
    text += '"';
}

void Writer::WriteEscaped(char c)
{
    constexpr std::string_view HEX = "0123456789abcdef";
    switch (c)
    {
    case '"':
        text += "\\\"";
        break;
    case '\\':
        text += "\\\\";
        break;
    case '\b':
        text += "\\b";
        break;
    case '\f':
        text += "\\f";
        break;
    case '\n':
        text += "\\n";
        break;
    case '\r':
        text += "\\r";
        break;
    case '\t':
        text += "\\t";
        break;
    default:
        if (static_cast<unsigned char>(c) < 0x20)
        {
            text += "\\u00";
            text += HEX[static_cast<unsigned char>(c) / 16];
            text += HEX[static_cast<unsigned char>(c) % 16];
        }
        else
        {
            text += c;
        }
    }
}

void Writer::WriteArray(const Array& array)
{
    Open('[');
    for (const Value& element : array)
    {
        Separate();
        WriteValue(element);
    }
    Close(']');
}

void Writer::WriteObject(const Object& object)
{
    Open('{');
    for (const Object::Member& member : object)
    {
        Separate();
        WriteString(member.key);
        text += ':';
        WriteValue(member.value);
    }
    Close('}');
}

void Writer::Open(char bracket)
{
    if (depth == MAX_DEPTH)
    {
        throw JsonException("arrays and objects nested deeper than " + std::to_string(MAX_DEPTH) +
                            " cannot be written");
    }
    ++depth;
    text += bracket;
}

void Writer::Close(char bracket)
{
    --depth;
    text += bracket;
}

/// The comma in front of every element but the first, which follows the opening bracket.
void Writer::Separate()
{
    if (text.back() != '[' && text.back() != '{')
    {
        text += ',';
    }
}

}

std::string Serialize(const Value& value)
{
    Writer writer;
    writer.WriteValue(value);
    return writer.TakeText();
}

}
