#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <iomanip>
#include <numeric>
#include <ostream>
#include <sstream>

#include "tools/FrameFiles.h"
#include "tools/TiffWriter.h"
#include "tools/commands.h"

namespace tool {
namespace {

/// Writes the frame with what is known of it, and says so in one line.
void keepFrame(const QuorinDetector& detector, int buffer, int position, int count, const QorImage& image,
               TiffWriter& writer, Output& output) {
    const nlohmann::ordered_json facts = describeFrames(detector);
    const int width = image.GetImageXdim();
    const int height = image.GetImageYdim();
    const auto* const pixels = static_cast<const std::uint16_t*>(image.GetDataPointerToPlane(0));
    writer.writePage(pixels, width, height, describeFrame(facts, detector.GetFieldCount(), buffer));
    const auto* const end = pixels + static_cast<std::ptrdiff_t>(width) * height;
    const auto [lowest, highest] = std::minmax_element(pixels, end);
    const double mean = std::accumulate(pixels, end, 0.0) / static_cast<double>(end - pixels);
    std::ostringstream line;  // its own stream, so that the caller's keeps its format
    line << std::fixed << std::setprecision(1) << "frame " << position << " of " << count << ": " << width << " x "
         << height << " pixels, exposure " << facts.at("exposure_time_ms").get<double>() << " ms, values " << *lowest
         << " to " << *highest << ", mean " << mean << "\n";
    output.text() << line.str();
    output.facts["frames"].push_back({{"number", position},
                                      {"width_pixels", width},
                                      {"height_pixels", height},
                                      {"exposure_time_ms", facts.at("exposure_time_ms")},
                                      {"lowest_value", *lowest},
                                      {"highest_value", *highest},
                                      {"mean_value", mean}});
}

}  // namespace

void snap(const SnapRequest& request, Output& output) {
    checkOutputFile(request.output);
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    const int timeoutMs = frameTimeoutMs(detector, request.preparation);
    const auto frameBytes = static_cast<std::uint64_t>(detector.GetBufferXdim()) *
                            static_cast<std::uint64_t>(detector.GetBufferYdim()) * sizeof(std::uint16_t);
    TiffWriter writer(request.output, frameBytes * static_cast<std::uint64_t>(request.count));
    const int buffers = detector.GetNumBuffers();
    QorImage image;
    for (int frame = 0; frame < request.count; ++frame) {
        const int buffer = frame % buffers;
        detector.Snap(buffer, timeoutMs);
        detector.ReadBuffer(buffer, image, 0);
        keepFrame(detector, buffer, frame + 1, request.count, image, writer, output);
    }
    detector.CloseBoard();
    writer.commit();
    output.facts["output"] = request.output;
    output.news() << "wrote " << request.output << "\n";
}

}  // namespace tool
