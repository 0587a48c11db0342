#include "virtual-unit/unit/CsvTable.h"

#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <sstream>

namespace VirtualUnit
{

namespace
{

std::string Unquoted(const std::string& text)
{
    constexpr const char* AROUND = " \t\r\"";
    const std::size_t begin = text.find_first_not_of(AROUND);
    return begin == std::string::npos ? std::string()
                                      : text.substr(begin, text.find_last_not_of(AROUND) + 1 - begin);
}

std::vector<std::string> Split(const std::string& line)
{
    std::vector<std::string> values;
    std::istringstream stream(line);
    for (std::string value; std::getline(stream, value, ',');)
    {
        values.push_back(Unquoted(value));
    }
    return values;
}

}

CsvTable::CsvTable(std::istream& text, const std::vector<std::string>& needed,
                   const std::vector<std::string>& optional)
{
    std::vector<std::string> header;
    std::vector<std::size_t> places; // of the columns in a row
    int number = 0;
    for (std::string line; std::getline(text, line);)
    {
        ++number;
        if (Unquoted(line).empty() || line.starts_with('#'))
        {
            continue;
        }
        const std::vector<std::string> values = Split(line);
        if (header.empty())
        {
            header = values;
            for (const std::string& name : needed)
            {
                if (std::ranges::find(header, name) == header.end())
                {
                    throw Values::Wrong("its first line names no column \"" + name + "\"");
                }
            }
            for (const std::vector<std::string>* const names : {&needed, &optional})
            {
                for (const std::string& name : *names)
                {
                    places.push_back(
                        static_cast<std::size_t>(std::ranges::find(header, name) - header.begin()));
                }
            }
            continue;
        }
        Row row{number, {}};
        for (const std::size_t place : places)
        {
            row.values.push_back(place < values.size() ? values[place] : std::string());
        }
        rows.push_back(std::move(row));
    }
}

}
