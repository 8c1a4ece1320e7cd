#include "QuorinDetectorCL.h"

#include "InternalUtils/Failure.h"
#include "detector/CallTrace.h"
#include "detector/baseDetector.h"

namespace {

[[noreturn]] void refuse(const char* function, int line = __builtin_LINE()) {
    fail("Only CameraLink detectors can be initialized as QuorinDetectorCL objects!", DerrWrongTransport, function, 0,
         "", line, __FILE__);
}

void checkTransport(DetectorInterface transport, int line = __builtin_LINE()) {
    if (transport != TransportCL) refuse("QuorinDetectorCL::QuorinDetectorCL", line);
}

camLinkDetector& cameraLinkCore(baseDetector& detector, const char* function, int line = __builtin_LINE()) {
    auto* const own = dynamic_cast<camLinkDetector*>(&detector);
    if (own == nullptr) refuse(function, line);
    return *own;
}

}  // namespace

QuorinDetectorCL::QuorinDetectorCL(DevInfo& info) : QuorinDetector(info) {
    callFrame("QuorinDetectorCL::QuorinDetectorCL", traced(info), [&] { checkTransport(info.iface); });
}

QuorinDetectorCL::QuorinDetectorCL(DetectorInterface transport, int unit, const char* param)
    : QuorinDetector(transport, unit, param) {
    callFrame("QuorinDetectorCL::QuorinDetectorCL", traced(static_cast<int>(transport), unit, param),
              [&] { checkTransport(transport); });
}

QuorinDetectorCL::~QuorinDetectorCL() = default;

void QuorinDetectorCL::OpenBoard() {
    constexpr const char* here = "QuorinDetectorCL::OpenBoard";
    callFrame(here, [&] {
        cameraLinkCore(detector(), here);
        QuorinDetector::OpenBoard();
    });
}

void QuorinDetectorCL::OpenBoard(int bufferCount) {
    constexpr const char* here = "QuorinDetectorCL::OpenBoard";
    callFrame(here, traced(bufferCount), [&] {
        cameraLinkCore(detector(), here);
        QuorinDetector::OpenBoard(bufferCount);
    });
}

void QuorinDetectorCL::PowerCLInterface(bool on) {
    constexpr const char* here = "QuorinDetectorCL::PowerCLInterface";
    callFrame(here, traced(on), [&] { cameraLinkCore(detector(), here).PowerCLInterface(on); });
}
