#include <qrapi/QuorinDetector.h>
#include <qrapi/maintenance.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <streambuf>

#include "platform/Clock.h"
#include "tools/Interrupt.h"
#include "tools/maintenance.h"
#include "tools/run.h"

namespace tool {
namespace {

/// Reads the progress off what the library prints, line by line. Another thread may ask for the notice.
class UploadProgress : public std::streambuf {
public:
    UploadProgress(std::size_t blockCount, std::ostream* barTerminal) : blocks(blockCount), terminal(barTerminal) {}

    std::atomic<bool> begun{false};  ///< the library's upload has been called
    std::atomic<bool> eraseStarted{false};
    std::atomic<bool> eraseCompleted{false};
    std::atomic<std::size_t> written{0};

    /// What becomes of the upload after a signal.
    std::string notice() const {
        if (!begun) return "ending before anything is erased";
        const std::size_t block = std::min(written + 1, blocks);
        const std::string where = eraseCompleted ? "block " + std::to_string(block) + " of " + std::to_string(blocks)
                                                 : "the erase and " + std::to_string(blocks) + " blocks";
        return std::string(barDrawn ? "\n" : "") + "finishing the upload: " + where +
               "; a second Ctrl-C leaves the sensor unusable until the next upload";
    }

    void endBar() {
        if (barDrawn) *terminal << "\n";
        barDrawn = false;
    }

protected:
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        if (character == '\n')
            take(std::exchange(line, {}));
        else
            line.push_back(traits_type::to_char_type(character));
        return character;
    }

private:
    void take(const std::string& text) {
        if (text == "Erase started") eraseStarted = true;
        if (text == "Erase completed") {
            eraseCompleted = true;
            start = platform::now();
        }
        std::size_t block = 0;
        if (std::sscanf(text.c_str(), "Block %zu/", &block) == 1) written = block;  // NOLINT(cert-err34-c)
        if (terminal != nullptr && !text.empty()) show();
    }

    void show() {
        constexpr std::size_t width = 30;
        const std::size_t full = blocks == 0 ? width : width * written / blocks;
        const double seconds = std::chrono::duration<double>(platform::now() - start).count();
        const double rate = written > 0 && seconds > 0 ? static_cast<double>(written) / seconds : 0;
        std::ostringstream bar;  // written at once, since the notice may come between
        bar << "\r[" << std::string(full, '#') << std::string(width - full, ' ') << "] ";
        if (!eraseCompleted)
            bar << "erasing ";
        else
            bar << written << "/" << blocks << " blocks, " << std::fixed << std::setprecision(1) << rate
                << " blocks/s, " << std::setprecision(0)
                << (rate > 0 ? static_cast<double>(blocks - written) / rate : 0) << " s left   ";
        *terminal << bar.str() << std::flush;
        barDrawn = true;
    }

    std::string line;
    const std::size_t blocks;
    std::ostream* const terminal;
    std::atomic<bool> barDrawn{false};
    platform::Time start = platform::now();
};

/// Takes what goes to the standard output while this object exists.
class OutputTaken {
public:
    explicit OutputTaken(std::streambuf& taker) : before(std::cout.rdbuf(&taker)) {}
    ~OutputTaken() { std::cout.rdbuf(before); }
    OutputTaken(const OutputTaken&) = delete;
    OutputTaken& operator=(const OutputTaken&) = delete;

private:
    std::streambuf* before;
};

std::vector<std::uint8_t> readImage(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::vector<std::uint8_t> image;
    if (!file || std::filesystem::is_directory(name)) throw std::runtime_error(unreadable(name));
    if (!std::filesystem::is_regular_file(name))
        throw std::runtime_error(name + ": is not a regular file; an image is read more than once, so save it first");
    image.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (!file) throw std::runtime_error(unreadable(name));
    return image;
}

std::string hexadecimal(unsigned long number, int digits) {
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << std::setw(digits) << std::setfill('0') << number;
    return text.str();
}

/// True for a file without control characters that is mostly ASCII, such as an image as Intel HEX or S-records, or an
/// error page in place of a download.
bool looksLikeText(const std::vector<std::uint8_t>& bytes) {
    constexpr std::uint8_t firstPrintable = 0x20;
    constexpr std::uint8_t deleteCharacter = 0x7F;
    const auto isAscii = [](std::uint8_t byte) { return byte < deleteCharacter; };
    const auto isControl = [](std::uint8_t byte) {
        const bool isSpace = byte >= '\t' && byte <= '\r';
        return (byte < firstPrintable && !isSpace) || byte == deleteCharacter;
    };
    if (bytes.empty() || std::any_of(bytes.begin(), bytes.end(), isControl)) return false;
    const auto ascii = static_cast<std::size_t>(std::count_if(bytes.begin(), bytes.end(), isAscii));
    return ascii > bytes.size() / 2;
}

void describe(const FirmwareRequest& request, const std::vector<std::uint8_t>& image, Output& output) {
    constexpr int crcDigits = 8;
    constexpr int byteDigits = 2;
    const std::size_t blocks = CountFirmwareBlocks(image);
    const std::size_t unsent = image.size() - blocks * firmwareBlockSize;
    const std::string crc = hexadecimal(crc32_z(0, image.data(), image.size()), crcDigits);
    const std::string checksum = hexadecimal(FirmwareChecksum(image.data(), blocks * firmwareBlockSize), byteDigits);
    const bool isText = looksLikeText(image);
    output.text() << request.file << ": " << image.size() << " bytes, " << blocks << " blocks of " << firmwareBlockSize
                  << " bytes will be sent to sensor " << request.sensor << ", " << unsent
                  << " bytes at the end will not\n"
                  << "CRC-32 of the file " << crc << ", exclusive or of what is sent " << checksum << "\n";
    if (isText && !output.isJson)
        output.errors() << output.paintedError("warning:", Tone::Bad) << " " << request.file
                        << " looks like text; an image is binary, not Intel HEX or S-records\n";
    output.facts = {{"file", request.file},
                    {"sensor", request.sensor},
                    {"size_bytes", image.size()},
                    {"blocks", blocks},
                    {"block_bytes", firmwareBlockSize},
                    {"unsent_bytes", unsent},
                    {"crc32", crc},
                    {"checksum", checksum},
                    {"looks_like_text", isText},
                    {"written_blocks", 0}};
}

/// Refuses an image that is too large, and one of which nothing would be written.
void check(const FirmwareRequest& request, const std::vector<std::uint8_t>& image) {
    const std::size_t blocks = CountFirmwareBlocks(image);
    if (blocks > highestFirmwareBlockCount)
        throw std::runtime_error(request.file + ": " + std::to_string(blocks) +
                                 " blocks are too many: at most 16384 blocks of 1024 bytes can be sent");
    if (blocks > 0 || request.force) return;
    const std::string reason =
        image.empty() ? "the file is empty"
        : image.size() < firmwareBlockSize
            ? "the file has " + std::to_string(image.size()) + " bytes, less than one block of 1024"
            : "no block of 1024 bytes holds anything but 255, the content of erased flash";
    throw std::runtime_error(request.file + ": " + reason + ": an upload would erase the flash memory of sensor " +
                             std::to_string(request.sensor) + " and write nothing; --force allows that");
}

/// What the flash memory holds after a failure, and what to do.
std::string aftermath(const UploadProgress& progress, std::size_t blocks, bool refusedAtOnce) {
    constexpr const char* again = "Upload again: each upload begins with an erase.";
    if (!progress.eraseStarted || refusedAtOnce)
        return "Nothing was erased: the flash memory holds what it held before.";
    if (!progress.eraseCompleted)
        return std::string("The erase did not end: the flash memory may be erased in part. ") + again;
    return "Stopped at block " + std::to_string(progress.written + 1) + " of " + std::to_string(blocks) +
           ": the flash memory holds " + std::to_string(progress.written) +
           " blocks of the new firmware, that block perhaps, and is erased behind it. " + again;
}

bool confirmed(std::istream& in, std::ostream& out) {
    out << "Erase the flash memory and write this image? [y/N] " << std::flush;
    std::string answer;
    std::getline(in, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

int uploadFirmware(const FirmwareRequest& request, std::istream& in, Output& output) {
    const std::vector<std::uint8_t> image = readImage(request.file);
    const std::size_t blocks = CountFirmwareBlocks(image);
    describe(request, image, output);
    check(request, image);
    if (request.dryRun) return exitSuccess;
    if (!request.yes && !confirmed(in, output.text())) {
        output.text() << "nothing was done\n";
        return exitFailedCall;
    }
    QuorinDetector detector = makeDetector(request.preparation.detector);
    UploadProgress progress(blocks, output.terminal());
    bool interrupted = false;
    try {
        const Interrupt interrupt(output.errors(), [&progress] { return progress.notice(); });
        openPrepared(detector, request.preparation);
        // The library reads the file again, and would erase the flash memory for one that is empty by now.
        if (readImage(request.file) != image)
            throw std::runtime_error(request.file + ": the file has changed since it was checked; nothing was erased");
        // The description, which the operator needs if this goes wrong, is written before the erase.
        if (!output.isJson && !output.text().flush())
            throw std::runtime_error("cannot write to the standard output; nothing was erased");
        progress.begun = !interrupt.isRequested();
        if (progress.begun) {
            const OutputTaken taken(progress);
            detector.UploadFirmware(request.file.c_str(), request.sensor, true);
        }
        interrupted = interrupt.isRequested();
    } catch (const QuorinException& failure) {
        progress.endBar();
        const bool refusedAtOnce =
            std::string_view(failure.what()).rfind("Received error from flash erase command", 0) == 0;
        output.facts["written_blocks"] = progress.written.load();
        output.facts["flash_memory"] = aftermath(progress, blocks, refusedAtOnce);
        if (!output.isJson) output.errors() << aftermath(progress, blocks, refusedAtOnce) << "\n";
        throw;
    }
    progress.endBar();
    if (progress.begun) {
        output.facts["written_blocks"] = blocks;
        output.news() << blocks << " blocks written to sensor " << request.sensor << "\n";
    }
    detector.CloseBoard();
    output.facts["interrupted"] = interrupted;
    if (!interrupted) return exitSuccess;
    output.text() << (progress.begun ? "interrupted: the upload is complete\n" : "interrupted: nothing was erased\n");
    return exitInterrupted;
}

}  // namespace tool
