// Which files of a scene are pictures.
#ifndef SIM_SCENE_FILES_H
#define SIM_SCENE_FILES_H

#include <string>
#include <vector>

// Paths of a scene's pictures in the order in which the camera shows them: the file itself, or a
// folder's regular files by their names, without those whose name begins with "." or ends in ".txt"
// or ".md". Whether they can be read as pictures is not looked at. Returns false, with the reason
// in `error`, when there is no such file or folder or it cannot be listed.
bool Sim_ListPictures(const std::string& scene, std::vector<std::string>& paths,
                      std::string& error);

#endif
