// A recorded drive as GPX or CSV, and the drive that becomes of it.

#include "virtual-unit/unit/TrackFile.h"

#include "tests/fuzz/Target.h"
#include "virtual-unit/peripherals/Drive.h"
#include "virtual-unit/unit/Values.h"

#include <cmath>
#include <sstream>
#include <string>

FUZZ_TARGET(TrackFile)
{
    using namespace VirtualUnit;
    std::istringstream text{std::string(input)};
    TrackFile track;
    try
    {
        track = TrackFile::Parse(text);
    }
    catch (const Values::Wrong&)
    {
        return;
    }
    FUZZ_REQUIRE(!track.fixes.empty());
    double last = -1;
    for (const Drive::Fix& fix : track.fixes)
    {
        FUZZ_REQUIRE(fix.seconds >= 0 && fix.seconds > last);
        FUZZ_REQUIRE(std::abs(fix.latitude) <= 90 && std::abs(fix.longitude) <= 180);
        FUZZ_REQUIRE(!fix.metresPerSecond || *fix.metresPerSecond >= 0);
        last = fix.seconds;
    }
    const Drive drive(track.fixes);
    FUZZ_REQUIRE(drive.Seconds() == last);
    for (const double part : {0.0, 0.1, 0.5, 0.999, 1.0, 1.5})
    {
        const Drive::Moment moment = drive.At(part * drive.Seconds());
        FUZZ_REQUIRE(std::abs(moment.point.latitude) <= 90 && std::abs(moment.point.longitude) <= 180);
        FUZZ_REQUIRE(moment.point.course >= 0 && moment.point.course < 360);
        FUZZ_REQUIRE(std::isfinite(moment.point.knots) && moment.point.knots >= 0);
        FUZZ_REQUIRE(std::isfinite(moment.ahead) && std::isfinite(moment.right));
    }
}
