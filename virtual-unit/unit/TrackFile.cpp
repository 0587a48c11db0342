#include "virtual-unit/unit/TrackFile.h"

#include "virtual-unit/peripherals/Geography.h"
#include "virtual-unit/unit/CsvTable.h"
#include "virtual-unit/unit/Values.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <functional>
#include <system_error>

namespace VirtualUnit
{

namespace
{

using boost::property_tree::ptree;

constexpr double MOST_LATITUDE = 90;
constexpr double MOST_LONGITUDE = 180;
constexpr double FASTEST = 1000; // kilometres per hour

/// A point as it is written.
struct Point
{
    std::string where; ///< for people
    std::string time;
    std::string latitude;
    std::string longitude;
    std::string speed; ///< empty: not told
};

/// An element's name without its namespace.
std::string LocalName(const std::string& name)
{
    return name.substr(name.find(':') + 1); // without a colon: from 0 on
}

/// The text of the first element of that name below `tree`; empty: there is none.
std::string FindText(const ptree& tree, const std::string& name)
{
    for (const auto& [key, below] : tree)
    {
        if (LocalName(key) == name)
        {
            return below.data();
        }
        if (std::string found = FindText(below, name); !found.empty())
        {
            return found;
        }
    }
    return {};
}

void ForEach(const ptree& tree, const std::string& name, const std::function<void(const ptree&)>& take)
{
    for (const auto& [key, below] : tree)
    {
        if (LocalName(key) == name)
        {
            take(below);
        }
    }
}

std::vector<Point> GpxPoints(std::istream& text)
{
    ptree tree;
    try
    {
        boost::property_tree::read_xml(text, tree, boost::property_tree::xml_parser::trim_whitespace);
    }
    catch (const boost::property_tree::xml_parser_error& failure)
    {
        throw Values::Wrong("line " + std::to_string(failure.line()) + ": " + failure.message());
    }
    std::vector<Point> points;
    int number = 0;
    const auto addPoint = [&](const ptree& point) {
        ++number;
        if (const std::string time = FindText(point, "time"); !time.empty())
        {
            points.push_back({"point " + std::to_string(number), time, point.get("<xmlattr>.lat", ""),
                              point.get("<xmlattr>.lon", ""), FindText(point, "speed")});
        }
    };
    ForEach(tree, "gpx", [&](const ptree& gpx) {
        ForEach(gpx, "trk", [&](const ptree& track) {
            ForEach(track, "trkseg", [&](const ptree& segment) { ForEach(segment, "trkpt", addPoint); });
        });
    });
    return points;
}

std::vector<Point> CsvPoints(std::istream& text)
{
    std::vector<Point> points;
    const CsvTable table(text, {"time", "latitude", "longitude"}, {"speed"});
    for (const CsvTable::Row& row : table.Rows())
    {
        points.push_back(
            {"line " + std::to_string(row.line), row.values[0], row.values[1], row.values[2], row.values[3]});
    }
    return points;
}

bool IsDate(const std::string& time)
{
    return time.find(':') != std::string::npos || time.find('-', 1) != std::string::npos;
}

double Seconds(const std::string& time)
{
    constexpr double MOST = 1e12;
    return IsDate(time) ? std::chrono::duration<double>(Values::Moment(time).time_since_epoch()).count()
                        : Values::Real(time, -MOST, MOST, "a number of seconds");
}

}

TrackFile TrackFile::Parse(std::istream& text)
{
    const bool gpx = (text >> std::ws).peek() == '<';
    const double speedUnit = gpx ? 1 : 1 / Geography::KILOMETRES_PER_HOUR_PER_METRE_PER_SECOND;
    TrackFile track;
    double begin = 0;
    for (const Point& point : gpx ? GpxPoints(text) : CsvPoints(text))
    {
        try
        {
            const double time = Seconds(point.time);
            if (track.fixes.empty())
            {
                begin = std::floor(time);
                if (IsDate(point.time))
                {
                    track.begin = std::chrono::sys_seconds(std::chrono::seconds(std::llround(begin)));
                }
            }
            Drive::Fix fix{time - begin,
                           Values::Real(point.latitude, -MOST_LATITUDE, MOST_LATITUDE, "a latitude"),
                           Values::Real(point.longitude, -MOST_LONGITUDE, MOST_LONGITUDE, "a longitude"),
                           {}};
            if (!point.speed.empty())
            {
                fix.metresPerSecond = Values::Real(point.speed, 0, FASTEST, "a speed") * speedUnit;
            }
            const double last = track.fixes.empty() ? -1 : track.fixes.back().seconds;
            if (fix.seconds < last)
            {
                Values::Refuse(point.time, "earlier than the point before");
            }
            if (fix.seconds > last) // loggers write a point twice now and then
            {
                track.fixes.push_back(fix);
            }
        }
        catch (const Values::Wrong& wrong)
        {
            throw Values::Wrong(point.where + ": " + wrong.what());
        }
    }
    if (track.fixes.empty())
    {
        throw Values::Wrong("it has no point with a time");
    }
    return track;
}

TrackFile TrackFile::Read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file || file.peek() == std::ifstream::traits_type::eof())
    {
        throw Values::Wrong(path + (file.is_open()
                                        ? " holds nothing"
                                        : " cannot be read: " + std::generic_category().message(errno)));
    }
    try
    {
        return Parse(file);
    }
    catch (const Values::Wrong& wrong)
    {
        throw Values::Wrong(path + ": " + wrong.what());
    }
}

}
