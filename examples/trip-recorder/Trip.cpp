#include "examples/trip-recorder/Trip.h"

#include <cerrno>
#include <fcntl.h>
#include <iomanip>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace TripRecorder
{

namespace
{

constexpr int MOST_UNSYNCED = 5; // each sync wears the card
constexpr mode_t ALL_MAY_READ = 0644;

constexpr const char* TABLE_HEAD = "time,latitude,longitude,kmh,driver,remark\n";
constexpr const char* MAP_HEAD = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                 "<gpx version=\"1.1\" creator=\"trip-recorder\" "
                                 "xmlns=\"http://www.topografix.com/GPX/1/1\"><trk><trkseg>\n";
constexpr const char* MAP_TAIL = "</trkseg></trk></gpx>\n";

void Check(bool good, const std::string& what)
{
    if (!good)
    {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// A file that is synced may still be lost: its name stands in the directory.
void SyncNames(const std::string& directory)
{
    const int names = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = fsync(names) == 0;
    close(names);
    Check(synced, directory);
}

}

TripFile::TripFile(const std::string& path, const std::string& head, std::string itsTail)
    : file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, ALL_MAY_READ)),
      tail(std::move(itsTail))
{
    Check(file >= 0, path);
    try
    {
        Append(head);
    }
    catch (...)
    {
        close(file); // no destructor does
        throw;
    }
}

TripFile::~TripFile()
{
    close(file);
}

void TripFile::Append(const std::string& piece)
{
    const std::string text = piece + tail;
    errno = ENOSPC; // which a write of a part does not tell
    Check(pwrite(file, text.data(), text.size(), size) == static_cast<ssize_t>(text.size()), "write");
    size += static_cast<off_t>(piece.size());
}

void TripFile::Sync() const
{
    Check(fsync(file) == 0, "fsync");
}

Trip::Trip(const std::string& directory, const std::string& theName)
    : name(theName), table(directory + "/" + name + ".csv", TABLE_HEAD, ""),
      map(directory + "/" + name + ".gpx", MAP_HEAD, MAP_TAIL)
{
    Sync();
    SyncNames(directory);
}

void Trip::Add(const Examples::Block& block, const std::string& driver, const std::string& remark)
{
    const std::string moment = block.date + "T" + block.time + "Z";
    std::ostringstream row;
    row << std::fixed << std::setprecision(6) << moment << "," << block.position->latitude << ","
        << block.position->longitude << "," << std::setprecision(1) << block.kilometresPerHour.value_or(0)
        << "," << driver << "," << remark << "\n";
    table.Append(row.str());

    std::ostringstream point;
    point << std::fixed << std::setprecision(6) << "<trkpt lat=\"" << block.position->latitude << "\" lon=\""
          << block.position->longitude << "\"><time>" << moment << "</time>"
          << (remark.empty() ? "" : "<cmt>" + remark + "</cmt>") << "</trkpt>\n";
    map.Append(point.str());

    if (++unsynced >= MOST_UNSYNCED || !remark.empty())
    {
        Sync();
    }
}

void Trip::Sync()
{
    table.Sync();
    map.Sync();
    unsynced = 0;
}

}
