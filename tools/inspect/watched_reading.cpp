#include "watched_reading.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <new>
#include <opencv2/core.hpp>

#include "camera_picture.h"
#include "capture_decode.h"
#include "cascade.h"
#include "scan_watch.h"
#include "snap_channel.h"

namespace
{

enum { SCANS_PER_ATTEMPT = 2 }; // of an attempt that finds nothing

const char NO_MEMORY[] = "too large a picture for the memory there is";

void Note(char (&note)[READING_NOTE_SIZE], const std::string& text)
{
    std::snprintf(note, sizeof(note), "%s", text.c_str());
}

// What the service does with a stream, from the picture buffer to the text.
void ReadBuffer(std::vector<uint8_t>& buffer, cv::Mat& grey, WatchedReading& reading)
{
    Watch_Begin();
    const auto begin = std::chrono::steady_clock::now();
    const bool decoded = Qrcode_DecodeMirrorGrey(buffer.data(), SNAP_WIDTH, SNAP_HEIGHT, grey);
    const int ret = decoded ? Qrcode_ScanCascade(grey, reading.text) : 0;
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;

    reading.ms = taken.count();
    reading.scans = static_cast<int>(Watch_Scans().size());
    reading.outcome = decoded ? READING_NO_CODE : READING_NOT_DECODABLE;
    Note(reading.remark, decoded ? "" : "the decoder finds no picture in it");
    if (ret < 1) {
        return;
    }
    const bool isShort = std::strlen(reading.text) < QRCODE_TEXT_REPORT_MIN;
    reading.outcome = isShort ? READING_SHORT : READING_TEXT;
    reading.attempt = (reading.scans - 1) / SCANS_PER_ATTEMPT + 1;
    reading.opened = reading.scans % SCANS_PER_ATTEMPT == 0;
    std::string symbologies;
    for (const WatchedSymbol& symbol : Watch_Scans().back().symbols) {
        const std::string next = (symbologies.empty() ? "" : ", ") + symbol.symbology;
        symbologies += symbologies.size() + next.size() < READING_NOTE_SIZE ? next : "";
    }
    Note(reading.symbologies, symbologies);
}

// What is said of an exception that the service does not catch.
std::string EndText(std::string what)
{
    what.erase(what.find_last_not_of('\n') + 1);
    return "the service would end here: " + what;
}

} // namespace

bool Reading_CameraJpeg(const std::string& path, std::vector<uint8_t>& jpeg, std::string& error)
{
    cv::Mat picture;
    if (!Sim_LoadPicture(path, picture, error)) {
        return false;
    }
    jpeg = Sim_EncodeFrame(Sim_CameraFrame(picture, SNAP_WIDTH, SNAP_HEIGHT), SNAP_QUALITY);
    return true;
}

bool Reading_SavedJpeg(const std::string& path, std::vector<uint8_t>& jpeg, std::string& error)
{
    if (!Sim_CheckPictureFile(path, error)) {
        return false;
    }
    jpeg.resize(MAXFRAMERINBUF + 1); // one more than the service takes, so that it shows
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(jpeg.data()), static_cast<std::streamsize>(jpeg.size()));
    jpeg.resize(static_cast<size_t>(file.gcount()));
    error = "cannot be read";
    return !jpeg.empty();
}

WatchedReading Reading_Take(const std::vector<uint8_t>& jpeg, cv::Mat& grey)
{
    std::string why;
    grey.release();
    try {
        WatchedReading reading;
        std::vector<uint8_t> buffer(MAXFRAMERINBUF);
        if (jpeg.size() <= buffer.size()) {
            std::memcpy(buffer.data(), jpeg.data(), jpeg.size());
            ReadBuffer(buffer, grey, reading);
            return reading;
        }
        why =
            "the service takes no stream of more than " + std::to_string(MAXFRAMERINBUF) + " bytes";
    } catch (const std::bad_alloc&) {
        why = NO_MEMORY;
    } catch (const cv::Exception& exception) {
        why = exception.code == cv::Error::StsNoMem ? NO_MEMORY : EndText(exception.what());
    } catch (const std::exception& exception) { // zbar's
        why = EndText(exception.what());
    }
    grey.release();
    WatchedReading reading;
    reading.outcome = READING_NOT_DECODABLE;
    Note(reading.remark, why);
    return reading;
}
