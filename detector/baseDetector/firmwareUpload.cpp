#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "InternalUtils/Failure.h"
#include "detector/baseDetector.h"
#include "detector/baseDetector/serialProtocol.h"
#include "detector/baseDetector/standardFailures.h"
#include "maintenance.h"
#include "platform/Clock.h"
#include "platform/SystemError.h"

/// The upload of a firmware image to the flash memory of one sensor's controller.

namespace {

constexpr const char* here = "baseDetector::UploadFirmware";
constexpr int highestSensor = 9;
constexpr std::size_t largestImage = highestFirmwareBlockCount * firmwareBlockSize;
constexpr std::size_t longestFile = 16 * largestImage;  // erased flash may follow the image; a device file has no end
constexpr int erasePolls = 60;
constexpr std::chrono::milliseconds erasePause{1000};
constexpr std::chrono::milliseconds writePause{5000};
constexpr const char* refusedReply = "E";
constexpr const char* diagnosticFile = "C:/tmp/flashcmd.txt";

[[noreturn]] void refuseLargeImage(int line = __builtin_LINE()) {
    fail("The firmware image is too large: at most 16384 blocks of 1024 bytes can be addressed!", DerrBadRequest, here,
         0, "", line, __FILE__);
}

/// Reads the file up to the size of the largest image; refuses further content unless it is erased flash.
std::vector<std::uint8_t> readImage(const char* fileName) {
    const auto refuse = [](int error) {
        fail("Failed to open file.", DerrBadRequest, here, error, platform::systemErrorText(error).c_str());
    };
    if (fileName == nullptr) refuse(EINVAL);
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }  // NOLINT: the owner of the stream
    };
    errno = 0;
    const std::unique_ptr<std::FILE, Close> file(std::fopen(fileName, "rb"));
    if (file == nullptr) refuse(errno);
    std::vector<std::uint8_t> image;
    std::array<std::uint8_t, 65536> chunk{};
    std::size_t count = 0;
    std::size_t passed = 0;
    while ((count = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0) {
        image.insert(image.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(count));
        passed += count;
        if (image.size() <= largestImage) continue;
        const auto excess = image.begin() + static_cast<std::ptrdiff_t>(largestImage);
        if (CountFirmwareBlocks({excess, image.end()}) > 0 || passed > longestFile) refuseLargeImage();
        // Drop erased flash after the largest image, but for the beginning of a block.
        const std::ptrdiff_t rest = (image.end() - excess) % static_cast<std::ptrdiff_t>(firmwareBlockSize);
        image.erase(excess, image.end() - rest);
    }
    if (std::ferror(file.get()) != 0) refuse(errno);  // a directory can be opened, but not read
    return image;
}

/// Writes the packet's bytes as decimal numbers, to diagnose a failed upload; nothing without the folder.
void appendDiagnostics(const std::array<std::uint8_t, firmwarePacketSize>& packet) {
    std::ofstream file(diagnosticFile, std::ios::binary | std::ios::app);
    if (!file) return;
    for (const std::uint8_t byte : packet) file << static_cast<int>(byte) << '\n';
    file << '\n';
}

void say(const std::string& text) {
    std::cout << text << std::endl;
}

}  // namespace

void baseDetector::UploadFirmware(const char* fileName, int sensor, bool verbose) {
    CheckConnected();
    if (sensor < 0 || sensor > highestSensor)
        fail("Invalid sensor number. The sensor number for a firmware upload must be between 0-9!", DerrBadRequest,
             here, sensor);
    const std::int64_t start = platform::tickCountMs();
    std::vector<std::uint8_t> image = readImage(fileName);
    const std::size_t blocks = CountFirmwareBlocks(image);
    std::transform(image.begin(), image.end(), image.begin(), ReverseBits);

    if (verbose) say("Erase started");
    eraseFlash(sensor);
    if (verbose) {
        say("Erase completed");
        say("Write started");
    }
    platform::sleepFor(writePause);
    for (std::size_t block = 0; block < blocks; ++block) {
        writeFlashBlock(image, block, sensor);
        if (verbose) say(fmt::format("Block {}/{} written.\n", block + 1, blocks));
    }
    say(fmt::format("Write completed to sensor ID {}. Time taken {} ms", sensor, platform::tickCountMs() - start));
}

void baseDetector::eraseFlash(int sensor) {
    constexpr std::size_t statusLength = 6;
    constexpr int eraseRunningBit = 1;
    if (SendCommand(fmt::format("WFE{}", sensor)) == refusedReply)
        fail("Received error from flash erase command, this detector may not support remote programming.",
             DerrTransport, here);
    for (int poll = 0; poll < erasePolls; ++poll) {
        platform::sleepFor(erasePause);
        const std::string reply = SendCommand(fmt::format("RFS{}", sensor));
        if (reply == refusedReply) fail("Received error from flash status command.", DerrTransport, here);
        if (reply.size() == statusLength && (standardStoi(reply.substr(1)) & eraseRunningBit) == 0) return;
    }
    fail("Firmware erase failed.", DerrTransport, here);
}

void baseDetector::writeFlashBlock(const std::vector<std::uint8_t>& reversedImage, std::size_t block, int sensor) {
    const std::array<std::uint8_t, firmwarePacketSize> packet = MakeFirmwarePacket(reversedImage, block, sensor);
    appendDiagnostics(packet);
    const std::uint8_t checksum = FirmwareChecksum(&reversedImage[block * firmwareBlockSize], firmwareBlockSize);
    std::array<char, serial::replySize> buffer{};
    SendCommand(reinterpret_cast<const char*>(packet.data()), packet.size(), buffer.data());
    std::string reply = buffer.data();
    if (reply.empty()) throw std::out_of_range(standardText::stringPosition);
    if (reply.back() == serial::carriageReturn) reply.pop_back();
    if (reply != fmt::format("S{:05}", checksum)) fail("Firmware write failed, bad checksum.", DerrTransport, here);
}
