#include "base/Tavbase/Interfaces/InterruptibleWait.h"

#include "base/Tavbase/Interfaces/Worker.h"

namespace Tavbase::Interfaces
{

InterruptibleWait::InterruptibleWait()
    : worker(Worker::OfThisThread()), before(worker != nullptr && worker->Accept(false))
{
}

InterruptibleWait::~InterruptibleWait()
{
    Accept(before);
}

bool InterruptibleWait::StopRequested() const
{
    return worker != nullptr && worker->StopRequested();
}

void InterruptibleWait::NoteProgress()
{
    if (worker != nullptr)
    {
        worker->NoteProgress();
    }
}

void InterruptibleWait::Accept(bool on)
{
    if (worker != nullptr)
    {
        worker->Accept(on);
    }
}

}
