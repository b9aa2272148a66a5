#include "watched_reading.h"

#include <algorithm>
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

// Keeps the texts of all scans, each once.
void KeepTexts(const std::vector<WatchedScan>& scans, WatchedReading& reading)
{
    std::vector<WatchedSymbol> different;
    for (const WatchedScan& scan : scans) {
        for (const WatchedSymbol& symbol : scan.symbols) {
            const auto same = [&](const WatchedSymbol& other) {
                return other.text == symbol.text && other.symbology == symbol.symbology;
            };
            different.erase(std::remove_if(different.begin(), different.end(), same),
                            different.end());
            different.push_back(symbol); // where it was written last
        }
    }
    reading.textCount = static_cast<int>(different.size());
    const size_t left = different.size() - std::min<size_t>(different.size(), READING_TEXTS);
    for (size_t n = left; n < different.size(); ++n) {
        WatchedText& kept = reading.texts[n - left];
        const std::string& text = different[n].text;
        std::snprintf(kept.symbology, sizeof(kept.symbology), "%s", different[n].symbology.c_str());
        kept.bytes = static_cast<int>(text.size());
        std::memcpy(kept.text, text.data(), std::min<size_t>(text.size(), QRCODE_TEXT_SIZE));
    }
}

// What the reported text has of the last code's.
int FlawsOf(const WatchedReading& reading)
{
    int flaws = 0;
    const int kept = std::min<int>(reading.textCount, READING_TEXTS);
    for (int n = 0; n < kept; ++n) {
        const WatchedText& text = reading.texts[n];
        const std::string counted(text.text, strnlen(text.text, QRCODE_TEXT_SIZE - 1));
        if (!counted.empty() && counted != reading.text) {
            flaws |= FLAW_OVERLAID;
        }
        if (n == kept - 1 && counted.size() < static_cast<size_t>(text.bytes)) {
            flaws |= counted.size() == QRCODE_TEXT_SIZE - 1 ? FLAW_LONG : FLAW_ZERO;
        }
    }
    return flaws;
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
    Reading_Judge(Watch_Scans(), ret > 0, reading);
    if (ret < 1) {
        return;
    }
    reading.attempt = (reading.scans - 1) / SCANS_PER_ATTEMPT + 1;
    reading.opened = reading.scans % SCANS_PER_ATTEMPT == 0;
    std::string symbologies;
    for (const WatchedSymbol& symbol : Watch_Scans().back().symbols) {
        const std::string next = (symbologies.empty() ? "" : ", ") + symbol.symbology;
        symbologies += symbologies.size() + next.size() < READING_NOTE_SIZE ? next : "";
    }
    Note(reading.symbologies, symbologies);
}

// Size of a JPEG's picture, from its frame header; {0, 0} when there is none.
cv::Size JpegSize(const std::vector<uint8_t>& jpeg)
{
    const auto word = [&](size_t at) { return jpeg[at] << 8 | jpeg[at + 1]; };
    const size_t frameHeader = 9; // bytes of it: marker, length, precision, height, width
    for (size_t at = 2; at + frameHeader <= jpeg.size() && jpeg[at] == 0xFF;) {
        const int marker = jpeg[at + 1];
        const bool table = marker == 0xC4 || marker == 0xC8 || marker == 0xCC;
        if (marker >= 0xC0 && marker <= 0xCF && !table) {
            return {word(at + 7), word(at + 5)};
        }
        at += marker == 0xFF ? 1 : 2 + static_cast<size_t>(word(at + 2));
    }
    return {};
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
    if (jpeg.empty()) {
        error = "cannot be read";
        return false;
    }
    if (jpeg.size() < 3 || jpeg[0] != 0xFF || jpeg[1] != 0xD8 || jpeg[2] != 0xFF) {
        error = "no snapshot: not a JPEG (a photo wants no --snapshot)";
        return false;
    }
    const cv::Size size = JpegSize(jpeg); // none: its decoder will tell
    if (size.width > 0 && size.height > 0 && size != cv::Size(SNAP_WIDTH, SNAP_HEIGHT)) {
        error = "no snapshot: " + std::to_string(size.width) + " x " + std::to_string(size.height) +
                " pixels, not " + std::to_string(SNAP_WIDTH) + " x " + std::to_string(SNAP_HEIGHT) +
                " (a photo wants no --snapshot)";
        return false;
    }
    return true;
}

void Reading_Judge(const std::vector<WatchedScan>& scans, bool won, WatchedReading& reading)
{
    KeepTexts(scans, reading);
    if (!won) {
        return;
    }
    reading.flaws = FlawsOf(reading);
    const bool isShort = std::strlen(reading.text) < QRCODE_TEXT_REPORT_MIN;
    reading.outcome = isShort ? READING_SHORT : reading.flaws != 0 ? READING_ALTERED : READING_TEXT;
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
