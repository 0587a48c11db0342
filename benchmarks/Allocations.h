#ifndef BENCHMARKS_ALLOCATIONS_H
#define BENCHMARKS_ALLOCATIONS_H

#include <cstdint>

namespace Benchmarks
{

/// How often operator new has been called in the process so far, by the libraries as well.
std::uint64_t Allocations();

}

#endif
