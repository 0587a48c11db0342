#include "base/Tavbase/Json/Object.h"

#include "base/Tavbase/Json/JsonException.h"

#include <utility>

namespace Tavbase::Json
{

namespace
{

std::string_view RequireKey(const char* key)
{
    if (key == nullptr)
    {
        throw JsonException("a null pointer was given as a key");
    }
    return key;
}

}

Object::Object() noexcept = default;

Object::Object(const Object& other)
{
    for (const Member& member : other)
    {
        Add(member.key) = member.value;
    }
}

Object::Object(Object&& other) noexcept
{
    Swap(other);
}

// An assignment first takes the new content away, because `other` may lie inside the old one.
Object& Object::operator=(const Object& other)
{
    return *this = Object(other);
}

Object& Object::operator=(Object&& other) noexcept
{
    Object taken(std::move(other));
    Swap(taken);
    return *this;
}

Object::~Object() = default;

bool Object::HasKey(const std::string& key) const
{
    return Find(key) != nullptr;
}

Value& Object::operator[](const char* key)
{
    return FindOrAdd(RequireKey(key));
}

Value& Object::operator[](const std::string& key)
{
    return FindOrAdd(key);
}

const Value& Object::operator[](const char* key) const
{
    return FindOrThrow(RequireKey(key));
}

const Value& Object::operator[](const std::string& key) const
{
    return FindOrThrow(key);
}

bool Object::Erase(const std::string& key)
{
    const auto entry = index.find(key);
    if (entry == index.end())
    {
        return false;
    }
    const iterator member = entry->second;
    index.erase(entry);
    members.erase(member);
    return true;
}

Value* Object::Find(std::string_view key) const
{
    const auto entry = index.find(key);
    return entry == index.end() ? nullptr : &entry->second->value;
}

Value& Object::FindOrAdd(std::string_view key)
{
    Value* const value = Find(key);
    return value != nullptr ? *value : Add(key);
}

const Value& Object::FindOrThrow(std::string_view key) const
{
    const Value* const value = Find(key);
    if (value == nullptr)
    {
        throw JsonException("the object has no key \"" + std::string(key) + '"');
    }
    return *value;
}

Value& Object::Add(std::string_view key)
{
    std::list<Member> added;
    added.push_back({std::string(key), Value()});
    const iterator member = added.begin();
    index.emplace(member->key, member);
    members.splice(members.end(), added);
    return member->value;
}

void Object::Swap(Object& other) noexcept
{
    members.swap(other.members);
    index.swap(other.index);
}

}
