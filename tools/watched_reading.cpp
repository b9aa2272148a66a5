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
#include "snap_size.h"

enum { SCANS_PER_ATTEMPT = 2 }; // of an attempt that finds nothing

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

static void Note(char (&szNote)[READING_NOTE_SIZE], const std::string& text)
{
    std::snprintf(szNote, sizeof(szNote), "%s", text.c_str());
}

// What the service does with a stream, from the picture buffer to the text.
static void ReadBuffer(std::vector<uint8_t>& buffer, cv::Mat& grey, WatchedReading& reading)
{
    nSnapWidth = SNAP_WIDTH; // as the set-up of a snapshot does
    nSnapHeight = SNAP_HEIGHT;
    Watch_Begin();
    const auto begin = std::chrono::steady_clock::now();
    const bool bPicture = Qrcode_DecodeMirrorGrey(buffer.data(), grey);
    const int nRet = bPicture ? Qrcode_ScanCascade(grey, reading.szText) : 0;
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - begin;

    reading.ms = taken.count();
    reading.nScans = static_cast<int>(Watch_Scans().size());
    reading.outcome = bPicture ? READING_NO_CODE : READING_NOT_DECODABLE;
    Note(reading.szRemark, bPicture ? "" : "the decoder finds no picture in it");
    if (nRet < 1) {
        return;
    }
    const bool bShort = std::strlen(reading.szText) < QRCODE_TEXT_REPORT_MIN;
    reading.outcome = bShort ? READING_SHORT : READING_TEXT;
    reading.nAttempt = (reading.nScans - 1) / SCANS_PER_ATTEMPT + ATTEMPT_PLAIN;
    reading.bOpened = reading.nScans % SCANS_PER_ATTEMPT == 0;
    std::string symbologies;
    for (const WatchedSymbol& symbol : Watch_Scans().back().symbols) {
        const std::string next = (symbologies.empty() ? "" : ", ") + symbol.symbology;
        symbologies += symbologies.size() + next.size() < READING_NOTE_SIZE ? next : "";
    }
    Note(reading.szSymbologies, symbologies);
}

static void NotDecodable(const std::string& why, cv::Mat& grey, WatchedReading& reading)
{
    grey.release();
    reading = WatchedReading();
    reading.outcome = READING_NOT_DECODABLE;
    Note(reading.szRemark, why);
}

static std::string OneLine(std::string text)
{
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

WatchedReading Reading_Take(const std::vector<uint8_t>& jpeg, cv::Mat& grey)
{
    WatchedReading reading;
    grey.release();
    std::vector<uint8_t> buffer(MAXFRAMERINBUF);
    if (jpeg.size() > buffer.size()) {
        NotDecodable("the service takes no stream of more than " + std::to_string(MAXFRAMERINBUF) +
                         " bytes",
                     grey, reading);
        return reading;
    }
    std::memcpy(buffer.data(), jpeg.data(), jpeg.size());
    try {
        ReadBuffer(buffer, grey, reading);
    } catch (const std::bad_alloc&) {
        NotDecodable("too large a picture for the memory there is", grey, reading);
    } catch (const cv::Exception& exception) {
        NotDecodable(exception.code == cv::Error::StsNoMem
                         ? "too large a picture for the memory there is"
                         : "the service would end here: " + OneLine(exception.what()),
                     grey, reading);
    } catch (const std::exception& exception) { // zbar's
        NotDecodable("the service would end here: " + OneLine(exception.what()), grey, reading);
    }
    return reading;
}

std::string Reading_AttemptName(int nAttempt)
{
    switch (nAttempt) {
    case ATTEMPT_PLAIN:
        return "plain";
    case ATTEMPT_OTSU_INVERTED:
        return "Otsu inverted";
    case ATTEMPT_ADAPTIVE:
        return "adaptive";
    default:
        return "level " +
               std::to_string(LEVEL_FIRST + LEVEL_STEP * (nAttempt - ATTEMPT_LEVEL_FIRST));
    }
}
