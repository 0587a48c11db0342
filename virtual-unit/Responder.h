#ifndef VIRTUAL_UNIT_RESPONDER_H
#define VIRTUAL_UNIT_RESPONDER_H

#include "virtual-unit/DeviceTable.h"
#include "virtual-unit/SystemCallFilter.h"

#include <cstdint>
#include <functional>
#include <seccomp.h>
#include <set>
#include <string>

namespace VirtualUnit
{

/**
 * Answers the system calls that the filter holds up: those on the unit's paths from the device table, the
 * forbidden ones with EPERM; all others go on to the kernel.
 *
 * It sees a path as it is written, made absolute, with "." and ".." and doubled slashes taken out; symbolic
 * links are not followed. It keeps a program from reaching this machine's devices by accident, not by intent.
 */
class Responder
{
public:
    using Report = std::function<void(const std::string& line)>;

    /// @param notifications the filter's descriptor; stays the caller's, as do table and filter
    Responder(int notifications, const SystemCallFilter& filter, const DeviceTable& devices, Report report);
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder();

    /// Takes the next call and answers it. @throws std::system_error when the kernel lacks what is needed
    void AnswerNext();

private:
    struct Answer;

    Answer Find();
    Answer FindForDevice(const InterceptedCall& call, const std::string& path);
    Answer Open(ServedDevice& device, std::uint64_t flags);
    Answer Store(const void* data, std::size_t size, std::uint64_t address);
    void Send(const Answer& answer);
    void ReportOnce(const std::string& line);
    bool StillWaits() const;
    pid_t Thread() const;
    std::uint64_t Argument(int index) const;
    std::string AbsolutePath(const InterceptedCall& call, const std::string& path) const;

    int fd;
    const SystemCallFilter& systemCalls;
    const DeviceTable& table;
    Report reportLine;
    std::set<std::string> reported;
    seccomp_notif* request = nullptr;
    seccomp_notif_resp* response = nullptr;
};

}

#endif
