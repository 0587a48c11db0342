#include "examples/unit-monitor/KeyWatch.h"

#include <chrono>

namespace UnitMonitor
{

namespace
{

constexpr std::chrono::milliseconds BETWEEN_REQUESTS{500};
constexpr std::chrono::seconds BETWEEN_TRIES{2};
constexpr int SILENT_FAILURES = 2;

}

KeyWatch::KeyWatch(State& sharedState, PlainOutput& plainOutput, Alerts& theAlerts)
    : state(sharedState), output(plainOutput), alerts(theAlerts)
{
    name = "key";
}

KeyWatch::~KeyWatch()
{
    Stop();
}

int KeyWatch::RunBefore()
{
    const bool known = reader.LoadFromFile(lastDriver);
    Tell(known ? "last driver " + lastDriver : "no driver on record");
    state.Set([this](Snapshot& now) { now.key.lastDriver = lastDriver; });
    return 1;
}

void KeyWatch::Run()
{
    if (!ready && !FindReader())
    {
        ThreadSleep(BETWEEN_TRIES, {});
        return;
    }
    RequestKey();
    if (!Ending())
    {
        Annoy();
    }
    ThreadSleep(BETWEEN_REQUESTS, {});
}

void KeyWatch::RunAfter()
{
    if (annoying && failures == 0 && reader.StopAnnoying())
    {
        Tell("annoying off");
    }
}

bool KeyWatch::FindReader()
{
    ready = reader.Init();
    if (ready)
    {
        Tell("reader ready");
        state.Set([](Snapshot& now) { now.key.reader = true; });
    }
    else if (!missing && !Ending())
    {
        Tell("no reader");
        missing = true;
    }
    return ready;
}

void KeyWatch::RequestKey()
{
    std::string id;
    if (!reader.RequestDriverId(id))
    {
        if (++failures == SILENT_FAILURES && !Ending())
        {
            Tell("reader silent");
            state.Set([](Snapshot& now) { now.key.silent = true; });
        }
        return;
    }
    if (failures >= SILENT_FAILURES)
    {
        Tell("reader answers again");
        state.Set([](Snapshot& now) { now.key.silent = false; });
        if (annoying)
        {
            reader.StartAnnoying(); // it may have been without power
        }
    }
    failures = 0;
    Take(id);
    if (!id.empty())
    {
        reader.RequestDriverIdReset(); // it tells a key that was taken away until then
    }
}

void KeyWatch::Take(const std::string& id)
{
    if (id == present)
    {
        return;
    }
    present = id;
    if (id.empty())
    {
        Tell("taken away");
        state.Set([](Snapshot& now) { now.key.driver.clear(); });
        return;
    }
    Recognise(id);
}

void KeyWatch::Recognise(std::string id)
{
    const std::string remark = lastDriver.empty() ? "first on record"
                               : id == lastDriver ? "same as last time"
                                                  : "another one";
    if (id != lastDriver)
    {
        reader.SaveToFile(id);
    }
    lastDriver = id;
    Tell("driver " + id + ", " + remark);
    state.Set([&](Snapshot& now) {
        now.key.driver = now.key.lastDriver = id;
        now.key.remark = remark;
    });
    alerts.Raise(Alerts::Kind::Recognised);
}

void KeyWatch::Annoy()
{
    const bool wanted = present.empty() && state.Get([](const Snapshot& now) { return now.power.ignition; });
    if (wanted != annoying && (wanted ? reader.StartAnnoying() : reader.StopAnnoying()))
    {
        annoying = wanted;
        Tell(annoying ? "annoying on" : "annoying off");
        state.Set([wanted](Snapshot& now) { now.key.annoying = wanted; });
    }
}

}
