#ifndef VIRTUAL_UNIT_TIME_VFORK_H
#define VIRTUAL_UNIT_TIME_VFORK_H

#include "virtual-unit/time/Waits.h"

namespace VirtualTime
{

/// From now on the children of vfork() are counted there.
void CountVforks(Waits::Board& board);

}

#endif
