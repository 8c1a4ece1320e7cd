#include "InternalUtils/InternalUtils.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <new>

#include "InternalUtils/Failure.h"
#include "platform/SystemError.h"

void RAIIBuffer::Free::operator()(void* block) const {
    std::free(block);  // NOLINT: the owner of what malloc gave
}

bool RAIIBuffer::Block::allocate(int bytes) {
    memory.reset();
    size = 0;
    if (bytes < 0) return false;
    // A block of no bytes still gets an address, so that null always means a failure.
    memory.reset(std::malloc(bytes == 0 ? 1 : static_cast<std::size_t>(bytes)));  // NOLINT
    if (memory == nullptr) return false;
    size = static_cast<std::size_t>(bytes);
    return true;
}

RAIIBuffer::RAIIBuffer(int count, int newBlockSize) : blockSize(newBlockSize) {
    constexpr const char* here = "RAIIBuffer::RAIIBuffer";
    if (count < 0) fail(noMemoryText, DerrResources, here);
    try {
        blocks.resize(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        fail(noMemoryText, DerrResources, here);
    }
    for (Block& block : blocks)
        if (!block.allocate(blockSize)) fail(noMemoryText, DerrResources, here);
}

RAIIBuffer::~RAIIBuffer() = default;

const RAIIBuffer::Block& RAIIBuffer::at(int index) const {
    if (index < 0 || index >= GetCount()) fail(bufferRangeText, DerrResources, "RAIIBuffer::GetBuffer");
    return blocks[static_cast<std::size_t>(index)];
}

void* RAIIBuffer::GetBuffer(int index) const {
    return at(index).memory.get();
}

std::size_t RAIIBuffer::GetBlockSize(int index) const {
    return at(index).size;
}

void RAIIBuffer::ReAlloc(int newBlockSize) {
    blockSize = newBlockSize;
    for (Block& block : blocks)
        if (!block.allocate(blockSize)) fail(noMemoryText, DerrResources, "RAIIBuffer::ReAlloc");
}

void RAIIFile::Close::operator()(std::FILE* stream) const {
    std::fclose(stream);  // NOLINT: the owner of the stream
}

RAIIFile::RAIIFile(const char* path, bool write) : file(std::fopen(path, write ? "wb" : "rb")), forWriting(write) {
    if (file == nullptr) fail("Unable to open file!", DerrFile, "RAIIFile::RAIIFile");
}

RAIIFile::~RAIIFile() = default;

std::size_t RAIIFile::read(void* buffer, int length) {
    constexpr const char* here = "RAIIFile::read";
    if (forWriting) fail("Attempting to read from file but it was openned for writing", DerrFile, here);
    if (length <= 0) return 0;
    const std::size_t count = std::fread(buffer, 1, static_cast<std::size_t>(length), file.get());
    const int error = errno;
    if (std::ferror(file.get()) != 0)
        fail("Problem reading from file", DerrFile, here, error, platform::systemErrorText(error).c_str());
    return count;
}

int RAIIFile::feof() const {
    return std::feof(file.get());
}

std::string GetLastErrorText() {
    const int error = platform::lastError();
    return error == 0 ? std::string() : std::to_string(error) + ": " + platform::systemErrorText(error);
}

float RoundToDecimals(float value, int places) {
    const auto power = static_cast<float>(std::pow(10.0, places));
    return std::floor(power * value + 0.5F) / power;
}
