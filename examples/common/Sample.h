#ifndef EXAMPLES_COMMON_SAMPLE_H
#define EXAMPLES_COMMON_SAMPLE_H

#include "AccDevice/AccDevice.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <vector>

namespace Examples
{

/// What the accelerometer has measured at one time, in g.
struct Sample
{
    /// The samples of one batch, as an AccDevice delivers it. @param scale the device's
    static std::vector<Sample> Of(const TavubufferDynamic& batch,
                                  Tavdevice::ACC::AccDevice::GForceScale scale);

    double Magnitude() const; ///< 1 at rest

    double x, y, z;
};

}

#endif
