#include "virtual-unit/run/RunLog.h"

namespace VirtualUnit
{

void RunLog::Report(const std::string& line)
{
    std::fprintf(stderr, "virtual-unit: %s\n", line.c_str());
    Note(line);
}

void RunLog::Note(const std::string& line)
{
    const std::lock_guard lock(access);
    if (file == nullptr)
    {
        return;
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
    std::fprintf(file.get(), "%9.3f s  %s\n", time.count(), line.c_str());
    std::fflush(file.get());
}

}
