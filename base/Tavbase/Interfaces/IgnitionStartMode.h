#ifndef BASE_TAVBASE_INTERFACES_IGNITIONSTARTMODE_H
#define BASE_TAVBASE_INTERFACES_IGNITIONSTARTMODE_H

#include "base/Export.h"

namespace Tavbase::Interfaces
{

/// What an object offers whose work begins with the ignition.
class TAVBASE_API IgnitionStartMode
{
public:
    virtual ~IgnitionStartMode();

    virtual void RunIgnitionStart() = 0; ///< starts the object's work; called by the application
};

}

#endif
