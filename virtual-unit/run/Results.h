#ifndef VIRTUAL_UNIT_RUN_RESULTS_H
#define VIRTUAL_UNIT_RUN_RESULTS_H

#include "base/ThreadSafety.h"
#include "virtual-unit/script/Verdict.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What became of a run and of what its script expects. Calling threads: any.
class Results
{
public:
    static constexpr int FAILED = 5; ///< the exit status when an expectation failed and the program did not

    void Add(const Verdict& verdict);

    /// The program has ended. @param status its exit status, 128 and the number when a signal ended it
    void End(int status);

    int ExitStatus() const; ///< that of the run

    /// Writes all as JUnit XML: the program is a test case, and each verdict. @param suite its name
    /// @return 0 or an errno
    int WriteJUnit(std::FILE* file, const std::string& suite) const;

private:
    mutable std::mutex access; ///< guards what follows
    std::vector<Verdict> verdicts TAV_GUARDED_BY(access);
    std::chrono::steady_clock::time_point begin TAV_GUARDED_BY(access) = std::chrono::steady_clock::now();
    std::chrono::duration<double> lasted TAV_GUARDED_BY(access){0};
    int programStatus TAV_GUARDED_BY(access) = 0;
};

}

#endif
