// The file that keeps the last driver ID, whatever it holds: an ID of 12 characters, or none; and what is
// saved, which is loaded again.

#include "DriverId/DriverIdRecord.h"

#include "tests/fuzz/Target.h"
#include "tests/kit/TempDir.h"

#include <filesystem>
#include <fstream>
#include <string>

FUZZ_TARGET(DriverIdRecord)
{
    const std::string path = Kit::TempDir::Path() + "/driver-id.json";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << input;
    const TavDevice::DriverIdRecord record(path);
    std::string id = "untouched";
    const bool loaded = record.Load(id);
    FUZZ_REQUIRE(loaded ? id.size() == 12 : id == "untouched");

    const std::string saved(input.substr(0, 12));
    record.Save(saved);
    std::string again;
    if (record.Load(again))
    {
        FUZZ_REQUIRE(again == saved && saved != "000000000000");
    }
    else
    {
        FUZZ_REQUIRE(!std::filesystem::exists(path));
    }
}
