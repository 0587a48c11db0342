// Samples of what the accelerometer feels, as CSV.

#include "virtual-unit/unit/MotionFile.h"

#include "tests/fuzz/Target.h"
#include "virtual-unit/unit/Values.h"

#include <cmath>
#include <sstream>
#include <string>

FUZZ_TARGET(MotionFile)
{
    using namespace VirtualUnit;
    std::istringstream text{std::string(input)};
    try
    {
        const MotionFile file(text);
        for (const double seconds : {0.0, 0.01, 0.5, 1.0, 1.7, 10.0, 1e4, 1e9, 2e9})
        {
            constexpr double MOST = 100.001;
            const Motion::Acceleration felt = file.At(seconds);
            FUZZ_REQUIRE(std::abs(felt.x) < MOST && std::abs(felt.y) < MOST && std::abs(felt.z) < MOST);
        }
    }
    catch (const Values::Wrong&)
    {
    }
}
