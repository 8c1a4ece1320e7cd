#include <fmt/format.h>

#include <algorithm>

#include "fuzz/CoreRun.h"
#include "maintenance.h"
#include "simulator/CommandInterpreter.h"

using fuzz::require;

namespace {

constexpr int largestImage = 66 * 1024;  // past the 64 blocks that the low byte of an address can count

/// Bit by bit, where the library has a formula of its own.
std::string reversed(std::string_view bytes) {
    std::string result;
    for (const char byte : bytes) {
        unsigned bits = 0;
        for (unsigned bit = 0; bit < 8; ++bit)
            if ((static_cast<unsigned char>(byte) & (1U << bit)) != 0) bits |= 0x80U >> bit;
        result.push_back(static_cast<char>(bits));
    }
    return result;
}

/// A flash memory's controller that answers as the input has it, and rightly once that has no more replies.
class FlashScript {
public:
    FlashScript(fuzz::Input& inputToTake, int sensorToExpect, std::string imageToExpect)
        : input(inputToTake), sensor(static_cast<char>('0' + sensorToExpect)), image(std::move(imageToExpect)) {}

    std::vector<std::string> answer(const std::string& command) {
        if (command == "R1418") return {};
        require(!over, "nothing follows a failure", command);
        const simulator::FlashCommand parsed = parse(command);
        std::string right = "S00000";
        if (parsed.kind == simulator::FlashCommand::Kind::Packet) right = takePacket(parsed);
        std::string_view told = input.atEnd() ? std::string_view("=") : input.line();
        if (told == "-") {
            over = true;
            return support::RegisterScript::silence();
        }
        const std::string reply = std::string(told == "=" ? std::string_view(right) : told) + '\r';
        std::string seen = reply.c_str();  // a zero ends it
        if (!seen.empty() && seen.back() == '\r') seen.pop_back();
        over = parsed.kind == simulator::FlashCommand::Kind::Packet ? seen != right : seen == "E";
        return {reply};
    }

    std::size_t packets() const { return count; }

private:
    /// As the simulated detector takes it off the line: one command, whatever bytes it has.
    simulator::FlashCommand parse(const std::string& command) {
        simulator::CommandAssembler assembler;
        std::optional<std::string> whole;
        for (const char byte : command + '\r') {
            require(!whole, "no carriage return within a packet ends it");
            whole = assembler.feed(byte);
        }
        require(whole == command, "a command arrives as it was sent");
        const auto parsed = simulator::parseFlashCommand(command);
        require(parsed.has_value(), "the flash memory understands what it is sent", command);
        require(command[3] == sensor, "every command names the sensor", command);
        return *parsed;
    }

    std::string takePacket(const simulator::FlashCommand& packet) {
        require(packet.offset == count * firmwareBlockSize, "packets come in order");
        require(packet.offset + firmwareBlockSize <= image.size(), "only whole blocks are sent");
        require(packet.data == reversed(std::string_view(image).substr(packet.offset, firmwareBlockSize)),
                "a packet holds its block, bits reversed");
        ++count;
        unsigned char sum = 0;
        for (const char byte : packet.data) sum = static_cast<unsigned char>(sum ^ static_cast<unsigned char>(byte));
        return fmt::format("S{:05}", sum);
    }

    fuzz::Input& input;
    char sensor;
    std::string image;
    std::size_t count = 0;
    bool over = false;
};

std::string tiled(std::string_view pattern, std::size_t size) {
    std::string image;
    while (!pattern.empty() && image.size() < size) image += pattern.substr(0, size - image.size());
    return image;
}

std::size_t blocksToSend(const std::string& image) {
    const std::size_t whole = image.size() / firmwareBlockSize * firmwareBlockSize;
    const std::size_t last = whole == 0 ? std::string::npos : image.find_last_not_of('\xFF', whole - 1);
    return last == std::string::npos ? 0 : last / firmwareBlockSize + 1;
}

}  // namespace

/// The first line: sensor, electronics family, size of the image. Then the flash memory's replies, a line each ("=" is
/// the right one, "-" silence), up to an empty line. The rest is repeated to make the image.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    const std::size_t gap = text.find("\n\n");
    fuzz::Input head(std::string_view(text).substr(0, gap));
    fuzz::Numbers numbers(head.line());
    const int sensor = numbers.next();
    const int family = numbers.next(0, 1);
    const auto imageSize = static_cast<std::size_t>(numbers.next(0, largestImage));
    const std::string image =
        tiled(gap == std::string::npos ? std::string_view() : std::string_view(text).substr(gap + 2), imageSize);
    const fuzz::MemoryFile file(image);

    fuzz::CoreRun run(TransportGE, 6112, family);
    FlashScript flash(head, sensor, image);
    run.core.line.hook = [&](const std::string& command) { return flash.answer(command); };
    const auto failed = run.failureOf([&] { run.core.UploadFirmware(file.path(), sensor, true); });
    if (sensor < 0 || sensor > 9) {
        require(failed == DerrBadRequest && run.core.line.commands.empty(), "a sensor has one digit");
        return 0;
    }
    if (!failed) {
        require(flash.packets() == blocksToSend(image), "every block is sent, up to the last that isn't erased");
        return 0;
    }
    require(*failed == DerrTransport || *failed == DerrSerialCommand || *failed == DerrWrapped,
            "an upload fails by the line, or by a reply that is no number");
    return 0;
}
