#include "examples/gps-monitor/Monitor.h"

#include <cstdio>

namespace GpsMonitor
{

using Examples::Block;

namespace
{

void PrintLine(const Block& block)
{
    std::printf("%8s UTC  ", block.time.empty() ? "--:--:--" : block.time.c_str());
    if (block.position)
    {
        std::printf("%s  %5.1f km/h  %5.1f°", Readable(*block.position).c_str(),
                    block.kilometresPerHour.value_or(0), block.course.value_or(0));
    }
    else
    {
        std::printf("%-44s", block.time.empty() ? "(no position among the sentences)" : "no fix");
    }
    if (block.satellites)
    {
        std::printf("  %2d satellites", *block.satellites);
    }
    if (block.badSentences != 0)
    {
        std::printf("  %d of %d check sums wrong", block.badSentences, block.sentences);
    }
    std::printf("\n");
}

}

void Monitor::ThreadCallback(void* value)
{
    const std::string_view text = static_cast<const char*>(value);
    if (text.empty())
    {
        ++emptyReads;
        std::printf("--:--:-- UTC  %s\n", blocks == 0 ? "nothing yet" : "nothing received");
    }
    else
    {
        const Block block = Examples::ParseBlock(text);
        PrintLine(block);
        TakeBlock(block);
    }
    std::fflush(stdout);
}

void Monitor::TakeBlock(const Block& block)
{
    ++blocks;
    blocksWithFix += block.fix ? 1 : 0;
    blocksWithBadCheckSums += block.badSentences != 0 ? 1 : 0;
    if (block.position)
    {
        if (last)
        {
            metres += MetresBetween(last->position, *block.position);
        }
        last = Seen{block.time, *block.position};
        if (!first)
        {
            first = last;
        }
    }
}

void Monitor::PrintSummary() const
{
    std::printf("\nblocks received   %d, with a fix %d, with wrong check sums %d\n", blocks, blocksWithFix,
                blocksWithBadCheckSums);
    std::printf("empty reads       %d\n", emptyReads);
    if (first)
    {
        std::printf("first position    %s UTC  %s\n", first->time.c_str(), Readable(first->position).c_str());
        std::printf("last position     %s UTC  %s\n", last->time.c_str(), Readable(last->position).c_str());
        std::printf("distance          %.0f m\n", metres);
    }
}

}
