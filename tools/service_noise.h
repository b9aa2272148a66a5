// What the service's process prints and a person need not see.
#ifndef TOOLS_SERVICE_NOISE_H
#define TOOLS_SERVICE_NOISE_H

#include <string>

struct ServiceNoise {
    bool bDetail = false; // the line before was one of zbar's warnings
};

// Whether to drop a line, given the lines before it: zbar's warnings about its own assertions, of
// two lines each ("WARNING: FILE:LINE: FUNCTION: Assertion "..." failed." and one that begins with
// a tab), which it prints for many a picture, and the camera's word about a file that it skips,
// which is an event too.
bool Noise_Drop(ServiceNoise& noise, const std::string& line);

#endif
