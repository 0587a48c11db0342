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
    struct Member
    {
        const std::string key;
        Value value;
    };

    using iterator = std::list<Member>::iterator;
    using const_iterator = std::list<Member>::const_iterator;

    Object() noexcept;
    Object(const Object& other);
    Object(Object&& other) noexcept; ///< leaves `other` empty
    Object& operator=(const Object& other);
    Object& operator=(Object&& other) noexcept; ///< leaves `other` empty
    ~Object();

    std::size_t Size() const noexcept { return members.size(); }

    bool IsEmpty() const noexcept { return members.empty(); }

    bool HasKey(const std::string& key) const;

    /// The value of the key. A key that is not there is added at the end, with null as its value.
    Value& operator[](const char* key); ///< @throws JsonException when `key` is a null pointer
    Value& operator[](const std::string& key);

    /// The value of the key. @throws JsonException when it is not there, or `key` is a null pointer
    const Value& operator[](const char* key) const;
    const Value& operator[](const std::string& key) const;

    bool Erase(const std::string& key); ///< false when the key was not there

    iterator begin() noexcept { return members.begin(); }

    iterator end() noexcept { return members.end(); }

    const_iterator begin() const noexcept { return members.begin(); }

    const_iterator end() const noexcept { return members.end(); }

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
