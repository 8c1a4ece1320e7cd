#include "simulator/SerialLine.h"

#include <algorithm>

namespace simulator {
namespace {

constexpr std::int64_t bitsPerByte = 10;                              // start, 8 data, stop
constexpr platform::Time packetGap = std::chrono::milliseconds(500);  // a packet that stops midway is given up
constexpr platform::Time chunkInterval = std::chrono::milliseconds(1);

}  // namespace

std::vector<ReplyPiece> disturbedReply(const Reply& reply, Faults& faults) {
    std::string text = reply.text;
    if (reply.toRead && faults.strikes(Fault::ForeignReply)) text = std::string(replyRefused);
    if (faults.strikes(Fault::ShortReply) && !text.empty()) text.pop_back();
    if (faults.strikes(Fault::NoisyReply) && !text.empty()) {
        char& hit = text[faults.chance(static_cast<std::uint32_t>(text.size()))];
        char noise = hit;
        while (noise == hit || noise == commandEnd) noise = static_cast<char>(faults.chance(256));
        hit = noise;
    }
    text += commandEnd;

    const std::optional<int> lateMs = faults.strikes(Fault::LateReply);
    const std::optional<int> chunkSize = faults.strikes(Fault::ChunkedReply);
    if (faults.strikes(Fault::SilentLine)) return {};
    const auto pieceSize = chunkSize ? static_cast<std::size_t>(std::max(1, *chunkSize)) : text.size();
    platform::Time delay = std::chrono::milliseconds(lateMs.value_or(0));
    std::vector<ReplyPiece> pieces;
    for (std::size_t place = 0; place < text.size(); place += pieceSize, delay += chunkInterval)
        pieces.push_back({text.substr(place, pieceSize), delay});
    return pieces;
}

void SerialLine::setBaud(int newBaud) {
    const platform::MutexLock lock(mutex);
    baud = std::max(newBaud, 0);
}

std::vector<std::string> SerialLine::take(std::string_view bytes) {
    const platform::MutexLock lock(mutex);
    if (assembler.insidePacket() && platform::now() - lastByteAt > packetGap) assembler.reset();
    lastByteAt = platform::now();
    std::vector<std::string> commands;
    for (const char byte : bytes)
        if (std::optional<std::string> command = assembler.feed(byte)) commands.push_back(std::move(*command));
    return commands;
}

platform::Time SerialLine::wireTime(std::size_t bytes) const {
    if (baud == 0) return platform::Time{0};
    return platform::Time{static_cast<std::int64_t>(bytes) * bitsPerByte * std::nano::den / baud};
}

void SerialLine::answer(std::size_t commandBytes, platform::Time delay, const std::vector<ReplyPiece>& pieces) {
    {
        const platform::MutexLock lock(mutex);
        const platform::Time begin = platform::now() + wireTime(commandBytes) + delay;
        for (const ReplyPiece& piece : pieces) {
            const platform::Time start = begin + piece.delay;
            lastDue = (input.empty() ? start : std::max(start, lastDue)) + wireTime(piece.bytes.size());
            input.push_back({lastDue, piece.bytes});
        }
    }
    arrived.notifyAll();
}

std::size_t SerialLine::read(char* buffer, std::size_t capacity, platform::Time deadline) {
    if (capacity == 0) return 0;
    const platform::MutexLock lock(mutex);
    while (input.empty() || input.front().due > platform::now()) {
        if (platform::now() >= deadline) return 0;
        arrived.waitUntil(mutex, input.empty() ? deadline : std::min(deadline, input.front().due));
    }
    std::size_t count = 0;
    while (count < capacity && !input.empty() && input.front().due <= platform::now()) {
        std::string& bytes = input.front().bytes;
        const std::size_t part = bytes.copy(buffer + count, capacity - count);
        count += part;
        bytes.erase(0, part);
        if (bytes.empty()) input.pop_front();
    }
    return count;
}

void SerialLine::dropArrived() {
    const platform::MutexLock lock(mutex);
    while (!input.empty() && input.front().due <= platform::now()) input.pop_front();
}

}  // namespace simulator
