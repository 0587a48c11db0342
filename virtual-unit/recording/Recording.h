#ifndef VIRTUAL_UNIT_RECORDING_RECORDING_H
#define VIRTUAL_UNIT_RECORDING_RECORDING_H

#include "virtual-unit/recording/PortRecording.h"

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// A directory in which a Recorder has recorded a run.
class Recording
{
public:
    /// A recording that cannot be used; what() says why, in one line: file, number of the line and reason.
    class Wrong : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    /**
     * Reads all files "*.port" of a directory; others are passed over.
     * @param ports that the unit has, "/dev/ttymxc0" and so on
     * @throws Wrong when a file is no recording of one of `ports`, or there is none
     */
    static Recording Open(const std::string& directory, const std::vector<std::string>& ports);

    const PortRecording& Port(const std::string& port) const; ///< @param port one of those of Open()

private:
    std::map<std::string, PortRecording> recordings; ///< by port; one without a file has no entries
};

}

#endif
