#ifndef VIRTUAL_UNIT_RUN_CONTROLSOCKET_H
#define VIRTUAL_UNIT_RUN_CONTROLSOCKET_H

#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/common/PrivateDirectory.h"

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace VirtualUnit
{

/**
 * The door through which a person or a test reaches a run: a socket that takes a line and gives a text back.
 *
 * It stands in a private directory ("virtual-unit-XXXXXX/control" in TMPDIR or "/tmp"), or where the user
 * wants it. Programs on the unit find its path in the environment, as VIRTUAL_UNIT_CONTROL.
 *
 * It changes the environment: create and destroy it while the process has one thread.
 */
class ControlSocket
{
public:
    /// The environment variable in which programs on the unit find the path.
    static constexpr const char* VARIABLE = "VIRTUAL_UNIT_CONTROL";

    /// What went wrong, for people.
    class Failure : public std::runtime_error
    {
    public:
        using std::runtime_error::runtime_error;
    };

    /// Nobody runs a virtual unit.
    class NoneRuns : public Failure
    {
    public:
        using Failure::Failure;
    };

    /// What answers a line. Called on the socket's thread. @throws std::exception, whose text is the answer
    /// then
    using Answer = std::function<std::string(const std::string& line)>;

    /// @param path empty: in a private directory @throws Failure
    explicit ControlSocket(const std::string& path);
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;
    ~ControlSocket(); ///< stops, and removes the socket

    void Start(Answer answer); ///< begins to answer
    void Stop();

    /**
     * Asks the run behind a socket.
     * @param path empty: that of the run in which this process is, or else the only run of this user
     * @return its answer @throws NoneRuns @throws Failure when it is not to be had, or says that the line is
     * wrong
     */
    static std::string Ask(const std::string& path, const std::string& line);

private:
    void Serve(const Answer& answer);

    std::optional<PrivateDirectory> directory;
    std::string path;
    Descriptor listener;
    Descriptor ending; ///< an eventfd
    std::thread thread;
};

}

#endif
