#include <algorithm>
#include <array>
#include <cctype>
#include <memory>

#include "detector/baseDetector/serialProtocol.h"
#include "detector/registers.h"
#include "fuzz/CoreRun.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/SimulatedDetector.h"

using fuzz::require;

namespace {

constexpr std::size_t replyLimit = 90;  // of a chunk

void checkParsers(const std::string& command) {
    const auto access = simulator::parseRegisterCommand(command);
    if (access) {
        const std::string again = access->write ? serial::formatWrite(access->sensor, access->number, access->value)
                                                : serial::formatRead(access->sensor, access->number);
        require(again == command, "a register access that is spelled again is the same", command);
        require(access->number <= registers::highest && access->sensor <= 9, "it is within its digits", command);
    }
    if (IsFlashRegisterWrite(command))
        require(access ? access->write : command.substr(5) > "65535", "a flash-held register is one", command);
    const auto flash = simulator::parseFlashCommand(command);
    if (!flash) return;
    require(!access, "a command means one thing", command);
    require(flash->sensor >= 0 && flash->sensor <= 9, "a sensor has one digit", command);
    const bool packet = flash->kind == simulator::FlashCommand::Kind::Packet;
    require(flash->data.size() == (packet ? 1024U : 0U) && flash->offset % 256 == 0, "a packet is a block", command);
}

/// What the line makes of the bytes; none is lost but those of a command that never ends.
std::vector<std::string> assembled(const std::string& bytes) {
    simulator::CommandAssembler assembler;
    std::vector<std::string> commands;
    std::size_t inCommands = 0;
    for (const char byte : bytes) {
        const std::optional<std::string> command = assembler.feed(byte);
        if (!command) continue;
        inCommands += command->size() + 1;
        require(command->size() < simulator::CommandAssembler::capacity, "a command is bounded");
        commands.push_back(*command);
    }
    require(inCommands <= bytes.size(), "no byte is made up");
    if (bytes.size() < simulator::CommandAssembler::capacity && bytes.find("WFD") == std::string::npos)
        require(static_cast<std::ptrdiff_t>(commands.size()) ==
                    std::count(bytes.begin(), bytes.end(), simulator::commandEnd),
                "a carriage return ends a command");
    return commands;
}

void checkDetector(const std::string& bytes, std::size_t commands) {
    const platform::ScopedVirtualClock clock;
    const auto detector = simulator::SimulatedDetector::create(*simulator::findProfile("6112-kestrane"));
    detector->serialWrite(bytes);
    std::string replies;
    std::array<char, 64> chunk{};
    constexpr std::chrono::milliseconds patience{20};
    while (const std::size_t count = detector->serialRead(chunk.data(), chunk.size(), platform::now() + patience))
        replies.append(chunk.data(), count);
    if (replies.empty()) return;
    require(replies.back() == simulator::commandEnd, "a reply ends");
    const auto ends = std::count(replies.begin(), replies.end(), simulator::commandEnd);
    require(ends <= static_cast<std::ptrdiff_t>(commands), "a command has at most one reply", replies);
    for (const char byte : replies)
        require(std::isprint(static_cast<unsigned char>(byte)) != 0 || byte == simulator::commandEnd,
                "replies are text", replies);
}

/// The three forms of a free command, each from a block of its exact size.
void checkSending(const std::string& command) {
    fuzz::CoreRun run(TransportGE, 6112, 0);
    std::vector<std::string>& sent = run.core.line.commands;
    // The echo; a carriage return would end it before its time.
    const auto echo = [](std::string told) {
        std::replace(told.begin(), told.end(), '\r', '.');
        return told;
    };
    run.core.line.hook = [&](const std::string& command) {
        const std::string told = echo(command);
        std::vector<std::string> chunks;
        for (std::size_t at = 0; at < told.size(); at += replyLimit) chunks.push_back(told.substr(at, replyLimit));
        chunks.emplace_back("\r");
        return chunks;
    };
    const auto bytes = std::make_unique<char[]>(command.size() + 1);
    std::copy_n(command.c_str(), command.size() + 1, bytes.get());
    const auto reply = std::make_unique<char[]>(serial::replySize);

    require(!run.failureOf([&] { run.core.SendCommand(bytes.get(), command.size(), reply.get()); }) &&
                sent.back() == command,
            "a command of a length goes out as it is");
    const std::string whole = echo(command) + '\r';
    require(whole.substr(0, serial::replySize - 1).c_str() == std::string(reply.get()), "its reply is cut to its room");

    const std::string text = command.c_str();
    sent.clear();
    const bool fitsPointer = text.size() < serial::commandSize;
    const auto refused = run.failureOf([&] { run.core.SendCommand(bytes.get(), reply.get()); });
    require(refused == (fitsPointer ? std::nullopt : std::optional(DerrBadRequest)), "a text has 23 characters", text);
    require(sent == (fitsPointer ? std::vector{text} : std::vector<std::string>()), "it goes out, or nothing", text);

    if (command.size() >= serial::commandSize) {
        const auto endless = std::make_unique<char[]>(serial::commandSize);
        std::fill_n(endless.get(), serial::commandSize, 'W');
        require(run.failureOf([&] { run.core.SendCommand(endless.get(), reply.get()); }) == DerrBadRequest,
                "a text without an end is not read past its room");
    }
    std::string told;
    const auto tooLong = run.failureOf([&] { told = run.core.SendCommand(command); });
    const bool fitsString = command.size() <= serial::longestStringCommand;
    require(tooLong == (fitsString ? std::nullopt : std::optional(DerrBadRequest)), "a string has 22 characters", text);
    if (fitsString) require(told == echo(text), "its reply comes without its end", text);
}

}  // namespace

/// Bytes as a serial line brings them.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes = fuzz::textOf(data, size);
    const std::vector<std::string> commands = assembled(bytes);
    for (const std::string& command : commands) checkParsers(command);
    checkParsers(bytes);
    checkDetector(bytes, commands.size());
    checkSending(commands.empty() ? bytes : commands.front());
    return 0;
}
