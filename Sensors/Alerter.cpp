#include "Sensors/Alerter.h"

#include <cstddef>

namespace Tavdevice
{

struct Alerter::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has virtual operations
    static_assert(offsetof(Alerter, busy) < offsetof(Alerter, level));
#pragma GCC diagnostic pop
};

bool Alerter::isPresent = false;

Alerter::Alerter() = default;

Alerter::~Alerter() = default;

}
