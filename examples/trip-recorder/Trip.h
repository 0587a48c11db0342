#ifndef EXAMPLES_TRIP_RECORDER_TRIP_H
#define EXAMPLES_TRIP_RECORDER_TRIP_H

#include "examples/common/Nmea.h"

#include <string>
#include <sys/types.h>

namespace TripRecorder
{

/// A text file that grows, and is whole at any time: a tail closes it, which the next piece overwrites.
/// Operations throw std::system_error, and may be tried again.
class TripFile
{
public:
    TripFile(const std::string& path, const std::string& head, std::string itsTail);
    TripFile(const TripFile&) = delete;
    TripFile& operator=(const TripFile&) = delete;
    ~TripFile();

    void Append(const std::string& piece);
    void Sync() const; ///< what was appended outlives a loss of power

private:
    int file;
    off_t size = 0; ///< without the tail
    std::string tail;
};

/// A trip on the storage card: NAME.csv for tables, NAME.gpx for maps. A loss of power takes its last five
/// positions at most. Operations throw std::system_error where the card fails, and may be tried again.
class Trip
{
public:
    /// Its files are made, or made anew, and their names synced.
    Trip(const std::string& directory, const std::string& theName);

    /// @param remark what is remarkable there: it is synced at once
    void Add(const Examples::Block& block, const std::string& driver, const std::string& remark);
    void Sync();

    const std::string name;

private:
    TripFile table;
    TripFile map;
    int unsynced = 0; ///< positions
};

}

#endif
