// The scene that the demo shows, and the texts that are expected of its pictures.
#ifndef TOOLS_DEMO_SCENE_H
#define TOOLS_DEMO_SCENE_H

#include <string>

// The scene's path as the camera shall get it: absolute, without a slash at its end.
std::string Demo_ScenePath(const std::string& scene);

struct DemoExpected {
    bool bKnown = false; // there is a text file beside the picture
    std::string text;    // its content, without one line end at its end
};

// Reads NAME.txt beside NAME.png.
DemoExpected Demo_ReadExpected(const std::string& picture);

// Whether a text that was read is the expected one, with or without that line end.
bool Demo_IsExpected(const DemoExpected& expected, const std::string& text);

// Whether the service sends the text: it has QRCODE_TEXT_REPORT_MIN bytes.
bool Demo_IsReportable(const DemoExpected& expected);

#endif
