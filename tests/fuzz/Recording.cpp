// A port's recording: what is read is written and read back as the same, line by line and as a whole.

#include "virtual-unit/recording/Recording.h"

#include "tests/fuzz/Target.h"
#include "tests/kit/TempDir.h"
#include "virtual-unit/recording/PortFormat.h"
#include "virtual-unit/recording/RequestText.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

FUZZ_TARGET(Recording)
{
    using namespace VirtualUnit;
    const std::vector<std::string> ports = {"/dev/ttymxc0", "/dev/ttymxc2", "/dev/i2c-1",
                                            PortRecording::PROGRAM};
    const std::string folder = Kit::TempDir::Path() + "/recording";
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/fuzz.port", std::ios::binary | std::ios::trunc) << input;
    Recording recording;
    try
    {
        recording = Recording::Open(folder, ports);
    }
    catch (const Recording::Wrong&)
    {
        return;
    }
    for (const std::string& name : ports)
    {
        const PortRecording& port = recording.Port(name);
        FUZZ_REQUIRE(port.port == name);
        port.PresenceChanges();
        port.Signals();
        for (PortEntry entry : port.entries)
        {
            entry.line = 0;
            FUZZ_REQUIRE(PortFormat::Parse(PortFormat::Line(entry)) == entry);
            for (const PortEntry::Exchange& exchange : entry.exchanges)
            {
                const auto outcome = RequestText::Decode(exchange.request, exchange.answer);
                FUZZ_REQUIRE(outcome.has_value());
            }
        }
    }
}
