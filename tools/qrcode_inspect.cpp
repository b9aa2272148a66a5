// qrcode-inspect: why a code is read, or not.
#include <opencv2/core/utility.hpp>

#include "inspect_options.h"
#include "inspect_run.h"

int main(int argc, char** argv)
{
    InspectOptions options;
    int nExit = INSPECT_EXIT_OK;
    if (!Inspect_ParseOptions(argc, argv, options, nExit)) {
        return nExit;
    }
    cv::setNumThreads(0); // as the service does; its times are those of one core
    return Inspect_Run(options);
}
