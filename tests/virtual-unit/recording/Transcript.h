#ifndef TESTS_VIRTUAL_UNIT_RECORDING_TRANSCRIPT_H
#define TESTS_VIRTUAL_UNIT_RECORDING_TRANSCRIPT_H

#include "virtual-unit/recording/PortFormat.h"
#include "virtual-unit/recording/PortRecording.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The recording of "/dev/port" with these lines, the first of which is line 3 of the file.
inline VirtualUnit::PortRecording Transcript(const std::vector<std::string>& lines)
{
    constexpr std::size_t FIRST_LINE = 3;
    VirtualUnit::PortRecording recording;
    recording.port = "/dev/port";
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        if (std::optional<VirtualUnit::PortEntry> entry = VirtualUnit::PortFormat::Parse(lines[i]))
        {
            entry->line = FIRST_LINE + i;
            recording.entries.push_back(*entry);
        }
    }
    return recording;
}

#endif
