#ifndef VIRTUAL_UNIT_RUN_RUNLOG_H
#define VIRTUAL_UNIT_RUN_RUNLOG_H

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace VirtualUnit
{

/// The lines of the virtual unit itself: what happened to the unit, and what was refused. Calling threads:
/// any.
class RunLog
{
public:
    /// @param path a file that takes all lines, with their times; emptied first. Empty: none
    /// @throws std::system_error when it cannot be written
    explicit RunLog(const std::string& path);

    void Report(const std::string& line); ///< for everybody: also to standard error
    void Note(const std::string& line);   ///< for the file only

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::mutex access; ///< a line in one piece
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file{nullptr, std::fclose};
};

}

#endif
