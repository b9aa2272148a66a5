// The measurements of service_cost, registered with Google Benchmark under names that
// scripts/bench.sh knows.
#ifndef BENCH_SERVICE_COST_H
#define BENCH_SERVICE_COST_H

#include <string>

// "pair/...": whole readings, each beside its floor, and "step/...": their steps by themselves. The
// pictures come from the folder of samples. Returns false, with the reason in `error`, when one
// cannot be had or does not take the road through the cascade that it is there for.
bool Readings_Register(const std::string& samples, std::string& error);

// "message/...": the service's listening thread, its sends and its log, with their fixed ports and
// paths: for a private world. Returns false with the reason.
bool Messages_Register(std::string& error);

#endif
