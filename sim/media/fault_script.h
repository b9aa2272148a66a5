// Scripted faults of the simulated platform, as data.
//
// A script is text, one statement a line; "#" begins a comment:
//   HI_MPI_VENC_CreateChn 0xa0080004      this operation does nothing but return the code
//   HI_MPI_SYS_Bind 0xa0020001 2          ... in its next 2 calls only
//   picture never                         no picture ever becomes ready
//   picture none                          a picture becomes ready, but the status says zero packs
//   picture jpeg FILE                     the stream is this file's bytes, whatever the scene
//   packs 16:600 0:*                      layout of the stream: leading bytes to skip, valid bytes
//                                         of each pack; "*" in the last is all the rest
//   frame-ms 0                            least ms from one frame to the next, instead of
//                                         SIM_FRAME_MS; 0: a frame is always ready
// Without a "packs" line the stream is one pack without leading bytes.
#ifndef SIM_FAULT_SCRIPT_H
#define SIM_FAULT_SCRIPT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct SimFault {
    int code = 0;
    int calls = -1; // how many calls are left that get it; negative for all
};

struct SimPackLayout {
    uint32_t skip = 0;  // leading bytes
    uint32_t valid = 0; // bytes of the stream, unless rest
    bool rest = false;
};

enum {
    SIM_FRAME_MS = 40, // 25 frames a second at most
    SIM_FRAME_MS_MAX = 60000,
    SIM_FAULT_CALLS_MAX = 1000000000
};

struct SimScript {
    std::map<std::string, SimFault> faults; // by the operation's name
    bool pictureNever = false;
    bool pictureNone = false;
    bool hasJpeg = false;
    std::vector<uint8_t> jpeg;
    std::vector<SimPackLayout> packs{{0, 0, true}};
    int frameMs = SIM_FRAME_MS;
};

// Parses a script. Returns false, with the line number and the line in `error`, for a statement
// that is not one of the above; `script` is then unchanged.
bool Sim_ParseScript(const std::string& text, SimScript& script, std::string& error);

// Reads a whole file. Returns false when it cannot be read.
bool Sim_ReadFile(const std::string& path, std::vector<uint8_t>& bytes);

#endif
