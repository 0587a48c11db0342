#include "virtual-unit/unit/DeviceList.h"

#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/common/Escapes.h"
#include "virtual-unit/ports/DeviceTable.h"

#include <algorithm>

namespace VirtualUnit
{

namespace
{

std::string Line(std::string path, const std::string& state)
{
    constexpr std::size_t COLUMN = 22;
    path.resize(std::max(path.size(), COLUMN), ' ');
    return path + " " + state + "\n";
}

}

DeviceList::DeviceList(Unit& unit, const std::string& sdcard) : refused(DeviceTable::UnitPaths())
{
    for (const Unit::Status& port : unit.State())
    {
        served.push_back({port.name, port.path, port.state});
    }
    served.push_back(
        {"card", UnitPath::CARD,
         "storage card, " + (sdcard.empty() ? "empty at first, gone after the run" : "kept in " + sdcard)});
}

std::string DeviceList::Text() const
{
    std::string text;
    for (const Row& row : served)
    {
        text += Line(row.path, row.state);
    }
    for (const std::string& pattern : refused)
    {
        text += Line(pattern, "refused, but for what is served above");
    }
    return text;
}

std::string DeviceList::Json() const
{
    std::string text = "{\"devices\": [";
    for (const Row& row : served)
    {
        text += std::string(text.ends_with('[') ? "" : ",") + "\n  {\"name\": " + Escapes::Json(row.name) +
                ", \"path\": " + Escapes::Json(row.path) + ", \"state\": " + Escapes::Json(row.state) + "}";
    }
    text += "],\n \"refused\": [";
    for (const std::string& pattern : refused)
    {
        text += (text.ends_with('[') ? "" : ", ") + Escapes::Json(pattern);
    }
    return text + "]}\n";
}

}
