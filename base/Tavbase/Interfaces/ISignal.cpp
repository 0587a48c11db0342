#include "base/Tavbase/Interfaces/ISignal.h"

#include "base/Tavbase/Interfaces/Worker.h"

#include <algorithm>
#include <chrono>

namespace Tavbase::Interfaces
{

namespace
{

constexpr std::chrono::milliseconds FIRST_PAUSE{10};
constexpr std::chrono::milliseconds LONGEST_PAUSE{1000};

/// A wait that fails within this has not waited.
constexpr std::chrono::milliseconds AT_ONCE{1};

}

ISignal::ISignalDelegate::~ISignalDelegate() = default;

ISignal::ISignal() : worker(std::make_unique<Worker>())
{
}

ISignal::~ISignal()
{
    StopWorker();
}

bool ISignal::Start()
{
    return worker->Start(
        name, [this] { Loop(); }, [] {});
}

bool ISignal::IsRunning() const
{
    return worker->IsRunning();
}

void ISignal::AddCallback(ISignalDelegate* delegate)
{
    delegates.Add(delegate);
}

void ISignal::DoCallback(void* value)
{
    delegates.ForEach([value](ISignalDelegate& delegate) { delegate.SignalCallback(value); });
}

void ISignal::StopWorker()
{
    worker->Interrupt();
}

bool ISignal::Wait(int& value)
{
    // Closed on every way out, since what follows may print: also when an exception ends the worker.
    struct Accepted
    {
        Worker& worker;

        ~Accepted() { worker.Accept(false); }
    };

    const Accepted accepted{*worker};
    worker->Accept(true);
    return SignalWait(value);
}

void ISignal::Loop()
{
    using std::chrono::steady_clock;
    std::chrono::milliseconds pause = FIRST_PAUSE;
    while (!worker->StopRequested())
    {
        int value = 0;
        const auto begun = steady_clock::now();
        const bool got = Wait(value);
        if (got || worker->TakeProgress())
        {
            pause = FIRST_PAUSE;
            if (got)
            {
                SignalFire(value);
            }
            continue;
        }
        const auto waited = steady_clock::now() - begun;
        if (waited >= AT_ONCE)
        {
            // It has blocked, and so is no spin: no more than the first pause in all.
            pause = FIRST_PAUSE;
            worker->Sleep(pause - std::chrono::floor<std::chrono::milliseconds>(waited));
            continue;
        }
        worker->Sleep(pause);
        pause = std::min(2 * pause, LONGEST_PAUSE);
    }
}

}
