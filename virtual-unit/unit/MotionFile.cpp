#include "virtual-unit/unit/MotionFile.h"

#include "virtual-unit/unit/CsvTable.h"
#include "virtual-unit/unit/Values.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace VirtualUnit
{

MotionFile::MotionFile(std::istream& text)
{
    constexpr double MOST_SECONDS = 1e9;
    constexpr double MOST_G = 100;
    const CsvTable table(text, {"time", "x", "y", "z"});
    for (const CsvTable::Row& row : table.Rows())
    {
        try
        {
            const auto g = [&row](std::size_t column) {
                return Values::Real(row.values[column], -MOST_G, MOST_G, "an acceleration in g");
            };
            const double seconds = Values::Real(row.values[0], 0, MOST_SECONDS, "a number of seconds");
            if (!samples.empty() && seconds <= samples.back().seconds)
            {
                Values::Refuse(row.values[0], "not later than the sample before");
            }
            samples.push_back({seconds, {g(1), g(2), g(3)}});
        }
        catch (const Values::Wrong& wrong)
        {
            throw Values::Wrong("line " + std::to_string(row.line) + ": " + wrong.what());
        }
    }
    if (samples.empty())
    {
        throw Values::Wrong("it has no sample");
    }
}

MotionFile MotionFile::Read(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw Values::Wrong(path + " cannot be read: " + std::generic_category().message(errno));
    }
    try
    {
        return MotionFile(file);
    }
    catch (const Values::Wrong& wrong)
    {
        throw Values::Wrong(path + ": " + wrong.what());
    }
}

Motion::Acceleration MotionFile::At(double seconds) const
{
    const auto next = std::ranges::upper_bound(samples, seconds, {}, &Sample::seconds);
    if (next == samples.begin() || next == samples.end())
    {
        return next == samples.begin() ? next->felt : samples.back().felt;
    }
    const Sample& from = *std::prev(next);
    const double part = (seconds - from.seconds) / (next->seconds - from.seconds);
    const auto between = [part](double begin, double end) { return begin + part * (end - begin); };
    return {between(from.felt.x, next->felt.x), between(from.felt.y, next->felt.y),
            between(from.felt.z, next->felt.z)};
}

}
