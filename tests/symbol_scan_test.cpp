// What reaches the text buffer from the symbols of a picture. The symbols are real; their texts can
// be scripted.
#include "symbol_scan.h"

#include <gtest/gtest.h>
#include <map>
#include <opencv2/imgproc.hpp>
#include <zbar.h>

#include "camera_picture.h"
#include "message.h"

namespace
{
std::vector<std::string> scriptedTexts; // by the order of the symbols; empty for the real ones
std::map<const zbar::zbar_symbol_t*, size_t> symbolsSeen;

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
const char* __wrap_zbar_symbol_get_data(const zbar::zbar_symbol_t* symbol);
unsigned __wrap_zbar_symbol_get_data_length(const zbar::zbar_symbol_t* symbol);

const char* __wrap_zbar_symbol_get_data(const zbar::zbar_symbol_t* symbol)
{
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
    EXPECT_TRUE(Sim_LoadPicture(SAMPLES_DIR "/" + sample, picture, error)) << sample << error;
    cv::Mat grey;
    cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
    return grey;
}

struct Scan {
    int result;
    std::string buffer; // all 1024 bytes
};

Scan ScanImage(const std::string& sample, const std::vector<std::string>& texts, char before)
{
    scriptedTexts = texts;
    symbolsSeen.clear();
    Scan scan = {0, std::string(QRCODE_TEXT_SIZE, before)};
    scan.result = Qrcode_ScanImage(Grey(sample), scan.buffer.data());
    scriptedTexts.clear();
    return scan;
}

TEST(SymbolScanTest, WritesTheTextWithoutATerminator)
{
    const Scan scan = ScanImage("plain.png", {"ABC"}, '#');
    EXPECT_EQ(3, scan.result);
    EXPECT_EQ("ABC" + std::string(1021, '#'), scan.buffer);
}

TEST(SymbolScanTest, LaterTextsOverlapEarlierOnes)
{
    const Scan longFirst = ScanImage("several-codes.png", {"12345678", "abc"}, '\0');
    EXPECT_EQ(3, longFirst.result);
    EXPECT_STREQ("abc45678", longFirst.buffer.c_str());
    const Scan shortFirst = ScanImage("several-codes.png", {"abc", "12345678"}, '\0');
    EXPECT_EQ(8, shortFirst.result);
    EXPECT_STREQ("12345678", shortFirst.buffer.c_str());
}

TEST(SymbolScanTest, LastTextCountsEvenWhenItIsEmpty)
{
    const Scan scan = ScanImage("several-codes.png", {"12345678", ""}, '\0');
    EXPECT_EQ(0, scan.result);
    EXPECT_STREQ("12345678", scan.buffer.c_str());
}

TEST(SymbolScanTest, TextEndsAtItsFirstZeroByte)
{
    const Scan scan = ScanImage("plain.png", {std::string("AB\0CD", 5)}, '#');
    EXPECT_EQ(2, scan.result);
    EXPECT_EQ("AB" + std::string(1022, '#'), scan.buffer);
}

TEST(SymbolScanTest, LeavesTheBuffersLastByteAlone)
{
    for (const size_t length : {size_t{1022}, size_t{1023}, size_t{1024}, size_t{2953}}) {
        const std::string text(length, 'x');
        const Scan scan = ScanImage("plain.png", {text}, '\0');
        EXPECT_EQ(std::min<size_t>(length, 1023), static_cast<size_t>(scan.result));
        EXPECT_EQ(text.substr(0, 1023), std::string(scan.buffer.c_str())) << length;
    }
}

TEST(SymbolScanTest, PictureWithoutASymbolLeavesTheBufferAlone)
{
    const Scan scan = ScanImage("no-code-wall.png", {}, '#');
    EXPECT_EQ(0, scan.result);
    EXPECT_EQ(std::string(1024, '#'), scan.buffer);
}

TEST(SymbolScanTest, OpeningIsForPicturesWithoutAResultAndLeavesThemAsTheyWere)
{
    std::string buffer(QRCODE_TEXT_SIZE, '\0');
    const cv::Mat grey = Grey("no-code-wall.png");
    const cv::Mat before = grey.clone();
    EXPECT_EQ(0, Qrcode_ScanWithOpening(grey, buffer.data()));
    EXPECT_EQ(0, cv::norm(grey, before, cv::NORM_INF));
    EXPECT_EQ(std::string(1024, '\0'), buffer);
}

} // namespace
