#include "card_run.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <thread>
#include <unistd.h>

#include "card_report.h"
#include "command_line.h"
#include "inspect_sheet.h"
#include "inspect_worker.h"
#include "scene_files.h"
#include "text.h"

namespace
{

enum {
    BATCH = 256,        // cards that are held at a time
    CARD_SECONDS = 600, // for one card: some hundred views, on a slow machine
    LINE_BYTES = 7089   // the most that any QR code holds
};

const char CLEAR_LINE[] = "\r                                        \r"; // any terminal does that
const char* const PICTURE_ENDINGS[] = {".png", ".jpg", ".jpeg", ".bmp", ".tif", ".tiff", ".webp"};

// A card to check: a text, or a picture's path.
struct Input {
    std::string source;
    std::string text;
    bool picture = false;
};

void Complain(const std::string& source, const std::string& what)
{
    std::fflush(stdout);
    std::fprintf(stderr, "qrcode-inspect: %s: %s\n", Text_Escape(source).c_str(),
                 Text_Escape(what).c_str());
}

bool IsPictureName(const std::string& place)
{
    std::string ending = std::filesystem::path(place).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return std::find(std::begin(PICTURE_ENDINGS), std::end(PICTURE_ENDINGS), ending) !=
           std::end(PICTURE_ENDINGS);
}

// Reads a line without its end; of one longer than any code can hold the beginning.
bool ReadLine(std::istream& in, std::string& line)
{
    line.clear();
    int byte = in.get();
    const bool any = byte != EOF;
    for (; byte != EOF && byte != '\n'; byte = in.get()) {
        if (line.size() <= LINE_BYTES) {
            line += static_cast<char>(byte);
        }
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return any;
}

// Hands every card of all places to `take`, in order. Returns false when one gives none.
bool ReadPlaces(const std::vector<std::string>& places,
                const std::function<void(const Input&)>& take)
{
    bool well = true;
    for (const std::string& place : places) {
        size_t cards = 0;
        std::error_code ignored;
        std::string error;
        const bool folder = std::filesystem::is_directory(place, ignored);
        if (folder || IsPictureName(place)) {
            std::vector<std::string> pictures = {place};
            if (folder && !Sim_ListPictures(place, pictures, error)) {
                pictures.clear();
            } else {
                error.clear();
            }
            for (const std::string& picture : pictures) {
                take({picture, "", true});
                ++cards;
            }
        } else {
            std::ifstream file;
            if (place != "-") {
                file.open(place, std::ios::binary);
                error = file.is_open() ? "" : "no such file, or it cannot be read";
            }
            std::istream& in = place == "-" ? std::cin : file;
            for (Input input; ReadLine(in, input.text); take(input)) {
                input.source = place + ":" + std::to_string(++cards);
            }
        }
        if (cards == 0) {
            Complain(place, error.empty() ? "no cards in it" : error);
            well = false;
        }
    }
    return well;
}

// In a child.
CardRecord CheckOne(const Input& input, size_t number, const CardOptions& options)
{
    CardRecord record;
    Card card;
    std::string error;
    const bool made =
        input.picture ? Card_FromPicture(input.source, card, error)
                      : Card_FromText(input.text, options.level[0], options.margin, card, error);
    if (!made) {
        std::snprintf(record.error, sizeof(record.error), "%s", error.c_str());
        return record;
    }
    record = Card_Check(card, options.straightOnly);
    std::snprintf(record.text, sizeof(record.text), "%s", card.expected.text.c_str());
    if (options.worstFolder.empty() || record.worst.verdict <= CARD_RIGHT) {
        return record;
    }
    const CardSight& worst = record.worst;
    const std::string name = options.worstFolder + "/card-" + std::to_string(number) + "-" +
                             (worst.verdict == CARD_WRONG   ? "wrong"
                              : worst.verdict == CARD_SHORT ? "short"
                                                            : "unread");
    std::ofstream text(name + ".txt", std::ios::binary); // to be compared with by --truth
    text << card.expected.text << "\n" << std::flush;
    error = "its text cannot be written";
    if (text && Sheet_Write(View_Draw(card, worst.sizeNumber, worst.kind), name + ".png", error)) {
        std::snprintf(record.picture, sizeof(record.picture), "%s.png", name.c_str());
    } else {
        std::snprintf(record.pictureError, sizeof(record.pictureError), "%s.png: %s", name.c_str(),
                      error.c_str());
    }
    return record;
}

class Run
{
public:
    explicit Run(const CardOptions& options) : options_(options)
    {
        watched_ = isatty(STDERR_FILENO) == 1;
        if (!options.json) {
            std::printf("%s\n", CardReport_Heading().c_str());
        }
    }

    void Take(const Input& input)
    {
        batch_.push_back(input);
        if (batch_.size() == BATCH) {
            CheckBatch();
        }
    }

    // Checks those that are held. Does nothing after a failure.
    void CheckBatch()
    {
        std::string error;
        failed_ =
            failed_ || !Worker_ForEach<CardRecord>(
                           batch_.size(),
                           [this](size_t n) { return CheckOne(batch_[n], first_ + n, options_); },
                           [this](size_t n, const CardRecord& record, const std::string& death) {
                               Done(batch_[n], first_ + n, record, death);
                           },
                           CARD_SECONDS, error, std::max(1U, std::thread::hardware_concurrency()));
        if (!error.empty() && failed_) {
            std::fprintf(stderr, "qrcode-inspect: %s\n", error.c_str());
        }
        first_ += batch_.size();
        batch_.clear();
    }

    // Prints the table. Returns the exit status.
    int End()
    {
        CheckBatch();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin_;
        std::fputs(watched_ ? CLEAR_LINE : "", stderr);
        std::fputs(CardReport_Table(tally_, taken.count()).c_str(),
                   options_.json ? stderr : stdout);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            std::fputs("qrcode-inspect: what was found could not all be written\n", stderr);
            failed_ = true;
        }
        const bool well = tally_.wrong + tally_.neverRight + tally_.unchecked == 0;
        return well && !failed_ && !pictureFailed_ ? 0 : EXIT_FAILED;
    }

private:
    void Done(const Input& input, size_t number, const CardRecord& record, const std::string& death)
    {
        CheckedCard card = {number, input.source, input.picture ? record.text : input.text,
                            options_.level[0], record};
        if (!death.empty()) {
            std::snprintf(card.record.error, sizeof(card.record.error), "%s", death.c_str());
        }
        CardReport_Count(tally_, card);
        std::fputs(watched_ ? CLEAR_LINE : "", stderr);
        if (card.record.error[0] != '\0') {
            Complain(card.source, card.record.error);
        }
        if (record.pictureError[0] != '\0') {
            Complain(record.pictureError, "cannot be written");
            pictureFailed_ = true;
        }
        const std::string line = options_.json ? CardReport_Json(card) : CardReport_Line(card);
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        if (watched_) {
            std::fprintf(stderr, "cards: %d, ever wrong: %d", tally_.cards, tally_.wrong);
        }
    }

    const CardOptions& options_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    bool watched_ = false; // by a person, for a while
    bool failed_ = false;
    bool pictureFailed_ = false;
    size_t first_ = 1; // number of the batch's first card
    std::vector<Input> batch_;
    CardTally tally_;
};

} // namespace

int Cards_Run(const std::vector<std::string>& places, const CardOptions& options)
{
    std::error_code code;
    if (!options.worstFolder.empty() &&
        !std::filesystem::create_directories(options.worstFolder, code) && code) {
        Complain(options.worstFolder, code.message());
        return EXIT_FAILED;
    }
    Run run(options);
    const bool complete = ReadPlaces(places, [&run](const Input& input) { run.Take(input); });
    const int status = run.End();
    return complete ? status : EXIT_FAILED;
}
