#ifndef VIRTUAL_UNIT_RUN_PROGRAMOUTPUT_H
#define VIRTUAL_UNIT_RUN_PROGRAMOUTPUT_H

#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/ports/PortObserver.h"

#include <memory>
#include <thread>
#include <vector>

namespace VirtualUnit
{

/**
 * Listens to what a program prints, on its way to this process's standard output and error. The program finds
 * a terminal where this process has one, and one and the same stream where this process has that.
 *
 * While this object stands and has not begun, standard output and error are those of a program to start.
 * Calling threads: one; the listener is called on a thread of this object.
 */
class ProgramOutput
{
public:
    explicit ProgramOutput(PortObserver& listener); ///< @throws std::system_error
    ProgramOutput(const ProgramOutput&) = delete;
    ProgramOutput& operator=(const ProgramOutput&) = delete;
    ~ProgramOutput(); ///< ends

    void Begin(); ///< the program has started: this process has its streams back

    void End(); ///< the program has ended: hands on what is still under way

private:
    /// A stream between the program and where it goes.
    struct Stream
    {
        std::vector<int> numbers; ///< of the standard streams that it is
        Descriptor target;        ///< what they were before
        Descriptor programs;      ///< the program's end, until it has started
        Descriptor source;        ///< the other end; none: it is over
        bool terminal = false;
    };

    void Redirect(int number);
    void RestoreStreams();
    void Listen();
    void HandOn(Stream& stream);

    PortObserver& listener;
    std::vector<std::unique_ptr<Stream>> streams;
    Descriptor ending; ///< an eventfd
    std::thread thread;
};

}

#endif
