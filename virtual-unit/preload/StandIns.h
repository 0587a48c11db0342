#ifndef VIRTUAL_UNIT_PRELOAD_STANDINS_H
#define VIRTUAL_UNIT_PRELOAD_STANDINS_H

// What the sources of stand-ins are not warned of: the real declarations carry attributes that a definition
// elsewhere does not repeat, some are of functions of old, and a path that is none is the kernel's to refuse.
#pragma GCC diagnostic ignored "-Wattributes"
#pragma GCC diagnostic ignored "-Wignored-attributes"
#pragma GCC diagnostic ignored "-Wnonnull-compare"
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#endif
