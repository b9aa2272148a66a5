// What reaches the text buffer from the symbols of a picture. The symbols are real; their texts can
// be scripted.
#include "symbol_scan.h"

#include <gtest/gtest.h>
#include <map>
#include <opencv2/imgproc.hpp>
#include <zbar.h>

#include "camera_picture.h"
#include "files.h"
#include "message.h"

namespace
{
std::vector<std::string> scriptedTexts; // by the order of the symbols; empty for the real ones
std::map<const zbar::zbar_symbol_t*, size_t> symbolsSeen;
int textsAsked = 0; // times that a symbol was asked for its text

const std::string* Scripted(const zbar::zbar_symbol_t* symbol)
{
    if (scriptedTexts.empty()) {
        return nullptr;
    }
    const size_t number = symbolsSeen.emplace(symbol, symbolsSeen.size()).first->second;
    return &scriptedTexts.at(number);
}
} // namespace

extern "C" {
const char* __real_zbar_symbol_get_data(const zbar::zbar_symbol_t* symbol);
unsigned __real_zbar_symbol_get_data_length(const zbar::zbar_symbol_t* symbol);

const char* __wrap_zbar_symbol_get_data(const zbar::zbar_symbol_t* symbol)
{
    ++textsAsked;
    const std::string* const text = Scripted(symbol);
    return text != nullptr ? text->data() : __real_zbar_symbol_get_data(symbol);
}

unsigned __wrap_zbar_symbol_get_data_length(const zbar::zbar_symbol_t* symbol)
{
    const std::string* const text = Scripted(symbol);
    return text != nullptr ? static_cast<unsigned>(text->size())
                           : __real_zbar_symbol_get_data_length(symbol);
}
}

namespace
{

cv::Mat Grey(const std::string& sample)
{
    cv::Mat picture;
    std::string error;
    EXPECT_TRUE(Sim_LoadPicture(Sample(sample), picture, error)) << sample << error;
    cv::Mat grey;
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
    return grey;
}

TEST(SymbolScanTest, TextsReachTheBufferWithoutATerminator)
{
    const auto longText = [](size_t length) { return std::string(length, 'x'); };
    const struct {
        const char* sample;
        std::vector<std::string> texts; // of its symbols
        std::string written;
        int result;
    } scans[] = {
        {"plain.png", {"ABC"}, "ABC", 3},
        {"plain.png", {{"AB\0CD", 5}}, "AB", 2}, // ends at its first zero byte
        // Later ones overlap earlier ones.
        {"several-codes.png", {"12345678", "abc"}, "abc45678", 3},
        {"several-codes.png", {"abc", "12345678"}, "12345678", 8},
        {"several-codes.png", {"12345678", ""}, "12345678", 0}, // the last counts, even when empty
        {"plain.png", {longText(1022)}, longText(1022), 1022},
        {"plain.png", {longText(1023)}, longText(1023), 1023},
        {"plain.png", {longText(1024)}, longText(1023), 1023}, // the last byte is left alone
        {"plain.png", {longText(2953)}, longText(1023), 1023},
        {"no-code-wall.png", {}, "", 0},
    };
    for (const auto& scan : scans) {
        scriptedTexts = scan.texts;
        symbolsSeen.clear();
        std::string buffer(QRCODE_TEXT_SIZE, '#');
        EXPECT_EQ(scan.result, Qrcode_ScanImage(Grey(scan.sample), buffer.data()));
        EXPECT_EQ(scan.written + std::string(1024 - scan.written.size(), '#'), buffer);
        scriptedTexts.clear();
    }
}

TEST(SymbolScanTest, TextOfOneByteIsEnoughToSpareTheSecondScan)
{
    const cv::Mat grey = Grey("plain.png");
    scriptedTexts = {"A"};
    int asked[2] = {};
    for (int opening = 0; opening < 2; ++opening) {
        symbolsSeen.clear();
        textsAsked = 0;
        char buffer[QRCODE_TEXT_SIZE] = {};
        EXPECT_EQ(1, (opening == 1 ? Qrcode_ScanWithOpening : Qrcode_ScanImage)(grey, buffer));
        asked[opening] = textsAsked;
    }
    EXPECT_EQ(asked[0], asked[1]);
    scriptedTexts.clear();
}

} // namespace
