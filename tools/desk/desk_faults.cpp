#include "desk_faults.h"

#include <fstream>

#include "sim_platform.h"
#include "snap_channel.h"

namespace
{

const char CODE[] = " 0xa0000004"; // any but 0

const char BUSY[] =
    "No code is read until it is over. The service tries again without a pause: a processor is "
    "busy with it, and what it prints grows by thousands of lines a second.";
const char LATE[] = "No code is read until it is over; each try waits 1 s for a picture in vain.";

// By SimOp.
const char* const OPERATION_DOORS[SIM_OPS] = {
    "Nothing: it is asked for the text of a message only.",
    BUSY, // create
    LATE, // get parameters
    LATE, // set parameters
    LATE, // bind
    BUSY, // start
    BUSY, // descriptor
    "No code is read until it is over: each picture comes, and is not asked for.",
    "No code is read until it is over: each picture is there, and cannot be fetched.",
    "Nothing. The service says so with each reading.",
    LATE, // unbind, and the next two: the channel of the reading before is in the way
    LATE,
    LATE};

} // namespace

std::vector<DeskFault> Faults_List(const std::string& folder)
{
    const std::string large = folder + "/too-large.jpg";
    std::ofstream(large, std::ios::binary) << "\xFF\xD8" << std::string(MAXFRAMERINBUF, ' ');
    std::vector<DeskFault> faults = {
        {"none", "# none", "Codes are read and reported.", false},
        {"the picture never comes", "picture never", LATE, true},
        {"a picture without packs", "picture none",
         "No code is read until it is over: each picture comes empty.", true},
        {"packs with leading bytes", "packs 16:600 8:2000 0:*",
         "Nothing: the leading bytes are skipped.", false},
        {"a picture every 2 s", "frame-ms 2000",
         "Codes are read late, and reported over and over: a try that waited 1 s in vain counts as "
         "a look at nothing.",
         false},
        {"a picture too large for the buffer", "picture jpeg " + large,
         "No code is read until it is over: such a picture is dropped.", true},
    };
    for (int op = 0; op < SIM_OPS; ++op) {
        const std::string name = Sim_OperationName(static_cast<SimOp>(op));
        const bool blocks = op != SIM_VPSS_GETCHNATTR && op != SIM_VENC_RELEASESTREAM;
        faults.push_back({name + " fails", name + CODE, OPERATION_DOORS[op], blocks});
    }
    return faults;
}
