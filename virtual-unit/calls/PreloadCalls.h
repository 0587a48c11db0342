#ifndef VIRTUAL_UNIT_CALLS_PRELOADCALLS_H
#define VIRTUAL_UNIT_CALLS_PRELOADCALLS_H

#include "virtual-unit/calls/CallSource.h"
#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/preload/Protocol.h"

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace VirtualUnit
{

/**
 * Calls that a preloaded library (preload/) stands in for and hands over, each by a connection of its own to
 * a socket that only this user's processes can use.
 *
 * Nothing that comes from there is believed: what is no call is closed, and the supervisor waits for nobody
 * longer than a moment.
 */
class PreloadCalls : public CallSource
{
public:
    PreloadCalls(); ///< @throws std::system_error
    PreloadCalls(const PreloadCalls&) = delete;
    PreloadCalls& operator=(const PreloadCalls&) = delete;
    ~PreloadCalls() override;

    const std::string& Name() const { return name; } ///< of the socket: what Preload::VARIABLE says

    int Descriptor() const override { return events.Get(); }

    std::optional<WaitingCall> Next() override;
    bool StillWaits(const WaitingCall& call) override;
    int ReadPath(const WaitingCall& call, std::uint64_t address, std::string& path) override;
    int Read(const WaitingCall& call, std::uint64_t address, void* data, std::size_t size) override;
    int Write(const WaitingCall& call, std::uint64_t address, const void* data, std::size_t size) override;
    void Respond(const WaitingCall& call, const Answer& answer) override;
    std::optional<std::string> WhyOutOfReach(const std::string& path) override;

private:
    struct Connection
    {
        VirtualUnit::Descriptor socket;
        pid_t process = 0;
        std::uint64_t id = 0; ///< of its call; 0: there is none yet
        std::vector<Preload::Part> parts;
        std::vector<char> bytes; ///< of the parts
    };

    using Connections = std::list<Connection>;

    void Accept();
    std::optional<WaitingCall> Receive(Connection& connection);
    Connections::iterator Find(std::uint64_t id);
    void Close(Connections::iterator connection);
    static int Ask(const Connection& connection, std::uint64_t address, void* data, std::size_t size);

    std::string name;
    VirtualUnit::Descriptor listener;
    VirtualUnit::Descriptor events; ///< epoll
    Connections connections;
    std::uint64_t latestId = 0;
};

}

#endif
