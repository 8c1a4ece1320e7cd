#include <algorithm>
#include <memory>

#include "detector/baseDetector/serialProtocol.h"
#include "detector/registers.h"
#include "fuzz/CoreRun.h"
#include "simulator/CommandInterpreter.h"

using fuzz::require;

namespace {

constexpr int lowestValue = -9999;
constexpr int highestValue = 99999;  // of five characters
constexpr std::size_t chunkLimit = 100;

/// By another road than the library's: what the C library takes from the five characters.
std::optional<int> numberIn(const std::string& reply) {
    if (reply.size() != 7 || reply.front() != 'S') return std::nullopt;
    int number = 0;
    if (std::sscanf(reply.substr(1, 5).c_str(), "%d", &number) != 1) return std::nullopt;  // NOLINT(cert-err34-c)
    return number;
}

void checkParser(const std::string& text) {
    const std::optional<int> value = serial::parseReadReply(text);
    require(value == numberIn(text), "a read reply is taken in its one form", text);
    if (!value) return;
    require(*value >= lowestValue && *value <= highestValue, "five characters bound the value", text);
    if (*value < 0 || *value > registers::highestValue) return;
    const std::string again = simulator::readReply(static_cast<std::uint16_t>(*value)) + serial::carriageReturn;
    require(serial::parseReadReply(again) == value, "a value that is told again is the same", again);
}

std::vector<std::string> chunksOf(std::string_view reply, std::size_t chunkSize) {
    std::vector<std::string> chunks;
    for (; !reply.empty(); reply.remove_prefix(std::min(chunkSize, reply.size())))
        chunks.emplace_back(reply.substr(0, chunkSize));
    if (chunks.empty()) chunks.emplace_back();
    return chunks;
}

/// What the reply buffer holds behind the exchange; nothing if the reply doesn't end in time.
std::optional<std::string> received(const std::vector<std::string>& chunks) {
    std::string all;
    int elapsedMs = 0;  // one chunk comes with each poll
    for (const std::string& chunk : chunks) {
        if (elapsedMs >= serial::replyTimeoutMs) return std::nullopt;
        elapsedMs += serial::plainPollDelayMs;
        all += chunk;
        if (all.empty() || all.back() != serial::carriageReturn) continue;
        return std::string(all.substr(0, serial::replySize - 1).c_str());
    }
    return std::nullopt;
}

void checkExchange(const std::vector<std::string>& chunks, int roomSize) {
    constexpr int reg = 7;
    fuzz::CoreRun run(TransportGE, 6112, 0);
    run.core.line.hook = [&](const std::string&) { return chunks; };
    const std::optional<std::string> reply = received(chunks);
    const bool isRead = reply && !reply->empty() && reply->front() == serial::readReplyStart;

    // Of its exact size, so that the sanitizer sees a byte too many.
    const auto room = std::make_unique<char[]>(static_cast<std::size_t>(std::max(roomSize, 1)));
    const auto copied = run.failureOf([&] { run.core.ReadRS232Cmd(reg, room.get(), roomSize, 1); });
    const Derr problem = reply ? DerrTransport : DerrSerialCommand;
    require(copied == (isRead ? std::nullopt : std::optional(problem)), "a read ends with a reply or by its rule");
    require(run.core.commsOpen == reply.has_value(), "the port is set up again after a reply that never came");
    if (!copied && roomSize > 0)
        require(reply->substr(0, static_cast<std::size_t>(roomSize) - 1) == room.get(), "it is cut to its room");

    int value = 0;
    const auto failed = run.failureOf([&] { value = run.core.ReadRegister(reg, 1); });
    const std::optional<int> expected = isRead ? numberIn(*reply) : std::nullopt;
    require(failed == (expected ? std::nullopt : std::optional(problem)), "a register read ends by its rule");
    if (!failed) require(value == *expected, "the register is what came");
}

}  // namespace

/// The first byte: the size of the chunks and the room for the reply. Then the reply.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    checkParser(text);
    if (text.empty()) return 0;
    checkParser(text.substr(1));
    constexpr unsigned sizes = 16;
    const auto form = static_cast<unsigned char>(text.front());
    const std::size_t chunkSize = form % sizes == 0 ? chunkLimit : form % sizes;
    checkExchange(chunksOf(std::string_view(text).substr(1), chunkSize), static_cast<int>(form / sizes));
    return 0;
}
