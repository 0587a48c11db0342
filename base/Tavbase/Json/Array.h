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
    using iterator = std::vector<Value>::iterator;             ///< over the values, in their order
    using const_iterator = std::vector<Value>::const_iterator; ///< likewise

    Array() noexcept;                         ///< empty
    Array(const Array& other);                ///< a whole copy
    Array(Array&& other) noexcept;            ///< leaves `other` empty
    Array& operator=(const Array& other);     ///< a whole copy
    Array& operator=(Array&& other) noexcept; ///< leaves `other` empty
    ~Array();

    std::size_t Size() const noexcept { return elements.size(); } ///< how many elements

    bool IsEmpty() const noexcept { return elements.empty(); } ///< no element

    void Push(Value value);        ///< adds an element at the end
    void Erase(std::size_t index); ///< @throws JsonException when there is no such element

    Value& operator[](std::size_t index);             ///< @throws JsonException when there is no such element
    const Value& operator[](std::size_t index) const; ///< as above

    iterator begin() noexcept { return elements.begin(); } ///< the first element

    iterator end() noexcept { return elements.end(); } ///< behind the last one

    const_iterator begin() const noexcept { return elements.begin(); } ///< the first element

    const_iterator end() const noexcept { return elements.end(); } ///< behind the last one

private:
    friend class Value;

    void RequireIndex(std::size_t index) const;

    std::vector<Value> elements;
};

}

#endif
