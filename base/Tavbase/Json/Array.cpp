#include "base/Tavbase/Json/Array.h"

#include "base/Tavbase/Json/JsonException.h"

#include <utility>

namespace Tavbase::Json
{

Array::Array() noexcept = default;
Array::Array(const Array& other) = default;

Array::Array(Array&& other) noexcept : elements(std::exchange(other.elements, {}))
{
}

// An assignment first takes the new content away, because `other` may lie inside the old one.
Array& Array::operator=(const Array& other)
{
    return *this = Array(other);
}

Array& Array::operator=(Array&& other) noexcept
{
    Array taken(std::move(other));
    elements.swap(taken.elements);
    return *this;
}

Array::~Array() = default;

void Array::Push(Value value)
{
    elements.push_back(std::move(value));
}

void Array::Erase(std::size_t index)
{
    RequireIndex(index);
    elements.erase(elements.begin() + static_cast<std::ptrdiff_t>(index));
}

Value& Array::operator[](std::size_t index)
{
    RequireIndex(index);
    return elements[index];
}

const Value& Array::operator[](std::size_t index) const
{
    RequireIndex(index);
    return elements[index];
}

void Array::RequireIndex(std::size_t index) const
{
    if (index >= elements.size())
    {
        throw JsonException("element " + std::to_string(index) + " was asked for, the array has " +
                            std::to_string(elements.size()));
    }
}

}
