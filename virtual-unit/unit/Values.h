#ifndef VIRTUAL_UNIT_UNIT_VALUES_H
#define VIRTUAL_UNIT_UNIT_VALUES_H

#include "virtual-unit/peripherals/CellularState.h"

#include <chrono>
#include <stdexcept>
#include <string>

/// The values that a user writes, on the command line, in a script and in a step.
namespace VirtualUnit::Values
{

/// Something that cannot be understood; what() says why, as "\"x\" is neither l26 nor skm53".
class Wrong : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void Refuse(const std::string& value, const std::string& reason); ///< @throws Wrong

/// @param what the number is, for the message: "a number of seconds" @throws Wrong
unsigned int Number(const std::string& value, unsigned int least, unsigned int most,
                    const std::string& what = "a number");

/// Up to a day, with or without a fraction. @throws Wrong
std::chrono::milliseconds Seconds(const std::string& value);

std::string SecondsText(std::chrono::milliseconds time); ///< the other way round: "7", "2.5"

std::string Key(const std::string& value); ///< empty for "none" @throws Wrong

double Real(const std::string& value, double least, double most,
            const std::string& what = "a number"); ///< @throws Wrong

/// A moment as ISO 8601 writes it: 2026-03-01T08:15:00Z, with fractions of seconds if need be, with +01:00 in
/// place of the Z. Without either it is UTC, without a time the begin of the day. @throws Wrong
std::chrono::sys_time<std::chrono::milliseconds> Moment(const std::string& value);

int Signal(const std::string& value); ///< as AT+CSQ tells it @throws Wrong

CellularState::Registration Registration(const std::string& value); ///< @throws Wrong

}

#endif
