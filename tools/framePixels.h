#pragma once

#include <qrapi/QorImage.h>

#include <stdexcept>
#include <string>

#include "tools/FrameFiles.h"

namespace tool {

/// The pixels of an image that was read. Throws if it has another size than the run's frames.
inline const std::uint16_t* pixelsOf(const QorImage& image, const RunFacts& facts) {
    const auto size = [](int width, int height) { return std::to_string(width) + " x " + std::to_string(height); };
    if (image.GetImageXdim() != facts.width || image.GetImageYdim() != facts.height)
        throw std::runtime_error("a frame of " + size(image.GetImageXdim(), image.GetImageYdim()) +
                                 " pixels came in a run of " + size(facts.width, facts.height));
    return static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0));
}

}  // namespace tool
