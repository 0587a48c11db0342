#include "virtual-unit/recording/Recorder.h"

#include "virtual-unit/recording/PortFormat.h"

#include <filesystem>
#include <system_error>

namespace VirtualUnit
{

namespace
{

namespace fs = std::filesystem;

}

Recorder::Recorder(const std::string& theDirectory, PortObserver::TimePoint theBegin, const Mask& theMask)
    : directory(theDirectory), begin(theBegin), mask(theMask)
{
    std::error_code failure;
    const bool created = fs::create_directory(directory, failure);
    if (failure == std::errc::file_exists)
    {
        throw Unusable("\"" + directory + "\" is no directory");
    }
    const bool empty = created || (!failure && fs::is_empty(directory, failure));
    if (failure)
    {
        throw Unusable("\"" + directory + "\" cannot be used: " + failure.message());
    }
    if (!empty)
    {
        throw Unusable("\"" + directory + "\" is not empty");
    }
}

PortObserver& Recorder::Port(const std::string& port)
{
    if (const auto known = ports.find(port); known != ports.end())
    {
        return *known->second;
    }
    const std::string file = File(port);
    try
    {
        auto recorder = std::make_unique<PortRecorder>(file, port, begin, mask);
        return *(ports[port] = std::move(recorder));
    }
    catch (const std::system_error& failure)
    {
        throw Unusable("\"" + file + "\" cannot be created: " + failure.code().message());
    }
}

std::string Recorder::File(const std::string& port) const
{
    return fs::path(directory) / (fs::path(port).filename().string() + PortFormat::SUFFIX);
}

void Recorder::Finish()
{
    for (const auto& [port, recorder] : ports)
    {
        if (const int error = recorder->Finish(); error != 0)
        {
            throw Unusable("\"" + File(port) +
                           "\" is not complete: " + std::generic_category().message(error));
        }
    }
}

}
