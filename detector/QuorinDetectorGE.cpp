#include "QuorinDetectorGE.h"

#include "InternalUtils/Failure.h"
#include "detector/CallTrace.h"
#include "detector/baseDetector.h"

namespace {

[[noreturn]] void refuse(const char* function, int line = __builtin_LINE()) {
    fail("Only GigE detectors can be initialized as QuorinDetectorGE objects!", DerrWrongTransport, function, 0, "",
         line, __FILE__);
}

void checkTransport(DetectorInterface transport, int line = __builtin_LINE()) {
    if (transport != TransportGE) refuse("QuorinDetectorGE::QuorinDetectorGE", line);
}

gigEDetector& gigECore(baseDetector& detector, const char* function, int line = __builtin_LINE()) {
    auto* const own = dynamic_cast<gigEDetector*>(&detector);
    if (own == nullptr) refuse(function, line);
    return *own;
}

}  // namespace

QuorinDetectorGE::QuorinDetectorGE(DevInfo& info) : QuorinDetector(info) {
    callFrame("QuorinDetectorGE::QuorinDetectorGE", traced(info), [&] { checkTransport(info.iface); });
}

QuorinDetectorGE::QuorinDetectorGE(DetectorInterface transport, int unit, const char* param)
    : QuorinDetector(transport, unit, param) {
    callFrame("QuorinDetectorGE::QuorinDetectorGE", traced(static_cast<int>(transport), unit, param),
              [&] { checkTransport(transport); });
}

QuorinDetectorGE::~QuorinDetectorGE() = default;

void QuorinDetectorGE::OpenBoard() {
    constexpr const char* here = "QuorinDetectorGE::OpenBoard";
    callFrame(here, [&] {
        gigECore(detector(), here);
        QuorinDetector::OpenBoard();
    });
}

void QuorinDetectorGE::OpenBoard(int bufferCount) {
    constexpr const char* here = "QuorinDetectorGE::OpenBoard";
    callFrame(here, traced(bufferCount), [&] {
        gigECore(detector(), here);
        QuorinDetector::OpenBoard(bufferCount);
    });
}

void QuorinDetectorGE::SetPersistentIPAddress(int first, int second, int third, int fourth) {
    constexpr const char* here = "QuorinDetectorGE::SetPersistentIPAddress";
    callFrame(here, traced(first, second, third, fourth),
              [&] { gigECore(detector(), here).SetPersistentIPAddress(first, second, third, fourth); });
}
