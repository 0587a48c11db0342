#ifndef VIRTUAL_UNIT_RUN_RUNLOG_H
#define VIRTUAL_UNIT_RUN_RUNLOG_H

#include "base/ThreadSafety.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace VirtualUnit
{

/// The lines of the virtual unit itself: what happened to the unit, and what was refused. Calling threads:
/// any.
class RunLog
{
public:
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    /// @param itsFile takes all lines, with their times; null: none
    explicit RunLog(File itsFile) : file(std::move(itsFile)) {}

    void Report(const std::string& line); ///< for everybody: also to standard error
    void Note(const std::string& line);   ///< for the file only

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::mutex access; ///< a line in one piece
    File file TAV_GUARDED_BY(access);
};

}

#endif
