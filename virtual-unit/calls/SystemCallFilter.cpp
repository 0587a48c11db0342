#include "virtual-unit/calls/SystemCallFilter.h"

#include "virtual-unit/calls/HeldNumbers.h"
#include "virtual-unit/common/Descriptor.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace VirtualUnit
{

namespace
{

using Kind = InterceptedCall::Kind;

void Check(int result, const char* what)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

}

SystemCallFilter::SystemCallFilter(const InterceptedCalls& calls) : context(seccomp_init(SCMP_ACT_ALLOW))
{
    if (context == nullptr)
    {
        throw std::system_error(ENOMEM, std::generic_category(), "seccomp filter");
    }
    try
    {
        Check(seccomp_attr_set(context, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS),
              "seccomp: architecture");
        for (const InterceptedCalls::Numbered& each : calls.All())
        {
            AddRules(each.number, *each.call);
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
    for (const HeldRequests& requests : HELD_REQUESTS)
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

}
