#ifndef TESTS_BASE_TAVBASE_JSON_DOCUMENTS_H
#define TESTS_BASE_TAVBASE_JSON_DOCUMENTS_H

#include "base/Tavbase/Json/Json.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace JsonTest
{

/// Makes documents by a seed: the same seed gives the same documents, in every run.
class Documents
{
public:
    explicit Documents(std::uint64_t seed) : random(seed) {}

    /// A value of any type, with up to `depth` arrays and objects inside each other.
    Tavbase::Json::Value Make(int depth);

    /// A string of characters of every length in UTF-8, control characters and quotes among them.
    std::string MakeString();

    /// The text with one to four bytes changed, put in, taken out or doubled. No byte becomes zero.
    std::string Damage(std::string text);

    std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random() % limit); }

private:
    Tavbase::Json::Value MakeNumber();
    std::uint32_t MakeCharacter();

    std::mt19937_64 random;
};

/// A character in UTF-8, put together by the definition in RFC 3629, section 3.
std::string ToUtf8(std::uint32_t character);

/// The same types, numbers (to the bit), texts, elements and members in the same order.
bool IsSame(const Tavbase::Json::Value& a, const Tavbase::Json::Value& b);

}

#endif
