// A script, line by line: it is refused with the line's number, or its cues are in order.

#include "virtual-unit/script/Script.h"

#include "tests/fuzz/Target.h"
#include "tests/kit/TempDir.h"

#include <chrono>
#include <fstream>
#include <string>

FUZZ_TARGET(Script)
{
    using namespace VirtualUnit;
    using namespace std::chrono_literals;
    const std::string path = Kit::TempDir::Path() + "/fuzz.script";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << input;
    UnitOptions options;
    try
    {
        const Script script = Script::Read(path, options);
        int line = 0;
        for (const Script::Cue& cue : script.cues)
        {
            FUZZ_REQUIRE(cue.line > line);
            FUZZ_REQUIRE(!cue.words.empty());
            FUZZ_REQUIRE(cue.sign.has_value() != cue.step.has_value());
            FUZZ_REQUIRE(!cue.expectation || cue.sign);
            FUZZ_REQUIRE(cue.time >= 0ms && cue.time <= 24h);
            line = cue.line;
        }
    }
    catch (const Script::Wrong& wrong)
    {
        FUZZ_REQUIRE(std::string(wrong.what()).starts_with(path + ":"));
    }
}
