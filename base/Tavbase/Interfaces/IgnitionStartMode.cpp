#include "base/Tavbase/Interfaces/IgnitionStartMode.h"

namespace Tavbase::Interfaces
{

IgnitionStartMode::~IgnitionStartMode() = default;

}
