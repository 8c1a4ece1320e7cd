#include <qrapi/QuorinDetector.h>
#include <qrapi/maintenance.h>

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
#include "tools/maintenance.h"
#include "tools/run.h"

namespace tool {
namespace {

/// Reads the progress off what the library prints, line by line.
class UploadProgress : public std::streambuf {
public:
    UploadProgress(std::size_t blockCount, std::ostream* barTerminal) : blocks(blockCount), terminal(barTerminal) {}

    bool eraseStarted = false;
    bool eraseCompleted = false;
    std::size_t written = 0;

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

    void show() const {
        constexpr std::size_t width = 30;
        const std::size_t full = blocks == 0 ? width : width * written / blocks;
        const double seconds = std::chrono::duration<double>(platform::now() - start).count();
        const double rate = written > 0 && seconds > 0 ? static_cast<double>(written) / seconds : 0;
        *terminal << "\r[" << std::string(full, '#') << std::string(width - full, ' ') << "] ";
        if (!eraseCompleted)
            *terminal << "erasing ";
        else
            *terminal << written << "/" << blocks << " blocks, " << std::fixed << std::setprecision(1) << rate
                      << " blocks/s, " << std::setprecision(0)
                      << (rate > 0 ? static_cast<double>(blocks - written) / rate : 0) << " s left   ";
        terminal->flush();
    }

    std::string line;
    std::size_t blocks;
    std::ostream* terminal;
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
    image.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (!file) throw std::runtime_error(unreadable(name));
    return image;
}

void describe(const FirmwareRequest& request, const std::vector<std::uint8_t>& image, Output& output) {
    const std::size_t blocks = CountFirmwareBlocks(image);
    std::ostringstream checksum;
    checksum << "0x" << std::hex << std::uppercase << std::setw(2) << std::setfill('0')
             << static_cast<int>(FirmwareChecksum(image.data(), blocks * firmwareBlockSize));
    const std::size_t unsent = image.size() - blocks * firmwareBlockSize;
    output.text() << request.file << ": " << image.size() << " bytes, " << blocks << " blocks of " << firmwareBlockSize
                  << " bytes will be sent to sensor " << request.sensor << ", " << unsent
                  << " bytes at the end will not; checksum " << checksum.str() << " (exclusive or of what is sent)\n";
    output.facts = {{"file", request.file},
                    {"sensor", request.sensor},
                    {"size_bytes", image.size()},
                    {"blocks", blocks},
                    {"block_bytes", firmwareBlockSize},
                    {"unsent_bytes", unsent},
                    {"checksum", checksum.str()},
                    {"written_blocks", 0}};
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
    if (request.dryRun) return exitSuccess;
    if (!request.yes && !confirmed(in, output.text())) {
        output.text() << "nothing was done\n";
        return exitFailedCall;
    }
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    std::ostream* const terminal = output.terminal();
    UploadProgress progress(blocks, terminal);
    try {
        const OutputTaken taken(progress);
        detector.UploadFirmware(request.file.c_str(), request.sensor, true);
    } catch (const QuorinException& failure) {
        if (terminal != nullptr) *terminal << "\n";
        const bool refusedAtOnce =
            std::string_view(failure.what()).rfind("Received error from flash erase command", 0) == 0;
        output.facts["written_blocks"] = progress.written;
        output.facts["flash_memory"] = aftermath(progress, blocks, refusedAtOnce);
        if (!output.isJson) output.errors() << aftermath(progress, blocks, refusedAtOnce) << "\n";
        throw;
    }
    if (terminal != nullptr) *terminal << "\n";
    output.facts["written_blocks"] = blocks;
    output.news() << blocks << " blocks written to sensor " << request.sensor << "\n";
    detector.CloseBoard();
    return exitSuccess;
}

}  // namespace tool
