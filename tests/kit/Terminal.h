#ifndef TESTS_KIT_TERMINAL_H
#define TESTS_KIT_TERMINAL_H

#include <string>
#include <string_view>

namespace Kit
{

/**
 * A serial line of the unit: a pseudo terminal that the library finds under the device's path, with the
 * test at the other end of the cable.
 */
class Terminal
{
public:
    explicit Terminal(const std::string& device); ///< for example "/dev/ttymxc0"
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void Send(std::string_view bytes); ///< arrives at the library
    std::string Received();            ///< what the library has sent since the last call
    void HangUp();                     ///< the other end goes away for good

    int Descriptor() const { return master; }

private:
    std::string path;
    int master = -1;
    int slave = -1; ///< kept open, so that the line lives on while the library has it closed
};

}

#endif
