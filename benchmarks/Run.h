#ifndef BENCHMARKS_RUN_H
#define BENCHMARKS_RUN_H

namespace Benchmarks
{

/// What a benchmark program's main() does: standard output, where the console log goes, is silenced, and the
/// results go to standard error. @return the exit status
int Run(int argc, char** argv);

/// Processor time of the calling thread so far, in seconds.
double ThreadSeconds();

}

#endif
