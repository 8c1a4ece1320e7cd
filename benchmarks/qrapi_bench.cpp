// What the library's own work costs, each as a ratio to the work that can't be avoided, so that the numbers mean the
// same on every machine. A ratio above its bound fails the program.

#include <qrapi/QuorinDetector.h>
#include <qrapi/logging.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "platform/Clock.h"
#include "platform/DataFolder.h"
#include "simulator/Rack.h"

namespace {

constexpr const char* address = "sim:6112-kestrane";
constexpr int frameTimeoutMs = 10000;

/// A folder for the log that goes with the program.
class ScratchLogFolder {
public:
    ScratchLogFolder() : path(make()), substitute(path) {}
    ~ScratchLogFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchLogFolder(const ScratchLogFolder&) = delete;
    ScratchLogFolder& operator=(const ScratchLogFolder&) = delete;

private:
    static std::string make() {
        std::string name = (std::filesystem::temp_directory_path() / "qrapi-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder can be made in " + name);
        return name;
    }
    std::string path;
    platform::ScopedDataFolder substitute;
};

template <class Work>
double nanoseconds(int calls, const Work& work) {
    const platform::Time begin = platform::now();
    for (int call = 0; call < calls; ++call) work();
    return static_cast<double>((platform::now() - begin).count()) / calls;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The median over rounds in which both sides run next to each other, so that a disturbance meets both.
template <class Work, class Reference>
double ratioOf(int rounds, int calls, const Work& work, const Reference& reference) {
    work();
    reference();
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const double unavoidable = nanoseconds(calls, reference);
        ratios.push_back(nanoseconds(calls, work) / unavoidable);
    }
    return median(std::move(ratios));
}

/// Prints the lines and remembers whether all bounds held.
class Report {
public:
    void line(const std::string& what, double ratio, double bound) {
        const bool holds = ratio <= bound;  // false for a ratio that is not a number
        std::cout << (holds ? "ok      " : "BROKEN  ") << std::left << std::setw(72) << what << std::right << std::fixed
                  << std::setprecision(2) << std::setw(8) << ratio << "  bound " << bound << std::endl;
        allHold = allHold && holds;
    }
    bool good() const { return allHold; }

private:
    bool allHold = true;
};

void benchReadBuffer(const QuorinDetector& detector, Report& report) {
    const auto bytes = static_cast<std::size_t>(detector.GetBufferXdim()) *
                       static_cast<std::size_t>(detector.GetBufferYdim()) * sizeof(std::uint16_t);
    std::vector<unsigned char> source(bytes, 1);
    std::vector<unsigned char> target(bytes);
    volatile unsigned char seen = 0;  // keeps the copies from being optimised away
    const auto plainCopy = [&] {
        std::memcpy(target.data(), source.data(), bytes);
        seen = target[bytes / 2];
    };
    const auto readBuffer = [&] { detector.ReadBuffer(0, target.data()); };
    QorImage image;
    const auto readImage = [&] { detector.ReadBuffer(0, image, 0); };
    report.line("ReadBuffer of a frame / memcpy of as many bytes", ratioOf(41, 5, readBuffer, plainCopy), 2.0);
    report.line("ReadBuffer into an image / memcpy of as many bytes", ratioOf(41, 5, readImage, plainCopy), 2.5);
}

void benchTrace(const QuorinDetector& detector, Report& report) {
    const auto tracedCall = [&] { (void)detector.GetReadOutTime(); };
    const auto logger = getQorLogger();
    const auto twoLines = [&] {
        logger->debug("ENTER: {}({})", "QuorinDetector::GetReadOutTime", "");
        logger->debug("EXIT: {}{}", "QuorinDetector::GetReadOutTime", " -> 16.936");
    };
    report.line("a public call that only answers / the two log lines it leaves", ratioOf(41, 500, tracedCall, twoLines),
                4.0);
}

void benchRegisterRead(const QuorinDetector& detector, Report& report) {
    constexpr int serialNumberRegister = 125;
    const auto simulated = simulator::Rack::instance().find(address);
    const auto logger = getQorLogger();
    const auto readRegister = [&] { (void)detector.ReadRegister(serialNumberRegister, 1); };
    const auto bareExchange = [&] {
        char reply[100];
        simulated->serialWrite("R1125\r");
        (void)simulated->serialRead(reply, sizeof(reply), platform::deadlineAfterMs(1000));
        for (int line = 0; line < 4; ++line) logger->debug("SERIAL: {} {}", "R1125", "S14101");
    };
    report.line("ReadRegister / a bare exchange with the detector and four log lines",
                ratioOf(41, 200, readRegister, bareExchange), 8.0);
}

void benchSnap(QuorinDetector& detector, Report& report) {
    constexpr float exposureMs = 100.0F;
    constexpr int snaps = 15;
    detector.SetExposureTime(exposureMs);
    std::vector<double> ratios;
    ratios.reserve(snaps);
    const double frameNs = static_cast<double>(exposureMs) * 1e6;
    for (int snap = 0; snap < snaps; ++snap)
        ratios.push_back(nanoseconds(1,
                                     [&] {
                                         detector.Snap(0, frameTimeoutMs);
                                         detector.WaitImage(frameTimeoutMs);
                                     }) /
                         frameNs);
    // One frame follows the other, so a snap that comes in time waits for one exposure; one that missed it for two.
    report.line("Snap and WaitImage at 100 ms / the exposure time", median(std::move(ratios)), 1.5);
}

int runAll() {
    const ScratchLogFolder logFolder;
    Report report;
    QuorinDetector detector(TransportGE, 0, address);
    detector.OpenBoard();
    benchSnap(detector, report);
    benchReadBuffer(detector, report);
    benchTrace(detector, report);
    benchRegisterRead(detector, report);
    detector.CloseBoard();
    return report.good() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main() {
    try {
        return runAll();
    } catch (const std::exception& failure) {
        std::cerr << "error: " << failure.what() << "\n";
        return EXIT_FAILURE;
    }
}
