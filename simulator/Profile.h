#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../platform/export.h"

namespace simulator {

/// The link that a panel's readout is paced for.
enum class Link { GigE, CameraLink };

/// What a simulated detector is made as. Start from a named profile and change what a test needs.
struct Profile {
    std::string name;                              ///< in addresses behind `sim:`
    int model = 6112;                              ///< register 124
    int serialNumber = 0;                          ///< register 125
    int firmwareVersion = 1;                       ///< register 126
    std::array<std::uint16_t, 3> firmwareBuild{};  ///< registers 38, 39, 40
    std::uint16_t electronicsFamily = 0;           ///< register 129; 1 in the low byte is Kestrane
    std::uint16_t featureWord36 = 0;               ///< register 36
    std::uint16_t featureWord37 = 0;               ///< register 37
    std::uint16_t featureWord130 = 0;              ///< register 130
    Link link = Link::GigE;                        ///< `CameraLink` for detectors in the rack's slots

    // Panel, unbinned. Named profiles take it from the panel table; a model without a row there needs it set.
    int sensorWidth = 0;    ///< columns of a sensor
    int sensorHeight = 0;   ///< rows of a sensor
    int sensorsAcross = 1;  ///< side by side
    int sensorsDown = 1;    ///< one below the other

    /// Kestrane electronics, as the library decides it: register 129 not 0 and its low byte 1.
    bool isKestrane() const { return (electronicsFamily & 0xFFU) == 1; }
    /// Sensors of the panel.
    int sensorCount() const { return sensorsAcross * sensorsDown; }
};

/// The named profiles, in the order of the rack's slots: 5101, 5101-kestrane, 5309, 6112, 6112-kestrane, 6213,
/// 6213-kestrane, 7127, 7127-slowed, 8131.
QRAPI_EXPORT const std::vector<Profile>& namedProfiles();

/// The named profile, or null.
QRAPI_EXPORT const Profile* findProfile(std::string_view name);

}  // namespace simulator
