#include "virtual-unit/calls/SystemCallFilter.h"

#include "virtual-unit/common/Descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;
constexpr int NONE = InterceptedCall::NONE;

// A name that an architecture does not have is left out there.
constexpr InterceptedCall CALLS[] = {
    {"open", Kind::Open, {NONE, 0}, 1},
    {"openat", Kind::Open, {0, 1}, 2},
    {"openat2", Kind::OpenHow, {0, 1}, 2},
    {"creat", Kind::Create, {NONE, 0}, 1},
    {"access", Kind::Access, {NONE, 0}, 1},
    {"faccessat", Kind::Access, {0, 1}, 2},
    {"faccessat2", Kind::Access, {0, 1}, 2},
    {"stat", Kind::Status, {NONE, 0}, 1},
    {"lstat", Kind::Status, {NONE, 0}, 1},
    {"newfstatat", Kind::Status, {0, 1}, 2},
    {"statx", Kind::StatusX, {0, 1}, 3},
    {"statfs", Kind::VolumeStatus, {NONE, 0}, 1},
    {"readlink", Kind::ReadLink, {NONE, 0}},
    {"readlinkat", Kind::ReadLink, {0, 1}},
    {"getxattr", Kind::Attribute, {NONE, 0}},
    {"lgetxattr", Kind::Attribute, {NONE, 0}},
    {"getxattrat", Kind::Attribute, {0, 1}},
    {"listxattr", Kind::Attribute, {NONE, 0}},
    {"llistxattr", Kind::Attribute, {NONE, 0}},
    {"listxattrat", Kind::Attribute, {0, 1}},
    {"setxattr", Kind::Attribute, {NONE, 0}},
    {"lsetxattr", Kind::Attribute, {NONE, 0}},
    {"setxattrat", Kind::Attribute, {0, 1}},
    {"removexattr", Kind::Attribute, {NONE, 0}},
    {"lremovexattr", Kind::Attribute, {NONE, 0}},
    {"removexattrat", Kind::Attribute, {0, 1}},
    {"mkdir", Kind::MakeDirectory, {NONE, 0}, 1},
    {"mkdirat", Kind::MakeDirectory, {0, 1}, 2},
    {"rmdir", Kind::RemoveDirectory, {NONE, 0}},
    {"unlink", Kind::Remove, {NONE, 0}},
    {"unlinkat", Kind::Remove, {0, 1}, 2},
    {"rename", Kind::Rename, {NONE, 0}, NONE, {NONE, 1}},
    {"renameat", Kind::Rename, {0, 1}, NONE, {2, 3}},
    {"renameat2", Kind::Rename, {0, 1}, 4, {2, 3}},
    {"truncate", Kind::Truncate, {NONE, 0}, 1},
    {"chmod", Kind::ChangeMode, {NONE, 0}, 1},
    {"fchmodat", Kind::ChangeMode, {0, 1}, 2},
    {"fchmodat2", Kind::ChangeMode, {0, 1}, 2},
    {"chown", Kind::ChangeOwner, {NONE, 0}, 1},
    {"lchown", Kind::ChangeOwner, {NONE, 0}, 1},
    {"fchownat", Kind::ChangeOwner, {0, 1}, 2},
    {"utimensat", Kind::ChangeTimes, {0, 1}, 2},
    {"link", Kind::MakeNode, {NONE, 0}, NONE, {NONE, 1}},
    {"linkat", Kind::MakeNode, {0, 1}, NONE, {2, 3}},
    {"symlink", Kind::MakeNode, {NONE, 1}}, // what it leads to is a text, no file that it touches
    {"symlinkat", Kind::MakeNode, {1, 2}},
    {"mknod", Kind::MakeNode, {NONE, 0}},
    {"mknodat", Kind::MakeNode, {0, 1}},
    {"chdir", Kind::ChangeDirectory, {NONE, 0}},
    {"execve", Kind::Execute, {NONE, 0}},
    {"execveat", Kind::Execute, {0, 1}},
    {"bind", Kind::Socket, {NONE, 1}},
    {"connect", Kind::Socket, {NONE, 1}},
    {"utime", Kind::Other, {NONE, 0}},
    {"utimes", Kind::Other, {NONE, 0}},
    {"futimesat", Kind::Other, {0, 1}},
    {"chroot", Kind::Other, {NONE, 0}},
    {"pivot_root", Kind::Other, {NONE, 0}, NONE, {NONE, 1}},
    {"mount", Kind::Other, {NONE, 0}, NONE, {NONE, 1}},
    {"move_mount", Kind::Other, {0, 1}, NONE, {2, 3}},
    {"mount_setattr", Kind::Other, {0, 1}},
    {"open_tree", Kind::Other, {0, 1}},
    {"open_tree_attr", Kind::Other, {0, 1}},
    {"fspick", Kind::Other, {0, 1}},
    {"name_to_handle_at", Kind::Other, {0, 1}},
    {"file_getattr", Kind::Other, {0, 1}},
    {"file_setattr", Kind::Other, {0, 1}},
    {"inotify_add_watch", Kind::Other, {NONE, 1}},
    {"fanotify_mark", Kind::Other, {3, 4}},
    {"quotactl", Kind::Other, {NONE, 1}},
    {"swapon", Kind::Other, {NONE, 0}},
    {"swapoff", Kind::Other, {NONE, 0}},
    {"acct", Kind::Other, {NONE, 0}},
    {"uselib", Kind::Other, {NONE, 0}},
    {"ioctl", Kind::Ioctl, {}, 0},
    {"write", Kind::Write, {}, 0},
    {"pwrite64", Kind::WriteAt, {}, 0},
    {"writev", Kind::WriteVector, {}, 0},
    {"pwritev", Kind::WriteVectorAt, {}, 0},
    {"pwritev2", Kind::WriteVectorAt, {}, 0},
    {"ftruncate", Kind::Resize, {}, 0},
    {"fallocate", Kind::Fill, {}, 0},
    {"sendfile", Kind::Fill, {}, 0},
    {"copy_file_range", Kind::Fill, {}, 2},
    {"fsync", Kind::Sync, {}, 0},
    {"fdatasync", Kind::Sync, {}, 0},
    {"syncfs", Kind::SyncVolume, {}, 0},
    {"sync", Kind::SyncVolume},
    {"msync", Kind::SyncMapping, {}, 0},
    {"umount", Kind::Unmount, {NONE, 0}},
    {"umount2", Kind::Unmount, {NONE, 0}, 1},
    {"reboot", Kind::Forbidden},
};

/// Calls that libseccomp 2.5 does not know; their numbers are the same on all architectures.
constexpr std::pair<std::string_view, int> NEWER_CALLS[] = {
    {"fchmodat2", 452},     {"setxattrat", 463},     {"getxattrat", 464},   {"listxattrat", 465},
    {"removexattrat", 466}, {"open_tree_attr", 467}, {"file_getattr", 468}, {"file_setattr", 469}};

/// The requests of the unit's drivers, as a mask and what it leaves. All other ioctls are not held up.
struct Requests
{
    scmp_datum_t mask;
    scmp_datum_t value;
};

constexpr scmp_datum_t LOW_WORD = 0xFFFFFFFF;
constexpr Requests IOCTL_REQUESTS[] = {{LOW_WORD, TIOCOUTQ}, // serial lines that are stuck
                                       {LOW_WORD, TCSBRK},     {0xFFFFFF00, 0x0700}, // i2c-dev
                                       {0x0000FF00, 'H' << 8},                       // hidraw
                                       {LOW_WORD, 100},        {LOW_WORD, 101},      {LOW_WORD, 102},
                                       {LOW_WORD, 103}, // event driver: its pins
                                       {LOW_WORD, 104},        {LOW_WORD, 105},      {LOW_WORD, 106}};

int NumberOf(const char* name)
{
    const auto newer = std::ranges::find(NEWER_CALLS, name, &std::pair<std::string_view, int>::first);
    return newer == std::end(NEWER_CALLS) ? seccomp_syscall_resolve_name(name) : newer->second;
}

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
            const int number = NumberOf(call.name);
            if (number >= 0)
            {
                AddRules(number, call);
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

void SystemCallFilter::AddRules(int number, const InterceptedCall& call)
{
    if (call.MayGrowFile())
    {
        const auto descriptor = static_cast<unsigned int>(call.argument);
        Check(seccomp_rule_add(context, SCMP_ACT_NOTIFY, number, 1,
                               SCMP_CMP(descriptor, SCMP_CMP_GE, FIRST_HELD_DESCRIPTOR)),
              call.name);
        return;
    }
    if (call.kind != Kind::Ioctl)
    {
        Check(seccomp_rule_add(context, SCMP_ACT_NOTIFY, number, 0), call.name);
        return;
    }
    for (const Requests& requests : IOCTL_REQUESTS)
    {
        Check(seccomp_rule_add(context, SCMP_ACT_NOTIFY, number, 1,
                               SCMP_A1(SCMP_CMP_MASKED_EQ, requests.mask, requests.value)),
              call.name);
    }
}

SystemCallFilter::~SystemCallFilter()
{
    seccomp_release(context);
}

int SystemCallFilter::Load() const
{
    if (const int notifications = LoadUninterrupted(); notifications >= 0)
    {
        return notifications;
    }
    if (errno == EBUSY) // libseccomp does not tell it
    {
        return -EBUSY;
    }
    const int result = seccomp_load(context);
    return result < 0 ? result : seccomp_notify_fd(context);
}

int SystemCallFilter::LoadUninterrupted() const
{
    // libseccomp 2.5 cannot ask for it, so that the filter is taken from it and loaded by hand.
    constexpr unsigned long FLAGS = SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
    const Descriptor file(memfd_create("filter", MFD_CLOEXEC));
    std::array<sock_filter, BPF_MAXINSNS> instructions;
    if (file.Get() < 0 || seccomp_export_bpf(context, file.Get()) < 0)
    {
        return -1;
    }
    const ssize_t size = pread(file.Get(), instructions.data(), sizeof(instructions), 0);
    if (size <= 0 || prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    {
        return -1;
    }
    const sock_fprog program = {
        static_cast<unsigned short>(static_cast<std::size_t>(size) / sizeof(sock_filter)),
        instructions.data()};
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, FLAGS, &program));
}

const InterceptedCall* SystemCallFilter::Find(int number) const
{
    const auto found =
        std::find_if(calls.begin(), calls.end(), [number](const Numbered& c) { return c.number == number; });
    return found == calls.end() ? nullptr : found->call;
}

}
