#include "benchmarks/Run.h"

#include "benchmarks/Console.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <ctime>
#include <iostream>

namespace Benchmarks
{

int Run(int argc, char** argv)
{
    SilenceStandardOutput();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return EXIT_FAILURE;
    }
    benchmark::ConsoleReporter report(benchmark::ConsoleReporter::OO_Tabular);
    report.SetOutputStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&report);
    return EXIT_SUCCESS;
}

double ThreadSeconds()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}
