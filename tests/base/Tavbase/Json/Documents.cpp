#include "tests/base/Tavbase/Json/Documents.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string_view>

using namespace Tavbase::Json;

namespace JsonTest
{

std::string ToUtf8(std::uint32_t character)
{
    std::string text;
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80)
    {
        add(character);
    }
    else if (character < 0x800)
    {
        add(0xC0 + character / 0x40);
        add(0x80 + character % 0x40);
    }
    else if (character < 0x10000)
    {
        add(0xE0 + character / 0x1000);
        add(0x80 + character / 0x40 % 0x40);
        add(0x80 + character % 0x40);
    }
    else
    {
        add(0xF0 + character / 0x40000);
        add(0x80 + character / 0x1000 % 0x40);
        add(0x80 + character / 0x40 % 0x40);
        add(0x80 + character % 0x40);
    }
    return text;
}

Value Documents::Make(int depth)
{
    switch (Below(depth > 0 ? 8 : 5))
    {
    case 0:
        return nullptr;
    case 1:
        return Below(2) == 0;
    case 2:
    case 3:
        return MakeNumber();
    case 4:
        return MakeString();
    case 5:
    case 6: {
        Array array;
        for (auto left = Below(6); left > 0; --left)
        {
            array.Push(Make(depth - 1));
        }
        return array;
    }
    default: {
        Object object;
        for (auto left = Below(6); left > 0; --left)
        {
            object[MakeString()] = Make(depth - 1);
        }
        return object;
    }
    }
}

std::string Documents::MakeString()
{
    std::string text;
    for (auto left = Below(12); left > 0; --left)
    {
        text += ToUtf8(MakeCharacter());
    }
    return text;
}

std::string Documents::Damage(std::string text)
{
    static constexpr std::string_view MARKS =
        "{}[]\",:\\/0123456789+-.eEtrufalsn bx\t\n\r\x01\x1F\x7F\x80\xBF\xC0\xC3\xE0\xED"
        "\xEF\xF0\xF4\xF8\xFF";
    const auto mark = [this] {
        return Below(4) == 0 ? static_cast<char>(1 + Below(255)) : MARKS[Below(MARKS.size())];
    };
    for (auto left = 1 + Below(4); left > 0; --left)
    {
        const std::size_t at = Below(text.size() + 1);
        switch (Below(4))
        {
        case 0:
            text.insert(at, 1, mark());
            break;
        case 1:
            text.erase(at, 1 + Below(2));
            break;
        case 2:
            text.insert(at, text.substr(Below(text.size() + 1), Below(8)));
            break;
        default:
            if (at < text.size())
            {
                text[at] = mark();
            }
        }
    }
    return text;
}

Value Documents::MakeNumber()
{
    switch (Below(4))
    {
    case 0:
        return static_cast<int>(Below(2001)) - 1000;
    case 1:
        return static_cast<std::int64_t>(random());
    case 2:
        return random();
    default: {
        const auto number = std::bit_cast<double>(random());
        return std::isfinite(number) ? number : 0.5;
    }
    }
}

std::uint32_t Documents::MakeCharacter()
{
    switch (Below(6))
    {
    case 0:
        return static_cast<std::uint32_t>(Below(0x20));
    case 1:
        return static_cast<std::uint32_t>(0x80 + Below(0x780));
    case 2:
        return static_cast<std::uint32_t>(0x800 + Below(0xD000));
    case 3:
        return static_cast<std::uint32_t>(0xE000 + Below(0x102000));
    case 4:
        return Below(2) == 0 ? '"' : '\\';
    default:
        return static_cast<std::uint32_t>(0x20 + Below(0x60));
    }
}

bool IsSame(const Value& a, const Value& b)
{
    if (a.GetType() != b.GetType())
    {
        return false;
    }
    switch (a.GetType())
    {
    case Value::Type::Null:
        return true;
    case Value::Type::Boolean:
        return a.ToBool() == b.ToBool();
    case Value::Type::Integer:
        // Above 2^63 - 1 only ToUnsigned() holds, below 0 only ToInteger().
        return (a.ToDouble() < 0) == (b.ToDouble() < 0) &&
               (a.ToDouble() < 0 ? a.ToInteger() == b.ToInteger() : a.ToUnsigned() == b.ToUnsigned());
    case Value::Type::Double:
        return std::bit_cast<std::uint64_t>(a.ToDouble()) == std::bit_cast<std::uint64_t>(b.ToDouble());
    case Value::Type::String:
        return a.ToString() == b.ToString();
    case Value::Type::Array:
        return std::equal(a.ToArray().begin(), a.ToArray().end(), b.ToArray().begin(), b.ToArray().end(),
                          IsSame);
    case Value::Type::Object:
        return std::equal(a.ToObject().begin(), a.ToObject().end(), b.ToObject().begin(), b.ToObject().end(),
                          [](const Object::Member& x, const Object::Member& y) {
                              return x.key == y.key && IsSame(x.value, y.value);
                          });
    }
    return false;
}

}
