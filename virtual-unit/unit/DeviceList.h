#ifndef VIRTUAL_UNIT_UNIT_DEVICELIST_H
#define VIRTUAL_UNIT_UNIT_DEVICELIST_H

#include "virtual-unit/unit/Unit.h"

#include <string>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/// The device files of a unit, what stands behind them and how it is, at one moment. During the service.
class DeviceList
{
public:
    /// @param sdcard the directory that keeps the card's content; empty: a private one
    DeviceList(Unit& unit, const std::string& sdcard);

    std::string Text() const; ///< for people, a line each

    /// For programs: {"devices": [{"name": "gps", "path": "/dev/ttymxc0", "state": "..."}, ...],
    /// "refused": ["/dev/ttymxc1", ...]}, and a line feed.
    std::string Json() const;

private:
    struct Row
    {
        std::string name;
        std::string path;
        std::string state;
    };

    std::vector<Row> served;
    std::vector<std::string> refused; ///< patterns
};

}

#endif
