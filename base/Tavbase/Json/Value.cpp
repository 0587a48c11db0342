#include "base/Tavbase/Json/Value.h"

#include "base/Tavbase/Json/Array.h"
#include "base/Tavbase/Json/JsonException.h"
#include "base/Tavbase/Json/Object.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace Tavbase::Json
{

namespace
{

constexpr double TWO_TO_63 = 9223372036854775808.0;
constexpr double TWO_TO_64 = 2 * TWO_TO_63;

bool IsIntegerWithin(double number, double from, double below)
{
    return number >= from && number < below && std::trunc(number) == number;
}

const char* NameOf(Value::Type type)
{
    switch (type)
    {
    case Value::Type::Null:
        return "null";
    case Value::Type::Boolean:
        return "a boolean";
    case Value::Type::Integer:
        return "an integer";
    case Value::Type::Double:
        return "a number with a fraction";
    case Value::Type::String:
        return "a string";
    case Value::Type::Array:
        return "an array";
    case Value::Type::Object:
        break;
    }
    return "an object";
}

}

/// What is common to arrays and objects in their place on the heap.
struct Value::Container
{
    explicit Container(Kind theKind) : kind(theKind) {}

    const Kind kind;
    Container* next = nullptr; ///< the next one that waits to be freed
};

struct Value::ArrayContainer : Container
{
    explicit ArrayContainer(Array&& content = {}) : Container(Kind::Array), array(std::move(content)) {}

    Array array;
};

struct Value::ObjectContainer : Container
{
    explicit ObjectContainer(Object&& content = {}) : Container(Kind::Object), object(std::move(content)) {}

    Object object;
};

/// Copies a document with a list of the containers still to be filled instead of with the stack.
class Value::Copier
{
public:
    static void Copy(const Value& source, Value& target)
    {
        Copier copier;
        copier.CopyOne(source, target);
        while (!copier.open.empty())
        {
            const Task task = copier.open.back();
            copier.open.pop_back();
            copier.Fill(*task.source, *task.target);
        }
    }

private:
    struct Task
    {
        const Value* source;
        Value* target;
    };

    /// `target` is null before. A container becomes an empty one first.
    void CopyOne(const Value& source, Value& target)
    {
        Content copied = source.content;
        if (source.kind == Kind::String)
        {
            copied.string = new std::string(*source.content.string);
        }
        else if (source.kind == Kind::Array)
        {
            open.push_back({&source, &target});
            copied.container = new ArrayContainer();
        }
        else if (source.kind == Kind::Object)
        {
            open.push_back({&source, &target});
            copied.container = new ObjectContainer();
        }
        target.kind = source.kind;
        target.content = copied;
    }

    void Fill(const Value& source, Value& target)
    {
        if (source.kind == Kind::Array)
        {
            const std::vector<Value>& from = source.ToArray().elements;
            std::vector<Value>& to = target.ToArray().elements;
            to.resize(from.size()); // at once: the tasks point into it
            for (std::size_t i = 0; i < from.size(); ++i)
            {
                CopyOne(from[i], to[i]);
            }
        }
        else
        {
            Object& to = target.ToObject();
            for (const Object::Member& member : source.ToObject())
            {
                CopyOne(member.value, to.Add(member.key));
            }
        }
    }

    std::vector<Task> open;
};

Value::Value(const char* string)
{
    if (string != nullptr)
    {
        *this = Value(std::string(string));
    }
}

Value::Value(std::string_view string) : Value(std::string(string))
{
}

Value::Value(std::string string) : kind(Kind::String), content{.string = new std::string(std::move(string))}
{
}

Value::Value(Array array) : kind(Kind::Array), content{.container = new ArrayContainer(std::move(array))}
{
}

Value::Value(Object object) : kind(Kind::Object), content{.container = new ObjectContainer(std::move(object))}
{
}

Value::Value(const Value& other) : Value()
{
    Copier::Copy(other, *this);
}

Value::Value(Value&& other) noexcept
{
    Swap(other);
}

// An assignment first takes the new content away, because `other` may lie inside the old one.
Value& Value::operator=(const Value& other)
{
    return *this = Value(other);
}

Value& Value::operator=(Value&& other) noexcept
{
    Value taken(std::move(other));
    Swap(taken);
    return *this;
}

Value::~Value()
{
    if (kind == Kind::String)
    {
        delete content.string;
    }
    else if (IsContainer())
    {
        Container* chain = nullptr;
        DetachContainer(chain);
        FreeContainers(chain);
    }
}

Value::Type Value::GetType() const noexcept
{
    switch (kind)
    {
    case Kind::Null:
        return Type::Null;
    case Kind::Boolean:
        return Type::Boolean;
    case Kind::Signed:
    case Kind::Unsigned:
        return Type::Integer;
    case Kind::Double:
        return Type::Double;
    case Kind::String:
        return Type::String;
    case Kind::Array:
        return Type::Array;
    case Kind::Object:
        break;
    }
    return Type::Object;
}

bool Value::ToBool() const
{
    if (kind != Kind::Boolean)
    {
        ThrowNotA("a boolean");
    }
    return content.boolean;
}

std::int64_t Value::ToInteger() const
{
    if (kind == Kind::Signed)
    {
        return content.integer;
    }
    if (kind != Kind::Double || !IsIntegerWithin(content.number, -TWO_TO_63, TWO_TO_63))
    {
        ThrowNotA("an integer from -2^63 to 2^63 - 1");
    }
    return static_cast<std::int64_t>(content.number);
}

std::uint64_t Value::ToUnsigned() const
{
    if (kind == Kind::Unsigned)
    {
        return content.bigInteger;
    }
    if (kind == Kind::Signed && content.integer >= 0)
    {
        return static_cast<std::uint64_t>(content.integer);
    }
    if (kind != Kind::Double || !IsIntegerWithin(content.number, 0, TWO_TO_64))
    {
        ThrowNotA("an integer from 0 to 2^64 - 1");
    }
    return static_cast<std::uint64_t>(content.number);
}

double Value::ToDouble() const
{
    if (kind == Kind::Signed)
    {
        return static_cast<double>(content.integer);
    }
    if (kind == Kind::Unsigned)
    {
        return static_cast<double>(content.bigInteger);
    }
    if (kind != Kind::Double)
    {
        ThrowNotA("a number");
    }
    return content.number;
}

const std::string& Value::ToString() const&
{
    if (kind != Kind::String)
    {
        ThrowNotA("a string");
    }
    return *content.string;
}

std::string Value::ToString() &&
{
    static_cast<void>(ToString());
    return std::move(*content.string);
}

Array& Value::ToArray() &
{
    if (kind != Kind::Array)
    {
        ThrowNotA("an array");
    }
    return static_cast<ArrayContainer*>(content.container)->array;
}

const Array& Value::ToArray() const&
{
    return const_cast<Value*>(this)->ToArray(); // the same, and changes nothing
}

Array Value::ToArray() &&
{
    return std::move(ToArray());
}

Object& Value::ToObject() &
{
    if (kind != Kind::Object)
    {
        ThrowNotA("an object");
    }
    return static_cast<ObjectContainer*>(content.container)->object;
}

const Object& Value::ToObject() const&
{
    return const_cast<Value*>(this)->ToObject(); // the same, and changes nothing
}

Object Value::ToObject() &&
{
    return std::move(ToObject());
}

void Value::SetSigned(std::int64_t integer) noexcept
{
    kind = Kind::Signed;
    content.integer = integer;
}

void Value::SetUnsigned(std::uint64_t integer) noexcept
{
    if (integer <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
    {
        SetSigned(static_cast<std::int64_t>(integer));
        return;
    }
    kind = Kind::Unsigned;
    content.bigInteger = integer;
}

void Value::Swap(Value& other) noexcept
{
    std::swap(kind, other.kind);
    std::swap(content, other.content);
}

/// If the value is a container, puts it in front of the chain and leaves null.
void Value::DetachContainer(Container*& chain) noexcept
{
    if (IsContainer())
    {
        content.container->next = chain;
        chain = content.container;
        kind = Kind::Null;
    }
}

/// Takes the containers out of each container before it is freed, so that no destructor nests in another.
void Value::FreeContainers(Container* chain) noexcept
{
    while (chain != nullptr)
    {
        Container* const container = chain;
        chain = container->next;
        if (container->kind == Kind::Array)
        {
            auto* const array = static_cast<ArrayContainer*>(container);
            for (Value& element : array->array)
            {
                element.DetachContainer(chain);
            }
            delete array;
        }
        else
        {
            auto* const object = static_cast<ObjectContainer*>(container);
            for (Object::Member& member : object->object)
            {
                member.value.DetachContainer(chain);
            }
            delete object;
        }
    }
}

void Value::ThrowNotA(const char* wanted) const
{
    throw JsonException(std::string(wanted) + " was asked for, the value is " + NameOf(GetType()));
}

}
