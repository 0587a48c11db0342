#include "examples/common/EndingSignals.h"

#include <ctime>

namespace Examples
{

EndingSignals::EndingSignals()
{
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool EndingSignals::Await(const std::optional<std::chrono::milliseconds>& longest) const
{
    using Clock = std::chrono::steady_clock;

    if (!longest)
    {
        int signal = 0;
        return sigwait(&set, &signal) == 0;
    }
    const auto end = Clock::now() + *longest;
    for (auto rest = *longest + Clock::duration::zero(); rest > Clock::duration::zero();
         rest = end - Clock::now())
    {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(rest);
        const timespec limit = {static_cast<std::time_t>(seconds.count()),
                                static_cast<long>((rest - seconds).count())};
        if (sigtimedwait(&set, nullptr, &limit) > 0)
        {
            return true;
        }
    }
    return false;
}

}
