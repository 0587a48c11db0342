#ifndef VIRTUAL_UNIT_UNIT_MOTIONFILE_H
#define VIRTUAL_UNIT_UNIT_MOTIONFILE_H

#include "virtual-unit/peripherals/Motion.h"

#include <istream>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What was felt, as CSV with the columns time (seconds), x, y and z (g). Between two samples it changes
/// evenly; the first one holds from ever, the last one for good.
class MotionFile
{
public:
    explicit MotionFile(std::istream& text); ///< @throws Values::Wrong

    static MotionFile Read(const std::string& path); ///< @throws Values::Wrong

    Motion::Acceleration At(double seconds) const;

private:
    struct Sample
    {
        double seconds;
        Motion::Acceleration felt;
    };

    std::vector<Sample> samples;
};

}

#endif
