#include "tools/names.h"

#include <cmath>

namespace tool {

std::string_view nameOf(bins binning) {
    for (const auto& [value, name] : binningNames)
        if (value == binning) return name;
    return "unknown";
}

std::string_view nameOf(DetectorInterface transport) {
    return transport == TransportGE ? "gige" : "camera_link";
}

std::string_view electronicsName(bool kestrane) {
    return kestrane ? "kestrane" : "plain";
}

double roundedMs(float ms) {
    constexpr double stepsPerMs = 1000.0;
    return std::round(static_cast<double>(ms) * stepsPerMs) / stepsPerMs;
}

}  // namespace tool
