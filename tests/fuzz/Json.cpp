// A JSON text: it is refused at a place within it, or what was read is written and read back as the same.

#include "base/Tavbase/Json/Json.h"

#include "base/Tavbase/Json/JsonException.h"
#include "tests/base/Tavbase/Json/Documents.h"
#include "tests/fuzz/Target.h"
#include "virtual-unit/common/Escapes.h"

#include <optional>
#include <string>

FUZZ_TARGET(Json)
{
    using namespace Tavbase::Json;
    const std::string text(input);
    std::optional<Value> value;
    try
    {
        value = Deserialize(text);
    }
    catch (const JsonException& refused)
    {
        FUZZ_REQUIRE(refused.Offset() <= text.size() && refused.Line() >= 1 && refused.Column() >= 1);
    }
    if (value)
    {
        const std::string written = Serialize(*value);
        const Value again = Deserialize(written);
        FUZZ_REQUIRE(JsonTest::IsSame(*value, again));
        FUZZ_REQUIRE(Serialize(again) == written);
        const Value copy = *value;
        value = true;
        FUZZ_REQUIRE(Serialize(copy) == written);
    }

    // Any bytes become a string, and those that are none of a document are told.
    const Value escaped = Deserialize(VirtualUnit::Escapes::Json(input));
    FUZZ_REQUIRE(escaped.IsString());
    static_cast<void>(VirtualUnit::Escapes::Xml(input));
}
