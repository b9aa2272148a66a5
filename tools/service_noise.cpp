#include "service_noise.h"

static bool Begins(const std::string& line, const std::string& beginning)
{
    return line.compare(0, beginning.size(), beginning) == 0;
}

bool Noise_Drop(ServiceNoise& noise, const std::string& line)
{
    const bool bDetail = noise.bDetail && Begins(line, "\t");
    // Some second lines come without their end, so that the next warning stands behind them.
    const size_t warning = line.find("WARNING: ");
    const size_t assertion = line.find(": Assertion \"", warning);
    noise.bDetail = (warning == 0 || (bDetail && warning != std::string::npos)) &&
                    assertion != std::string::npos &&
                    line.find("\" failed.", assertion) != std::string::npos;
    return noise.bDetail || bDetail || Begins(line, "sim: skipped ");
}
