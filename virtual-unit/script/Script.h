#ifndef VIRTUAL_UNIT_SCRIPT_SCRIPT_H
#define VIRTUAL_UNIT_SCRIPT_SCRIPT_H

#include "virtual-unit/script/Step.h"
#include "virtual-unit/unit/UnitOptions.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace VirtualUnit
{

/**
 * What happens to the unit in the course of a run, and what is expected of the program, as a text: one thing
 * a line, blank lines and what follows a '#' (at the begin of a line or behind a blank) are left out.
 *
 *     unit gps skm53             how the unit is fitted: an option of the command line, without its dashes
 *     2.5 ignition on            a step, so many seconds after the program has begun
 *     +0.5 key 00A1B2C3D4E5      a step, so long after the line before
 *     when modem hears AT+COPS   goes on when the application has sent that text to the port
 *     when gps says $GPTXT       ... when the port has sent it
 *     when reader opened         ... when the application has opened the port, once more for each such line
 *     when program prints ready  ... when the program has written it to its standard output or error
 *     when pin 103 = 1           ... when the event driver's pin is driven so
 *     expect pin 103 = 1 within 2        the same signs: each is to come so long after the line before
 *     expect no modem hears AT+QPOWD within 10     ... or is not to come; the script goes on afterwards
 *
 * Lines are carried out in their order, and steps of time 0 that stand first before the program begins; one
 * whose time has passed already is carried out at once. A "when" looks for its text behind the one that the
 * latest "when" of the same port and direction has found; an "expect", besides, at what came since the line
 * before was carried out. Without "within" an expectation lasts until the program ends. The text ends with
 * the line; \r, \n, \t, \\ and \xHH stand for bytes.
 */
class Script
{
public:
    /// A file that cannot be read, or a line that cannot be understood: "FILE:3: ...".
    class Wrong : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Something that is waited for.
    struct Sign
    {
        enum class Kind
        {
            Hears, ///< the application has sent `text`, or made that request
            Says,  ///< the port has sent `text`
            Opened,
            Prints, ///< the program has written `text`
            Pin     ///< `pin` is driven with `value`
        };

        static constexpr const char* PROGRAM = "program"; ///< in place of a port's name

        std::string port; ///< its name
        Kind kind = Kind::Opened;
        std::string text;
        unsigned int pin = 0;
        unsigned int value = 0;
    };

    /// What is said about a sign.
    struct Expectation
    {
        bool absent = false;
        std::optional<std::chrono::milliseconds> within; ///< none: until the program ends
    };

    /// One line: a sign, which may be an expectation, or else a step and when it is due.
    struct Cue
    {
        int line = 0;
        std::string words; ///< of the line, as they were given
        std::chrono::milliseconds time{0};
        bool fromLineBefore = false; ///< `time` counts from the line before, not from the begin
        std::optional<Sign> sign;
        std::optional<Expectation> expectation;
        std::optional<Step> step;
    };

    /// @param options take what the lines "unit" say @throws Wrong
    static Script Read(const std::string& path, UnitOptions& options);

    std::vector<Cue> cues; ///< in their order
};

}

#endif
