#include "virtual-unit/recording/PortRecorder.h"

#include "virtual-unit/recording/PortFormat.h"
#include "virtual-unit/recording/RequestText.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace VirtualUnit
{

namespace
{

const std::string WHOLE_PORT; // as a channel

}

PortRecorder::PortRecorder(const std::string& file, const std::string& port, TimePoint theBegin,
                           const Mask& theMask)
    : begin(theBegin), mask(theMask), output(std::fopen(file.c_str(), "wxe"), std::fclose), pieces(theMask)
{
    if (output == nullptr)
    {
        throw std::system_error(errno, std::generic_category(), file);
    }
    WriteLine(std::string(PortFormat::FIRST_LINE));
    WriteLine(PortFormat::PortLine(port));
}

PortRecorder::~PortRecorder()
{
    Finish();
}

void PortRecorder::Sent(std::string_view bytes, TimePoint at)
{
    Carried(PortEntry::Kind::Sent, bytes, at);
}

void PortRecorder::Received(std::string_view bytes, TimePoint at)
{
    Carried(PortEntry::Kind::Received, bytes, at);
}

void PortRecorder::Answered(const std::string& request, const std::string& answer, TimePoint at)
{
    const std::lock_guard lock(access);
    WritePieces(pieces.Flush());
    const std::string channel = RequestText::Channel(request);
    WriteEntries(runs[channel].Add({mask.Apply(request), mask.Apply(answer)}, Time(channel, at)));
}

void PortRecorder::Happened(const std::string& event, TimePoint at)
{
    const std::lock_guard lock(access);
    const bool leaves = event == PortEntry::UNPLUGGED;
    if ((leaves || event == PortEntry::PLUGGED_IN) && std::exchange(plugged, !leaves) == !leaves)
    {
        return;
    }
    WritePieces(pieces.Flush());
    WriteEntries(runs[WHOLE_PORT].Flush());
    PortEntry entry;
    entry.at = Time(WHOLE_PORT, at);
    entry.bytes = event;
    WriteEntries({entry});
}

int PortRecorder::Finish()
{
    const std::lock_guard lock(access);
    WritePieces(pieces.Flush());
    std::vector<PortEntry> rest;
    for (auto& [channel, run] : runs)
    {
        const std::vector<PortEntry> entries = run.Flush();
        rest.insert(rest.end(), entries.begin(), entries.end());
    }
    std::ranges::stable_sort(rest, {}, &PortEntry::at);
    WriteEntries(rest);
    return error;
}

/// Never before the latest of the channel: those who tell of the port look at the clock on their own.
std::chrono::microseconds PortRecorder::Time(const std::string& channel, TimePoint at)
{
    std::chrono::microseconds& latest = last[channel];
    latest = std::max(latest, std::chrono::duration_cast<std::chrono::microseconds>(at - begin));
    return latest;
}

void PortRecorder::Carried(PortEntry::Kind kind, std::string_view bytes, TimePoint at)
{
    const std::lock_guard lock(access);
    WriteEntries(runs[WHOLE_PORT].Flush());
    WritePieces(pieces.Add({Time(WHOLE_PORT, at), std::string(bytes), kind == PortEntry::Kind::Received}));
}

void PortRecorder::WritePieces(const std::vector<MaskedPieces::Piece>& complete)
{
    for (const MaskedPieces::Piece& piece : complete)
    {
        PortEntry entry;
        entry.kind = piece.back ? PortEntry::Kind::Received : PortEntry::Kind::Sent;
        entry.at = piece.at;
        entry.bytes = piece.bytes;
        WriteEntries({entry});
    }
}

void PortRecorder::WriteEntries(const std::vector<PortEntry>& entries)
{
    for (const PortEntry& entry : entries)
    {
        WriteLine(PortFormat::Line(entry));
    }
}

void PortRecorder::WriteLine(const std::string& line)
{
    const bool written =
        std::fputs((line + '\n').c_str(), output.get()) >= 0 && std::fflush(output.get()) == 0;
    if (!written && error == 0)
    {
        error = errno;
    }
}

}
