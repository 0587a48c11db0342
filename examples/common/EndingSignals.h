#ifndef EXAMPLES_COMMON_ENDINGSIGNALS_H
#define EXAMPLES_COMMON_ENDINGSIGNALS_H

#include <chrono>
#include <csignal>
#include <optional>

namespace Examples
{

/// The signals that end the program (SIGINT and SIGTERM), taken by the main thread only. To be made before
/// any other thread, which then never gets them.
class EndingSignals
{
public:
    EndingSignals();

    /// Waits for one of them, without a limit or for so long. @return true when one has come
    bool Await(const std::optional<std::chrono::milliseconds>& longest) const;

private:
    sigset_t set;
};

}

#endif
