#include "virtual-unit/recording/Recording.h"

#include "virtual-unit/recording/PortFormat.h"
#include "virtual-unit/recording/RequestText.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

namespace VirtualUnit
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t HEAD_LINES = 2;

[[noreturn]] void Refuse(const fs::path& file, std::size_t line, const std::string& reason)
{
    throw Recording::Wrong("\"" + file.string() + "\", line " + std::to_string(line) + ": " + reason);
}

std::vector<std::string> ReadLines(const fs::path& file)
{
    std::ifstream stream(file);
    std::vector<std::string> lines;
    std::string line;
    bool complete = true;
    while (std::getline(stream, line))
    {
        complete = !stream.eof();
        lines.push_back(line);
    }
    if (!stream.is_open() || stream.bad())
    {
        throw Recording::Wrong("\"" + file.string() + "\" cannot be read");
    }
    if (!complete)
    {
        Refuse(file, lines.size(), "has no end; a line feed is missing");
    }
    return lines;
}

PortRecording Read(const fs::path& file)
{
    const std::vector<std::string> lines = ReadLines(file);
    if (lines.empty() || lines[0] != PortFormat::FIRST_LINE)
    {
        Refuse(file, 1, "is not \"" + std::string(PortFormat::FIRST_LINE) + "\"");
    }
    PortRecording recording;
    recording.port = lines.size() < HEAD_LINES ? "" : PortFormat::PortOf(lines[1]).value_or("");
    if (recording.port.empty())
    {
        Refuse(file, HEAD_LINES, "does not name the port");
    }
    std::map<std::string, std::chrono::microseconds> latest; // by channel
    for (std::size_t number = HEAD_LINES + 1; number <= lines.size(); ++number)
    {
        try
        {
            std::optional<PortEntry> entry = PortFormat::Parse(lines[number - 1]);
            if (!entry)
            {
                continue;
            }
            const bool requests = entry->kind == PortEntry::Kind::Requests;
            auto& before = latest[requests ? RequestText::Channel(entry->exchanges.front().request) : ""];
            if (entry->at < before)
            {
                Refuse(file, number, "goes back in time");
            }
            before = std::max(entry->at, entry->until);
            entry->line = number;
            recording.entries.push_back(std::move(*entry));
        }
        catch (const PortFormat::Wrong& wrong)
        {
            Refuse(file, number, wrong.what());
        }
    }
    return recording;
}

std::set<fs::path> Files(const std::string& directory)
{
    std::error_code failure;
    std::set<fs::path> files;
    for (fs::directory_iterator entry(directory, failure); entry != fs::directory_iterator();
         entry.increment(failure))
    {
        if (entry->path().extension() == PortFormat::SUFFIX)
        {
            files.insert(entry->path());
        }
    }
    if (failure)
    {
        throw Recording::Wrong("\"" + directory + "\" cannot be read: " + failure.message());
    }
    if (files.empty())
    {
        throw Recording::Wrong("\"" + directory + "\" holds no recording, no file *" + PortFormat::SUFFIX);
    }
    return files;
}

}

Recording Recording::Open(const std::string& directory, const std::vector<std::string>& ports)
{
    std::map<std::string, PortRecording> found;
    for (const fs::path& file : Files(directory))
    {
        PortRecording recording = Read(file);
        const std::string port = recording.port;
        if (std::ranges::find(ports, port) == ports.end())
        {
            Refuse(file, HEAD_LINES, "names " + port + ", which is no port of the unit");
        }
        if (!found.emplace(port, std::move(recording)).second)
        {
            Refuse(file, HEAD_LINES, "names " + port + ", of which another file is the recording");
        }
    }
    Recording result;
    for (const std::string& port : ports)
    {
        PortRecording& recording = result.recordings[port];
        recording = std::move(found[port]);
        recording.port = port;
    }
    return result;
}

const PortRecording& Recording::Port(const std::string& port) const
{
    return recordings.at(port);
}

}
