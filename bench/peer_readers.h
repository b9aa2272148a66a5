// Readers of codes side by side: each gets the JPEG of a snapshot and gives back the one text that
// it reads, as bytes; empty for none. All of them decode the JPEG and turn the mirrored picture the
// right way round themselves, so that their times compare.
#ifndef BENCH_PEER_READERS_H
#define BENCH_PEER_READERS_H

#include <cstdint>
#include <string>
#include <vector>

struct PeerReader {
    const char* szName;
    std::string (*pRead)(const std::vector<uint8_t>& jpeg);
    bool bOnlyFinds; // tells by any text that there is a code, and not which
};

// The service's reading first.
const std::vector<PeerReader>& Peer_Readers();

#endif
