#ifndef BASE_TAVBASE_JSON_ARRAY_H
#define BASE_TAVBASE_JSON_ARRAY_H

#include "base/Export.h"
#include "base/Tavbase/Json/Value.h"

#include <cstddef>
#include <vector>

namespace Tavbase::Json
{

/**
 * A JSON array: values in their order.
 *
 * References and iterators become invalid when an element is added or erased. Threads: as Value.
 */
class TAVBASE_API Array
{
public:
    using iterator = std::vector<Value>::iterator;
    using const_iterator = std::vector<Value>::const_iterator;

    Array() noexcept;
    Array(const Array& other);
    Array(Array&& other) noexcept; ///< leaves `other` empty
    Array& operator=(const Array& other);
    Array& operator=(Array&& other) noexcept; ///< leaves `other` empty
    ~Array();

    std::size_t Size() const noexcept { return elements.size(); }

    bool IsEmpty() const noexcept { return elements.empty(); }

    void Push(Value value);        ///< adds an element at the end
    void Erase(std::size_t index); ///< @throws JsonException when there is no such element

    Value& operator[](std::size_t index); ///< @throws JsonException when there is no such element
    const Value& operator[](std::size_t index) const;

    iterator begin() noexcept { return elements.begin(); }

    iterator end() noexcept { return elements.end(); }

    const_iterator begin() const noexcept { return elements.begin(); }

    const_iterator end() const noexcept { return elements.end(); }

private:
    friend class Value;

    void RequireIndex(std::size_t index) const;

    std::vector<Value> elements;
};

}

#endif
