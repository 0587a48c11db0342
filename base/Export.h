#ifndef BASE_EXPORT_H
#define BASE_EXPORT_H

// The libraries are built with hidden visibility; what carries one of these macros is their interface.
// One macro for each library, so that a tool can tell from a declaration where the symbol lives.

#define TAVBASE_API __attribute__((visibility("default")))
#define TAVSYSTEM_API __attribute__((visibility("default")))
#define TAVDEVICE_API __attribute__((visibility("default")))

#endif
