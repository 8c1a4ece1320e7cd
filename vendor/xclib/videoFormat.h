#pragma once

#include <optional>

/// The video format as a tree of records, and what can be told from one.
namespace grabber {

enum class VideoFormat {
    Standard,  ///< the line to the detector follows the camera control output
    Pulse,     ///< it follows the pulse generator
};

/// The frame that every format describes, until the resolution is set: bytes and lines.
inline constexpr int formatWidth = 3072;
inline constexpr int formatHeight = 1944;

/// What the tree below the root record is; nothing if it is no format. Reads as far as headers and addresses hold, and
/// nothing behind an address that is null.
std::optional<VideoFormat> recognizeFormat(const void* root);

}  // namespace grabber
