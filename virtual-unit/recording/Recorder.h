#ifndef VIRTUAL_UNIT_RECORDING_RECORDER_H
#define VIRTUAL_UNIT_RECORDING_RECORDER_H

#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/recording/Mask.h"
#include "virtual-unit/recording/PortRecorder.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace VirtualUnit
{

/// Records the ports of the unit in a directory, in one file each, as PortFormat says. The name of a file is
/// the last component of the port's path, and ".port".
class Recorder
{
public:
    /// Nothing can be recorded in the directory; what() says why.
    class Unusable : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    /// @param directory is created; it may exist when it is empty
    /// @param begin of the run, from which times are counted @throws Unusable
    Recorder(const std::string& directory, PortObserver::TimePoint begin, const Mask& mask = {});

    /// The recording of a port, which begins with the first call. The observer is the recorder's, and may be
    /// called from any thread as long as that lives.
    /// @throws Unusable when the file cannot be created, or is that of another port
    PortObserver& Port(const std::string& port);

    void Finish(); ///< writes what is kept back @throws Unusable when something could not be written

private:
    std::string File(const std::string& port) const;

    std::string directory;
    PortObserver::TimePoint begin;
    Mask mask;
    std::map<std::string, std::unique_ptr<PortRecorder>> ports; ///< by path
};

}

#endif
