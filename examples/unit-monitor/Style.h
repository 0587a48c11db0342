#ifndef EXAMPLES_UNIT_MONITOR_STYLE_H
#define EXAMPLES_UNIT_MONITOR_STYLE_H

namespace UnitMonitor
{

/// What a terminal and its user want to see, by the environment.
struct Style
{
    static Style OfEnvironment(); ///< while nobody changes it

    /// It can do nothing but write lines (TERM is "dumb").
    static bool IsDumb();

    bool colours = true; ///< and other attributes; false: NO_COLOR is set, to anything but nothing
    bool utf8 = true;    ///< false: the locale (LC_ALL, LC_CTYPE or LANG) is none with UTF-8; ASCII then
};

}

#endif
