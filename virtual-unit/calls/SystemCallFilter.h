#ifndef VIRTUAL_UNIT_CALLS_SYSTEMCALLFILTER_H
#define VIRTUAL_UNIT_CALLS_SYSTEMCALLFILTER_H

#include "virtual-unit/calls/InterceptedCalls.h"

#include <seccomp.h>

namespace VirtualUnit
{

/**
 * The seccomp filter under which an application of the virtual unit runs: the calls that name a file, those
 * that sync one, and those that would touch this machine's mounts or power, wait for the supervisor's answer;
 * io_uring, which would open files past the filter, is reported as not there; everything else is carried out
 * as usual.
 *
 * Programs of another architecture than this one's (32-bit ones on a 64-bit machine) are ended by SIGSYS.
 */
class SystemCallFilter
{
public:
    explicit SystemCallFilter(const InterceptedCalls& calls); ///< @throws std::system_error
    SystemCallFilter(const SystemCallFilter&) = delete;
    SystemCallFilter& operator=(const SystemCallFilter&) = delete;
    ~SystemCallFilter();

    /**
     * Puts the calling process and all that it starts under the filter, for good. Where the kernel is able to
     * (Linux 5.19), a call that has begun to be answered is not interrupted by a signal that the application
     * handles, and so never carried out twice.
     * @return the descriptor on which calls arrive, the caller's to close; a negative errno on failure
     */
    int Load() const;

private:
    void AddRules(int number, const InterceptedCall& call);
    int LoadUninterrupted() const;

    scmp_filter_ctx context;
};

}

#endif
