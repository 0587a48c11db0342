#ifndef VIRTUAL_UNIT_CALLS_HELDCALL_H
#define VIRTUAL_UNIT_CALLS_HELDCALL_H

#include "virtual-unit/calls/Answer.h"
#include "virtual-unit/calls/CallSource.h"
#include "virtual-unit/calls/InterceptedCalls.h"

#include <cstddef>
#include <cstdint>
#include <linux/openat2.h>
#include <string>
#include <sys/types.h>

namespace VirtualUnit
{

/// A system call of the application that waits for its answer.
class HeldCall
{
public:
    /// All of them stay the caller's and outlive this object.
    HeldCall(CallSource& its, const WaitingCall& held, const InterceptedCall& named)
        : source(its), request(held), call(named)
    {
    }

    const char* Name() const { return call.name; }

    InterceptedCall::Kind Kind() const { return call.kind; }

    const InterceptedCall::NamedPath& Path() const { return call.path; }

    const InterceptedCall::NamedPath& OtherPath() const { return call.otherPath; }

    pid_t Thread() const { return request.thread; }

    /// A descriptor of the caller, as a link in "/proc".
    std::string LinkOf(std::uint64_t descriptor) const;

    std::uint64_t Argument(int index) const { return request.arguments.at(static_cast<std::size_t>(index)); }

    /// The argument that the call's kind names, or one of those that follow it.
    std::uint64_t OwnArgument(int offset = 0) const { return Argument(call.argument + offset); }

    /// The same for a size or a place in a file.
    std::uint64_t OwnSize(int offset = 0) const;

    /// The same, or `otherwise` for a call that has none.
    std::uint64_t OwnArgumentOr(std::uint64_t otherwise) const
    {
        return call.argument == InterceptedCall::NONE ? otherwise : OwnArgument();
    }

    /// The path as it is written; empty when the call does not name it. @return 0 or an errno
    int ReadPath(const InterceptedCall::NamedPath& where, std::string& path) const;

    int Read(std::uint64_t address, void* data, std::size_t size) const;        ///< @return 0 or an errno
    int Write(std::uint64_t address, const void* data, std::size_t size) const; ///< @return 0 or an errno

    int ReadOpenHow(open_how& how) const; ///< of a call that opens a file @return 0 or an errno

    /// The answer that puts data into the application's memory.
    Answer Store(const void* data, std::size_t size, std::uint64_t address) const;

private:
    int ReadSocketPath(int index, std::string& path) const;

    CallSource& source;
    const WaitingCall& request;
    const InterceptedCall& call;
};

}

#endif
