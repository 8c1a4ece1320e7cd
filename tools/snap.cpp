#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <iomanip>
#include <numeric>
#include <ostream>
#include <sstream>

#include "platform/Clock.h"
#include "tools/FrameFiles.h"
#include "tools/commands.h"
#include "tools/framePixels.h"

namespace tool {
namespace {

/// One line of what the frame is.
void printFrame(const RunFacts& facts, const Frame& frame, int count, Output& output) {
    const std::uint16_t* const end = frame.pixels + facts.pixels();
    const auto [lowest, highest] = std::minmax_element(frame.pixels, end);
    const double mean = std::accumulate(frame.pixels, end, 0.0) / static_cast<double>(facts.pixels());
    const Json& exposure = facts.detector.at("exposure_time_ms");
    std::ostringstream line;  // its own stream, so that the caller's keeps its format
    line << std::fixed << std::setprecision(1) << "frame " << frame.number + 1 << " of " << count << ": " << facts.width
         << " x " << facts.height << " pixels, exposure " << exposure.get<double>() << " ms, values " << *lowest
         << " to " << *highest << ", mean " << mean << "\n";
    output.text() << line.str();
    output.facts["frames"].push_back({{"number", frame.number + 1},
                                      {"width_pixels", facts.width},
                                      {"height_pixels", facts.height},
                                      {"exposure_time_ms", exposure},
                                      {"lowest_value", *lowest},
                                      {"highest_value", *highest},
                                      {"mean_value", mean}});
}

}  // namespace

void snap(const SnapRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    tellShortest(detector, request.preparation, output);
    const int timeoutMs = frameTimeoutMs(detector, request.preparation);
    const RunFacts facts = beginRun(detector);
    const auto files = makeFrameFiles(request.output, facts, request.count);
    const int buffers = detector.GetNumBuffers();
    QorImage image;
    for (int number = 0; number < request.count; ++number) {
        const int buffer = number % buffers;
        detector.Snap(buffer, timeoutMs);
        detector.ReadBuffer(buffer, image, 0);
        const Frame frame{number, detector.GetFieldCount(), buffer, platform::now() - facts.startedAt,
                          pixelsOf(image, facts)};
        files->write(frame);
        printFrame(facts, frame, request.count, output);
    }
    detector.CloseBoard();
    files->commit();
    output.facts["output"] = request.output.path;
    output.news() << "wrote " << request.output.path;
    const std::string note = files->note();
    if (!note.empty()) {
        output.facts["note"] = note;
        output.news() << ", " << note;
    }
    output.news() << "\n";
}

}  // namespace tool
