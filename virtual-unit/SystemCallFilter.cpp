#include "virtual-unit/SystemCallFilter.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;
constexpr int NONE = InterceptedCall::NONE;

// A name that an architecture does not have is left out there.
constexpr InterceptedCall CALLS[] = {
    {"open", Kind::Open, NONE, 0, 1},
    {"openat", Kind::Open, 0, 1, 2},
    {"openat2", Kind::OpenHow, 0, 1, 2},
    {"creat", Kind::Create, NONE, 0},
    {"access", Kind::Access, NONE, 0, 1},
    {"faccessat", Kind::Access, 0, 1, 2},
    {"faccessat2", Kind::Access, 0, 1, 2},
    {"stat", Kind::Status, NONE, 0, 1},
    {"lstat", Kind::Status, NONE, 0, 1},
    {"newfstatat", Kind::Status, 0, 1, 2},
    {"statx", Kind::StatusX, 0, 1, 3},
    {"readlink", Kind::ReadLink, NONE, 0},
    {"readlinkat", Kind::ReadLink, 0, 1},
    {"getxattr", Kind::Attribute, NONE, 0},
    {"lgetxattr", Kind::Attribute, NONE, 0},
    {"listxattr", Kind::Attribute, NONE, 0},
    {"llistxattr", Kind::Attribute, NONE, 0},
    {"unlink", Kind::Change, NONE, 0},
    {"unlinkat", Kind::Change, 0, 1},
    {"rename", Kind::Change, NONE, 0},
    {"renameat", Kind::Change, 0, 1},
    {"renameat2", Kind::Change, 0, 1},
    {"truncate", Kind::Change, NONE, 0},
    {"chmod", Kind::Change, NONE, 0},
    {"fchmodat", Kind::Change, 0, 1},
    {"umount", Kind::Forbidden},
    {"umount2", Kind::Forbidden},
    {"reboot", Kind::Forbidden},
};

void Check(int result, const char* what)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

}

SystemCallFilter::SystemCallFilter() : context(seccomp_init(SCMP_ACT_ALLOW))
{
    if (context == nullptr)
    {
        throw std::system_error(ENOMEM, std::generic_category(), "seccomp filter");
    }
    try
    {
        Check(seccomp_attr_set(context, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS),
              "seccomp: architecture");
        for (const InterceptedCall& call : CALLS)
        {
            const int number = seccomp_syscall_resolve_name(call.name);
            if (number >= 0)
            {
                Check(seccomp_rule_add(context, SCMP_ACT_NOTIFY, number, 0), call.name);
                calls.push_back({number, &call});
            }
        }
        Check(seccomp_rule_add(context, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(io_uring_setup), 0),
              "io_uring_setup");
    }
    catch (...)
    {
        seccomp_release(context);
        throw;
    }
}

SystemCallFilter::~SystemCallFilter()
{
    seccomp_release(context);
}

int SystemCallFilter::Load() const
{
    const int result = seccomp_load(context);
    return result < 0 ? result : seccomp_notify_fd(context);
}

const InterceptedCall* SystemCallFilter::Find(int number) const
{
    const auto found =
        std::find_if(calls.begin(), calls.end(), [number](const Numbered& c) { return c.number == number; });
    return found == calls.end() ? nullptr : found->call;
}

}
