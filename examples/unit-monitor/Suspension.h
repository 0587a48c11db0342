#ifndef EXAMPLES_UNIT_MONITOR_SUSPENSION_H
#define EXAMPLES_UNIT_MONITOR_SUSPENSION_H

namespace UnitMonitor
{

/// Ctrl-Z (SIGTSTP), taken by one thread only, which may leave the terminal in order before it obeys. To be
/// made before any thread that shall not get the signal.
class Suspension
{
public:
    Suspension(); ///< @throws std::system_error
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;
    ~Suspension();

    int Source() const { return source; } ///< readable when the process is to be suspended

    bool Take() const; ///< @return whether it is to be

    /// Suspends the process, and returns when it goes on.
    void Obey() const;

private:
    int source = -1;
};

}

#endif
