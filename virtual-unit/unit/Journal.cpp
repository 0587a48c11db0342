#include "virtual-unit/unit/Journal.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace VirtualUnit
{

void Journal::Add(EventDriver& driver)
{
    for (const EventDriver::PinWrite& write : driver.Changes())
    {
        entries.push_back({write.at, "pin " + std::to_string(write.pin) + " = " +
                                         std::to_string(write.value) + " (" +
                                         std::string(EventDriver::NameOf(write.pin)) + ")"});
    }
}

void Journal::Add(const std::string& name, SoundChip& chip)
{
    for (const SoundChip::Note& note : chip.TakeNotes())
    {
        const bool pause = note.pitch == SoundChip::Note::PAUSE;
        entries.push_back(
            {note.at, name + (pause ? " is silent" : " sounds at " + std::to_string(note.pitch))});
    }
}

void Journal::Add(const BuzzerBoard& board)
{
    for (const BuzzerBoard::Buzz& buzz : board.Buzzes())
    {
        entries.push_back({buzz.at, "buzzer sounds, " + std::to_string(buzz.count) + " x " +
                                        std::to_string(buzz.duration.count()) + " ms"});
    }
}

void Journal::Add(const CardSlot& slot)
{
    for (const CardSlot::Event& event : slot.History())
    {
        entries.push_back({event.at, event.text});
    }
}

int Journal::Write(std::FILE* file) const
{
    std::vector<Entry> sorted = entries;
    std::ranges::stable_sort(sorted, {}, &Entry::at);
    for (const Entry& entry : sorted)
    {
        const std::chrono::duration<double> time = entry.at - begin;
        std::fprintf(file, "%9.3f s  %s\n", time.count(), entry.text.c_str());
    }
    return std::fflush(file) == 0 ? 0 : errno;
}

}
