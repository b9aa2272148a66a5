// What can be wrong with the platform, and what the person at the door would notice.
#ifndef TOOLS_DESK_FAULTS_H
#define TOOLS_DESK_FAULTS_H

#include <string>
#include <vector>

struct DeskFault {
    std::string name;
    std::string script; // a statement of fault_script.h
    std::string door;
    bool blocks; // no code can be reported while it lasts
};

// The first is none. `folder` gets the file that one of them streams.
std::vector<DeskFault> Faults_List(const std::string& folder);

#endif
