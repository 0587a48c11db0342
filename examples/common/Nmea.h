#ifndef EXAMPLES_COMMON_NMEA_H
#define EXAMPLES_COMMON_NMEA_H

#include <optional>
#include <string>
#include <string_view>

/// What the examples understand of NMEA 0183: the RMC and GGA sentences of any talker.
namespace Examples
{

struct Coordinates
{
    double latitude;  ///< degrees, north positive
    double longitude; ///< degrees, east positive
};

/// What one block of the library tells. What it does not tell is empty.
struct Block
{
    std::string date;                        ///< UTC, "2026-03-01"
    std::string time;                        ///< UTC, "08:15:01"
    bool hasRmc = false;                     ///< it tells whether there is a fix
    bool fix = false;                        ///< the receiver vouches for the position
    std::optional<Coordinates> position;     ///< only with a fix
    std::optional<int> satellites;           ///< used for the position
    std::optional<double> kilometresPerHour; ///< over ground; only with a fix
    std::optional<double> course;            ///< degrees from true north; only with a fix
    int sentences = 0;                       ///< all kinds together
    int badSentences = 0;                    ///< with a wrong check sum; passed over
};

/// What is known of the check sum at the end of a sentence.
enum class CheckSum
{
    Right,
    Wrong,
    Missing ///< which some makers' own sentences leave out
};

/// @param sentence from '$' on, with or without its line end
CheckSum CheckSumOf(std::string_view sentence);

/// Reads all sentences of a block; what is not a sentence is passed over.
Block ParseBlock(std::string_view text);

std::string Readable(const Coordinates& position); ///< "48.20021° N   16.37004° E"

double MetresBetween(const Coordinates& from, const Coordinates& to); ///< on a sphere

}

#endif
