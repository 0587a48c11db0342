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
        name, true, [this] { Loop(); }, [] {});
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

void ISignal::Loop()
{
    std::chrono::milliseconds pause = FIRST_PAUSE;
    while (!worker->StopRequested())
    {
        int value = 0;
        if (SignalWait(value))
        {
            pause = FIRST_PAUSE;
            SignalFire(value);
            continue;
        }
        worker->Sleep(pause);
        pause = std::min(2 * pause, LONGEST_PAUSE);
    }
}

}
