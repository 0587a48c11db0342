#ifndef EXAMPLES_UNIT_MONITOR_OUTPUTCAPTURE_H
#define EXAMPLES_UNIT_MONITOR_OUTPUTCAPTURE_H

#include <string>
#include <vector>

namespace UnitMonitor
{

/**
 * Keeps what the process prints off its terminal: standard output, and standard error where it is a terminal
 * too, lead into a pipe as long as the object lives. Who has it must take the lines, or printing threads
 * wait.
 *
 * Construction and destruction belong to one thread; the other operations to another, in between.
 */
class OutputCapture
{
public:
    OutputCapture(); ///< @throws std::system_error
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture();

    int Terminal() const { return terminal; } ///< what standard output was

    int Source() const { return source; } ///< readable when there is something to take

    std::vector<std::string> TakeLines(); ///< those that are complete, without their line ends; does not wait

private:
    void Redirect(int to, int toError);

    int terminal = -1;
    int formerError = -1; ///< -1: standard error is no terminal and stays what it is
    int source = -1;
    std::string begun; ///< the line that is not complete yet
};

}

#endif
