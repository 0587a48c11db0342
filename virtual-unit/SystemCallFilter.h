#ifndef VIRTUAL_UNIT_SYSTEMCALLFILTER_H
#define VIRTUAL_UNIT_SYSTEMCALLFILTER_H

#include <seccomp.h>
#include <vector>

namespace VirtualUnit
{

/// A system call that the supervisor answers, and where its arguments stand.
struct InterceptedCall
{
    enum class Kind
    {
        Open,    ///< `argument`: the flags
        OpenHow, ///< `argument`: address of a struct open_how
        Create,  ///< creat()
        Access,  ///< `argument`: the mode
        Status,  ///< `argument`: address of the struct stat
        StatusX, ///< `argument`: the mask; the address of the struct statx follows it
        ReadLink,
        Attribute, ///< asks for extended attributes
        Change,    ///< would remove, rename or alter the file
        Forbidden  ///< never carried out, whatever its arguments
    };

    static constexpr int NONE = -1;

    const char* name;
    Kind kind;
    int directory = NONE; ///< index of the descriptor that a relative path starts from
    int path = NONE;      ///< index of the path
    int argument = NONE;
};

/**
 * The seccomp filter under which an application of the virtual unit runs: the calls that name a file, and
 * those that would touch this machine's mounts or power, wait for the supervisor's answer; io_uring, which
 * would open files past the filter, is reported as not there; everything else is carried out as usual.
 *
 * Programs of another architecture than this one's (32-bit ones on a 64-bit machine) are ended by SIGSYS.
 */
class SystemCallFilter
{
public:
    SystemCallFilter(); ///< @throws std::system_error
    SystemCallFilter(const SystemCallFilter&) = delete;
    SystemCallFilter& operator=(const SystemCallFilter&) = delete;
    ~SystemCallFilter();

    /**
     * Puts the calling process and all that it starts under the filter, for good.
     * @return the descriptor on which calls arrive, the caller's to close; a negative errno on failure
     */
    int Load() const;

    const InterceptedCall* Find(int number) const; ///< null for a call that is not intercepted

private:
    struct Numbered
    {
        int number;
        const InterceptedCall* call;
    };

    scmp_filter_ctx context;
    std::vector<Numbered> calls;
};

}

#endif
