#ifndef VIRTUAL_UNIT_CALLS_KERNELCALLS_H
#define VIRTUAL_UNIT_CALLS_KERNELCALLS_H

#include "virtual-unit/calls/CallSource.h"

#include <optional>
#include <seccomp.h>

namespace VirtualUnit
{

/// Calls that the kernel holds up, as the application's filter (SystemCallFilter) tells it to.
class KernelCalls : public CallSource
{
public:
    /// @param notifications the filter's descriptor; stays the caller's @throws std::system_error
    explicit KernelCalls(int notifications);
    KernelCalls(const KernelCalls&) = delete;
    KernelCalls& operator=(const KernelCalls&) = delete;
    ~KernelCalls() override;

    int Descriptor() const override { return fd; }

    std::optional<WaitingCall> Next() override;
    bool StillWaits(const WaitingCall& call) override;
    int ReadPath(const WaitingCall& call, std::uint64_t address, std::string& path) override;
    int Read(const WaitingCall& call, std::uint64_t address, void* data, std::size_t size) override;
    int Write(const WaitingCall& call, std::uint64_t address, const void* data, std::size_t size) override;
    void Respond(const WaitingCall& call, const Answer& answer) override;

private:
    bool Place(const WaitingCall& call, const Answer& answer) const;
    int Add(const WaitingCall& call, const Answer& answer, std::optional<unsigned int> number) const;

    int fd;
    seccomp_notif* request = nullptr;
    seccomp_notif_resp* response = nullptr;
};

}

#endif
