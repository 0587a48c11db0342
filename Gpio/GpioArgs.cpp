#include "Gpio/GpioArgs.h"

namespace Tavdevice::Gpio
{

GpioArgs::~GpioArgs() = default;

}
