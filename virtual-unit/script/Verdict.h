#ifndef VIRTUAL_UNIT_SCRIPT_VERDICT_H
#define VIRTUAL_UNIT_SCRIPT_VERDICT_H

#include <chrono>
#include <string>

namespace VirtualUnit
{

/// What became of a line of a script.
struct Verdict
{
    int line = 0;
    std::string words;                       ///< of the line: "expect pin 103 = 1 within 2"
    std::string fault;                       ///< what came in place of what is expected; empty: all is well
    std::chrono::duration<double> lasted{0}; ///< so long it was waited for
};

}

#endif
