// qrcode-inspect: why a code is read, or not.
#include <fcntl.h>
#include <opencv2/core/utility.hpp>
#include <unistd.h>

#include "inspect_options.h"
#include "inspect_run.h"

int main(int argc, char** argv)
{
    // Standard descriptors that are closed must not become those of a pipe or a picture.
    int fd = -1;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
    InspectOptions options;
    int nExit = INSPECT_EXIT_OK;
    if (!Inspect_ParseOptions(argc, argv, options, nExit)) {
        return nExit;
    }
    cv::setNumThreads(0); // as the service does; its times are those of one core
    return Inspect_Run(options);
}
