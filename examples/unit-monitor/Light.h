#ifndef EXAMPLES_UNIT_MONITOR_LIGHT_H
#define EXAMPLES_UNIT_MONITOR_LIGHT_H

namespace UnitMonitor
{

/// What one of the front LEDs shows.
enum class Light
{
    Off,
    Green,
    Red,
    RedBlink450 ///< 450 ms on, 450 ms off
};

}

#endif
