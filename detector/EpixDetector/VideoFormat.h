#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/// The video format that is loaded into the frame grabber: a tree of records in the grabber library's own form.
///
/// Each record begins with a 32-bit word: type in the high half, size in bytes in the low half. The width and height in
/// it are placeholders: the transport sets those of the connected model after each load.
class VideoFormat {
public:
    enum class Variant {
        Standard,  ///< the camera control line follows software
        Pulse,     ///< the camera control line follows the grabber's pulse generator
    };

    explicit VideoFormat(Variant variant);
    VideoFormat(const VideoFormat&) = delete;
    VideoFormat& operator=(const VideoFormat&) = delete;

    /// The root record, which holds the addresses of the others; owned by this object.
    const void* root() const { return &rootRecord; }

private:
    static constexpr std::size_t recordCount = 11;

    struct Root {
        std::uint32_t header;
        std::uint32_t unused;
        std::array<const void*, recordCount> records;
        std::array<std::uint8_t, 44> rest;
    };

    Root rootRecord{};
    std::array<std::vector<std::uint32_t>, recordCount> records;
};
