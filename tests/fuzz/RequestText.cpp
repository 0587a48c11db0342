// A request and its answer as text (the first line, the rest), and any bytes as text: what is understood is
// written again with the same meaning.

#include "virtual-unit/recording/RequestText.h"

#include "tests/fuzz/Target.h"
#include "virtual-unit/recording/ByteText.h"

#include <optional>
#include <string>

FUZZ_TARGET(RequestText)
{
    using namespace VirtualUnit;
    Fuzz::Input lines(input);
    const std::string request(lines.Line());
    const std::string answer(lines.Line());
    if (const auto outcome = RequestText::Decode(request, answer))
    {
        FUZZ_REQUIRE(RequestText::Decode(request, RequestText::Encode(request, *outcome)) == outcome);
    }
    static_cast<void>(RequestText::Channel(request));
    static_cast<void>(RequestText::NameOf(request));

    for (const std::string& text : {ByteText::Of(input), ByteText::Quoted(input)})
    {
        TextCursor cursor(text);
        const std::optional<std::string> bytes = ByteText::Take(cursor);
        FUZZ_REQUIRE(bytes == input);
        FUZZ_REQUIRE(cursor.AtEnd());
    }
    TextCursor cursor(input);
    if (const std::optional<std::string> bytes = ByteText::Take(cursor))
    {
        const std::string text = ByteText::Of(*bytes);
        TextCursor again(text);
        FUZZ_REQUIRE(ByteText::Take(again) == bytes);
    }
}
