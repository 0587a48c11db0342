#ifndef BASE_TAVBASE_JSON_OBJECT_H
#define BASE_TAVBASE_JSON_OBJECT_H

#include "base/Export.h"
#include "base/Tavbase/Json/Value.h"

#include <cstddef>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Tavbase::Json
{

/**
 * A JSON object: members, each a key and a value, in the order in which the keys were first set. A key is
 * there once. Looking a key up takes the same time in a large object as in a small one.
 *
 * References and iterators to a member stay valid until that member is erased or the object is assigned to
 * or destroyed, so `object["a"] = object["b"]` is safe. Threads: as Value.
 */
class TAVBASE_API Object
{
public:
    /// A key and its value.
    struct Member
    {
        const std::string key; ///< UTF-8; there once in the object
        Value value;           ///< of the key
    };

    using iterator = std::list<Member>::iterator;             ///< over the members, in their order
    using const_iterator = std::list<Member>::const_iterator; ///< likewise

    Object() noexcept;                          ///< empty
    Object(const Object& other);                ///< a whole copy
    Object(Object&& other) noexcept;            ///< leaves `other` empty
    Object& operator=(const Object& other);     ///< a whole copy
    Object& operator=(Object&& other) noexcept; ///< leaves `other` empty
    ~Object();

    std::size_t Size() const noexcept { return members.size(); } ///< how many members

    bool IsEmpty() const noexcept { return members.empty(); } ///< no member

    bool HasKey(const std::string& key) const; ///< true when it is there

    /// The value of the key. A key that is not there is added at the end, with null as its value.
    Value& operator[](const char* key);        ///< @throws JsonException when `key` is a null pointer
    Value& operator[](const std::string& key); ///< likewise

    /// The value of the key. @throws JsonException when it is not there, or `key` is a null pointer
    const Value& operator[](const char* key) const;
    const Value& operator[](const std::string& key) const; ///< likewise

    bool Erase(const std::string& key); ///< false when the key was not there

    iterator begin() noexcept { return members.begin(); } ///< the first member

    iterator end() noexcept { return members.end(); } ///< behind the last one

    const_iterator begin() const noexcept { return members.begin(); } ///< the first member

    const_iterator end() const noexcept { return members.end(); } ///< behind the last one

private:
    friend class Value;

    Value* Find(std::string_view key) const;
    Value& FindOrAdd(std::string_view key);
    const Value& FindOrThrow(std::string_view key) const;
    Value& Add(std::string_view key);
    void Swap(Object& other) noexcept;

    std::list<Member> members;
    std::unordered_map<std::string_view, iterator> index; ///< the keys are those of the members
};

}

#endif
