#ifndef BENCHMARKS_CONSOLE_H
#define BENCHMARKS_CONSOLE_H

namespace Benchmarks
{

/// Sends standard output, where the console log goes, to /dev/null; results go to standard error.
void SilenceStandardOutput();

}

#endif
