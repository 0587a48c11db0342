#include "base/Tavbase/Interfaces/IThread.h"

#include "base/Tavbase/Interfaces/Worker.h"

namespace Tavbase::Interfaces
{

IThread::IThreadDelegate::~IThreadDelegate() = default;

IThread::IThread() : worker(std::make_unique<Worker>())
{
}

IThread::~IThread() = default;

int IThread::RunBefore()
{
    return 1;
}

void IThread::Run()
{
}

void IThread::RunAfter()
{
}

void IThread::Stopping()
{
}

bool IThread::Start()
{
    return worker->Start(
        name, [this] { Loop(); }, [this] { RunAfter(); });
}

void IThread::Stop()
{
    const bool running = worker->IsRunning();
    worker->RequestStop();
    if (running)
    {
        Stopping();
    }
    worker->Join();
}

void IThread::Cancel()
{
    worker->RequestStop();
}

bool IThread::IsRunning() const
{
    return worker->IsRunning();
}

void IThread::AddCallback(IThreadDelegate* delegate)
{
    delegates.Add(delegate);
}

bool IThread::ThreadSleep(const std::chrono::milliseconds& duration,
                          const std::chrono::milliseconds& /*pollInterval*/)
{
    return worker->Sleep(duration);
}

bool IThread::StopRequested() const
{
    return worker->OnOwnThread() && worker->StopRequested();
}

void IThread::DoCallback(void* value)
{
    delegates.ForEach([value](IThreadDelegate& delegate) { delegate.ThreadCallback(value); });
}

void IThread::Loop()
{
    if (RunBefore() == 0)
    {
        return;
    }
    while (!worker->StopRequested())
    {
        Run();
    }
}

}
