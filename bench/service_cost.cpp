// What the service's parts cost on this machine: service_cost SAMPLES [BENCHMARK_OPTION...], in a
// private world (scripts/private-world.sh).
#include <benchmark/benchmark.h>
#include <cstdio>
#include <opencv2/core/utility.hpp>

#include "service_cost.h"

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: service_cost SAMPLES [BENCHMARK_OPTION...]\n");
        return 2;
    }
    cv::setNumThreads(0); // as the service has it
    std::string error;
    if (!Readings_Register(argv[1], error) || !Messages_Register(error)) {
        std::fprintf(stderr, "service_cost: %s\n", error.c_str());
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
