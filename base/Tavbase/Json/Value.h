#ifndef BASE_TAVBASE_JSON_VALUE_H
#define BASE_TAVBASE_JSON_VALUE_H

#include "base/Export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tavbase::Json
{

class Array;
class Object;

/// The C++ types that become a JSON integer: the integer types up to 64 bits but bool and the character
/// types.
template <typename T>
concept IntegerType = std::integral<T> && sizeof(T) <= sizeof(std::int64_t) && !std::same_as<T, bool> &&
                      !std::same_as<T, char> && !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                      !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// The C++ types that become a JSON number with a fraction.
template <typename T>
concept FractionType = std::same_as<T, double> || std::same_as<T, float>;

/**
 * One JSON value (RFC 8259): null, a boolean, a number, a string, an array or an object.
 *
 * It has the value semantics of a string: a copy is a whole copy, a move hands the content over and leaves
 * null behind. Copying and destruction need no more stack for a document nested deeply than for a flat
 * one, so a document built by hand may nest without a bound; only reading and writing are bounded (Json.h).
 *
 * Numbers: an integer is kept exactly from -2^63 to 2^64 - 1, everything else as a double.
 *
 * Strings are UTF-8; that is checked when they are written, not when they are set.
 *
 * The To...() operations give the content as the type they name. Asked for a value of another type they
 * throw a JsonException that names both. A reference that they give stays valid until the value is
 * assigned to, moved from or destroyed.
 *
 * Threads: none of its own; several threads may read one value at the same time.
 */
class TAVBASE_API Value
{
public:
    /// What a value is. Integer and Double are both numbers in a text.
    enum class Type
    {
        Null,
        Boolean,
        Integer,
        Double,
        String,
        Array,
        Object
    };

    Value() noexcept = default; ///< null

    Value(std::nullptr_t) noexcept {} ///< null

    // The templates keep the conversions of the language out: neither a pointer nor a character becomes a
    // boolean or a number by itself.
    /// A boolean.
    template <std::same_as<bool> T>
    Value(T boolean) noexcept : kind(Kind::Boolean), content{.boolean = boolean}
    {
    }

    /// An integer.
    template <IntegerType T>
    Value(T integer) noexcept
    {
        if constexpr (std::signed_integral<T>)
        {
            SetSigned(integer);
        }
        else
        {
            SetUnsigned(integer);
        }
    }

    /// A number with a fraction.
    template <FractionType T>
    Value(T number) noexcept : kind(Kind::Double), content{.number = number}
    {
    }

    Value(const char* string);      ///< up to the zero byte; a null pointer gives null
    Value(std::string_view string); ///< zero bytes included
    Value(std::string string);      ///< likewise
    Value(Array array);             ///< takes its elements
    Value(Object object);           ///< takes its members

    Value(const Value& other);                ///< a whole copy
    Value(Value&& other) noexcept;            ///< leaves null behind
    Value& operator=(const Value& other);     ///< `other` may be a part of this value
    Value& operator=(Value&& other) noexcept; ///< `other` may be a part of this value
    ~Value();

    Type GetType() const noexcept; ///< which of them it is

    bool IsNull() const noexcept { return GetType() == Type::Null; } ///< by the type alone

    bool IsBool() const noexcept { return GetType() == Type::Boolean; } ///< likewise

    bool IsInteger() const noexcept
    {
        return GetType() == Type::Integer;
    } ///< likewise: no double without a fraction

    bool IsDouble() const noexcept { return GetType() == Type::Double; } ///< likewise

    bool IsNumber() const noexcept { return IsInteger() || IsDouble(); } ///< either of the two

    bool IsString() const noexcept { return GetType() == Type::String; } ///< by the type alone

    bool IsArray() const noexcept { return GetType() == Type::Array; } ///< likewise

    bool IsObject() const noexcept { return GetType() == Type::Object; } ///< likewise

    bool ToBool() const; ///< @throws JsonException for anything but a boolean

    /// An integer, or a double that has no fraction. @throws JsonException also when it is out of range
    std::int64_t ToInteger() const;

    /// As ToInteger(), from 0 to 2^64 - 1.
    std::uint64_t ToUnsigned() const;

    /// Any number; an integer above 2^53 is rounded to the nearest double.
    double ToDouble() const;

    const std::string& ToString() const&; ///< @throws JsonException for anything but a string
    std::string ToString() &&;            ///< likewise; the content is moved out

    Array& ToArray() &;            ///< @throws JsonException for anything but an array
    const Array& ToArray() const&; ///< likewise
    Array ToArray() &&;            ///< likewise; the content is moved out

    Object& ToObject() &;            ///< @throws JsonException for anything but an object
    const Object& ToObject() const&; ///< likewise
    Object ToObject() &&;            ///< likewise; the content is moved out

private:
    /// Unsigned: an integer above 2^63 - 1. All other integers are Signed.
    enum class Kind : unsigned char
    {
        Null,
        Boolean,
        Signed,
        Unsigned,
        Double,
        String,
        Array,
        Object
    };

    struct Container;
    struct ArrayContainer;
    struct ObjectContainer;
    class Copier;

    union Content {
        bool boolean;
        std::int64_t integer;
        std::uint64_t bigInteger;
        double number;
        std::string* string;  ///< owned
        Container* container; ///< owned; of the type that `kind` tells
    };

    void SetSigned(std::int64_t integer) noexcept;
    void SetUnsigned(std::uint64_t integer) noexcept;

    bool IsContainer() const noexcept { return kind == Kind::Array || kind == Kind::Object; }

    void Swap(Value& other) noexcept;
    void DetachContainer(Container*& chain) noexcept;
    static void FreeContainers(Container* chain) noexcept;
    [[noreturn]] void ThrowNotA(const char* wanted) const;

    Kind kind = Kind::Null;
    Content content{};
};

}

#endif
