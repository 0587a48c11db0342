#include "Sensors/Alerter.h"

#include <atomic>
#include <cstddef>

namespace Tavdevice
{

struct Alerter::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has virtual operations
    static_assert(offsetof(Alerter, busy) < offsetof(Alerter, level));
#pragma GCC diagnostic pop
};

bool Alerter::isPresent = false;

// Public as a plain bool for applications; here it is only used as an atomic one.
static_assert(std::atomic_ref<bool>::is_always_lock_free);

bool Alerter::IsPresent()
{
    return std::atomic_ref(isPresent).load();
}

void Alerter::SetPresent(bool present)
{
    std::atomic_ref(isPresent).store(present);
}

Alerter::Alerter() = default;

Alerter::~Alerter() = default;

}
