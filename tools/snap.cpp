#include <qrapi/QuorinDetector.h>

#include <algorithm>
#include <atomic>
#include <iomanip>
#include <numeric>
#include <ostream>
#include <sstream>

#include "platform/Clock.h"
#include "tools/FrameFiles.h"
#include "tools/Interrupt.h"
#include "tools/commands.h"
#include "tools/framePixels.h"
#include "tools/run.h"

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

/// True for a `Snap` that no frame ended.
bool isTimeout(const QuorinException& failure) {
    constexpr int gigeTimedOut = 30;
    constexpr int cameraLinkTimedOut = 258;
    const int error = failure.GetTransportError();
    return failure.GetCode() == DerrAcquisition && (error == gigeTimedOut || error == cameraLinkTimedOut);
}

}  // namespace

int snap(const SnapRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    std::atomic<int> awaited{0};  // the frame, from 1
    int timeoutMs = 0;            // written before `awaited`
    // A `Snap` that is cut short would expose again at the next one, so the frame in progress is awaited.
    const Interrupt interrupt(output.errors(), [&]() -> std::string {
        const int frame = awaited;
        if (frame == 0) return "ending before the first frame";
        return "ending after frame " + std::to_string(frame) + ", or if it does not come within " +
               std::to_string(timeoutMs) + " ms; a second Ctrl-C ends the program without it";
    });
    openPrepared(detector, request.preparation);
    tellShortest(detector, request.preparation, output);
    timeoutMs = frameTimeoutMs(detector, request.preparation);
    const RunFacts facts = beginRun(detector);
    const auto files = makeFrameFiles(request.output, facts, request.count);
    const int buffers = detector.GetNumBuffers();
    QorImage image;
    int written = 0;
    for (; written < request.count && !interrupt.isRequested(); ++written) {
        const int buffer = written % buffers;
        awaited = written + 1;
        try {
            detector.Snap(buffer, timeoutMs);
        } catch (const QuorinException& missing) {
            if (!interrupt.isRequested() || !isTimeout(missing)) throw;
            break;
        }
        detector.ReadBuffer(buffer, image, 0);
        const Frame frame{written, detector.GetFieldCount(), buffer, platform::now() - facts.startedAt,
                          pixelsOf(image, facts)};
        files->write(frame);
        printFrame(facts, frame, request.count, output);
    }
    detector.CloseBoard();
    const bool interrupted = interrupt.isRequested();
    output.facts["output"] = nullptr;
    if (written > 0) {
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
    output.facts["interrupted"] = interrupted;
    if (interrupted) output.text() << "interrupted\n";
    return interrupted ? exitInterrupted : exitSuccess;
}

}  // namespace tool
