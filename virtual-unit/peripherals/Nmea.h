#ifndef VIRTUAL_UNIT_PERIPHERALS_NMEA_H
#define VIRTUAL_UNIT_PERIPHERALS_NMEA_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// NMEA 0183 sentences as an emulated receiver writes and reads them.
namespace VirtualUnit::Nmea
{

unsigned int CheckSum(std::string_view body); ///< exclusive or of all bytes, 0 to 255

std::string Sentence(std::string_view body); ///< "$" body "*" check sum, carriage return and line feed

/// What stands between '$' and '*' of one line (with or without its end), when its check sum is right;
/// otherwise empty.
std::string_view Body(std::string_view line);

std::string Latitude(double degrees);  ///< the two fields "ddmm.mmmm,N"; north is positive
std::string Longitude(double degrees); ///< the two fields "dddmm.mmmm,E"; east is positive

using Epoch = std::vector<std::string>; ///< the sentences of one second, each with its line end

using Moment = std::chrono::sys_time<std::chrono::milliseconds>;

/// UTC of an epoch, as its RMC sentence tells it; on the first day of 1970 when that has no date; none when
/// it has no time either.
std::optional<Moment> TimeOf(const Epoch& epoch);

/// A sentence as the receiver would have sent it so much later: times of day and dates are moved, check sums
/// right where they were.
std::string Later(const std::string& sentence, std::chrono::milliseconds time);

/// A sentence as a receiver without satellites sends it: RMC, VTG, GGA, GNS, GLL and GSA tell neither
/// position nor speed, GSV no signals. Its check sum is right where it was.
std::string WithoutFix(const std::string& sentence);

/// Where a receiver puts the RMC sentence among those of a second.
enum class RmcPosition
{
    First,
    Last
};

/**
 * Cuts recorded text into seconds, each with one RMC sentence. Lines that do not begin with '$' (comments,
 * blank lines) are left out; line ends become carriage return and line feed. What stands before the first
 * RMC of an RmcPosition::First recording, or behind the last one of the other kind, belongs to that
 * second; text without any RMC is one second.
 */
std::vector<Epoch> Epochs(std::string_view text, RmcPosition position);

}

#endif
