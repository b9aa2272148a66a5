// What a reading's calls of OpenCV and zbar make of finished frames of the camera, so that it can
// be compared: of other builds of the libraries, for other processors.
// scanned_pictures frames FOLDER SCENE...: writes the simulated camera's finished frame, a JPEG, of
//   each picture of the scenes (a picture or a folder of them each) into FOLDER, as
//   SCENE'S-FOLDER_PICTURE.jpg. What is no picture is named on standard error and left out.
// scanned_pictures read FRAME...: takes a reading of each, from the JPEG on. A line for each call:
//   the frame, the call's number from 1, its kind or the attempt that it prepares, the size and an
//   FNV-1a hash of the picture that it made, or that a scan is handed. Behind them one with the
//   number 0: "text", the length that the reading returns (-1 for no picture), and its text, what
//   is not printable ASCII as \xHH. Tabs between.
// scanned_pictures call NUMBER FRAME: the bytes of that call's picture alone.
// Readings are taken without character sets, whichever this machine's C library has: a text that
// wants one is not read.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "camera_picture.h"
#include "capture_decode.h"
#include "cascade.h"
#include "charsets.h"
#include "fault_script.h"
#include "library_calls.h"
#include "message.h"
#include "process_setup.h"
#include "scene_files.h"
#include "snap_channel.h"

namespace
{

namespace fs = std::filesystem;

bool WriteFrame(const std::string& path, const fs::path& folder, std::string& error)
{
    cv::Mat picture;
    if (!Sim_LoadPicture(path, picture, error)) {
        std::fprintf(stderr, "scanned_pictures: left out %s: %s\n", path.c_str(), error.c_str());
        return true;
    }
    const std::vector<uint8_t> jpeg =
        Sim_EncodeFrame(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY);
    const fs::path from = fs::absolute(path);
    const fs::path to =
        folder / (from.parent_path().filename().string() + "_" + from.filename().string() + ".jpg");
    if (fs::exists(to)) {
        error = "two pictures would be " + to.string();
        return false;
    }
    std::ofstream file(to, std::ios::binary);
    file.write(reinterpret_cast<const char*>(jpeg.data()),
               static_cast<std::streamsize>(jpeg.size()));
    file.close();
    error = to.string() + ": cannot be written";
    return file.good();
}

bool WriteFrames(const std::string& folder, const std::vector<std::string>& scenes,
                 std::string& error)
{
    for (const std::string& scene : scenes) {
        std::vector<std::string> paths;
        if (!Sim_ListPictures(scene, paths, error)) {
            return false;
        }
        for (const std::string& path : paths) {
            if (!WriteFrame(path, folder, error)) {
                return false;
            }
        }
    }
    return true;
}

uint64_t Hash(const cv::Mat& picture)
{
    uint64_t hash = 0xcbf29ce484222325;
    for (int i = 0; i < picture.rows; ++i) {
        const uint8_t* const row = picture.ptr(i);
        for (size_t j = 0; j < picture.cols * picture.elemSize(); ++j) {
            hash = (hash ^ row[j]) * 0x100000001b3;
        }
    }
    return hash;
}

std::string Printable(const char* text)
{
    std::string shown;
    for (; *text != '\0'; ++text) {
        char hex[] = "\\x00";
        const auto byte = static_cast<unsigned char>(*text);
        std::snprintf(hex, sizeof(hex), "\\x%02x", byte);
        shown += byte > ' ' && byte < 0x7f && byte != '\\' ? std::string(1, *text) : hex;
    }
    return shown;
}

// Takes a reading of the frame, watched. Returns false when the file cannot be read.
bool Read(const std::string& path, const CallWatch& watch, int& length, std::string& text,
          std::string& error)
{
    std::vector<uint8_t> buffer;
    error = path + ": cannot be read, or too long";
    if (!Sim_ReadFile(path, buffer) || buffer.size() > MAXFRAMERINBUF) {
        return false;
    }
    buffer.resize(MAXFRAMERINBUF);
    char read[QRCODE_TEXT_SIZE] = {};
    Calls_Watch(
        [&] {
            cv::Mat grey;
            length = Qrcode_DecodeMirrorGrey(buffer.data(), SNAP_WIDTH, SNAP_HEIGHT, grey)
                         ? Qrcode_ScanCascade(grey, read)
                         : -1;
        },
        watch);
    text = Printable(read);
    return true;
}

bool PrintReadings(const std::vector<std::string>& paths, std::string& error)
{
    for (const std::string& path : paths) {
        const std::string name = fs::path(path).filename().string();
        int number = 0;
        int attempt = 1; // whose picture is prepared by a call, but for the first's
        int length = 0;
        std::string text;
        const auto print = [&](CallKind kind, const cv::Mat& picture) {
            const char* const what =
                kind == CALL_PREPARE ? Qrcode_AttemptName(++attempt) : Calls_KindName(kind);
            std::printf("%s\t%d\t%s\t%dx%dx%d\t%016" PRIx64 "\n", name.c_str(), ++number, what,
                        picture.cols, picture.rows, picture.channels(), Hash(picture));
        };
        if (!Read(path, print, length, text, error)) {
            return false;
        }
        std::printf("%s\t0\ttext\t%d\t%s\n", name.c_str(), length, text.c_str());
    }
    return true;
}

bool WriteCall(long wanted, const std::string& path, std::string& error)
{
    int number = 0;
    int length = 0;
    std::string text;
    const auto write = [&](CallKind /*kind*/, const cv::Mat& picture) {
        ++number;
        for (int i = 0; number == wanted && i < picture.rows; ++i) {
            std::fwrite(picture.ptr(i), picture.elemSize(), static_cast<size_t>(picture.cols),
                        stdout);
        }
    };
    const bool read = Read(path, write, length, text, error);
    error = read ? path + ": there is no call " + std::to_string(wanted) : error;
    return read && number >= wanted;
}

// The status to end with.
int Run(const std::vector<std::string>& words)
{
    const std::string what = words.size() >= 2 ? words[0] : "";
    std::string error = "usage: scanned_pictures frames FOLDER SCENE...\n"
                        "       scanned_pictures read FRAME...\n"
                        "       scanned_pictures call NUMBER FRAME";
    bool done = false;
    int failed = 1;
    if (what == "frames" && words.size() >= 3) {
        done = WriteFrames(words[1], {words.begin() + 2, words.end()}, error);
    } else if (what == "read") {
        done =
            Charsets_Use("none", error) && PrintReadings({words.begin() + 1, words.end()}, error);
    } else if (what == "call" && words.size() == 3) {
        done = Charsets_Use("none", error) &&
               WriteCall(std::strtol(words[1].c_str(), nullptr, 10), words[2], error);
    } else {
        failed = 2;
    }
    if (!done) {
        std::fprintf(stderr, "scanned_pictures: %s\n", error.c_str());
    }
    return done ? 0 : failed;
}

} // namespace

int main(int argc, char** argv)
{
    Qrcode_SetUpProcess();
    try {
        return Run({argv + 1, argv + argc});
    } catch (const std::exception& exception) { // of the libraries
        std::fprintf(stderr, "scanned_pictures: %s\n", exception.what());
        return 1;
    }
}
