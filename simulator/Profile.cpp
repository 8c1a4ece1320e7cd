#include "simulator/Profile.h"

#include "components/panelTable.h"

namespace simulator {
namespace {

// Feature word 36: what every firmware tells.
constexpr unsigned bin1x2 = 1U << 0U;
constexpr unsigned bin1x4 = 1U << 1U;
constexpr unsigned bin2x1 = 1U << 2U;
constexpr unsigned bin2x2 = 1U << 3U;
constexpr unsigned bin2x4 = 1U << 4U;
constexpr unsigned bin4x1 = 1U << 5U;
constexpr unsigned bin4x2 = 1U << 6U;
constexpr unsigned bin4x4 = 1U << 7U;
constexpr unsigned bin2x2Flagged = 1U << 8U;
constexpr unsigned crossTalkCorrection = 1U << 9U;
constexpr unsigned linearization = 1U << 10U;
constexpr unsigned exposureModes = 0x7U << 12U;
constexpr unsigned readoutBit3Set = 1U << 15U;

constexpr unsigned squareBinnings = bin2x2 | bin4x4;
constexpr unsigned allBinnings = bin1x2 | bin1x4 | bin2x1 | bin2x2 | bin2x4 | bin4x1 | bin4x2 | bin4x4 | bin2x2Flagged;
constexpr unsigned corrections = crossTalkCorrection | linearization;

// Feature words 37 and 130: what later firmware tells besides.
constexpr unsigned sliceInterlacing = 1U << 9U;
constexpr unsigned bin1x1 = 1U << 10U;
constexpr unsigned exposureBits3And4 = 1U << 11U;
constexpr unsigned readoutBit3Clear = 1U << 12U;
constexpr unsigned triggerSources = 0x7U << 13U;
constexpr unsigned extendedBasics = bin1x1 | exposureBits3And4 | readoutBit3Clear | triggerSources;
constexpr unsigned fullWellModes = 0x3U;
constexpr unsigned temperatures = 0xCU;

constexpr std::uint16_t plainElectronics = 0;
constexpr std::uint16_t kestraneElectronics = 1;

struct Row {
    const char* name;
    int model;
    int serialNumber;
    int firmwareVersion;
    std::uint16_t electronicsFamily;
    unsigned word36;
    unsigned word37;
    unsigned word130;
};

constexpr Row rows[] = {
    {"5101", 5101, 10101, 21, plainElectronics, squareBinnings | exposureModes, 0, 0},
    {"5101-kestrane", 5101, 11101, 11021, kestraneElectronics,
     allBinnings | corrections | exposureModes | readoutBit3Set, extendedBasics | sliceInterlacing,
     fullWellModes | temperatures},
    {"5309", 5309, 12101, 5, plainElectronics, squareBinnings | exposureModes, 0, 0},
    {"6112", 6112, 13101, 22, plainElectronics, squareBinnings | corrections | exposureModes | readoutBit3Set,
     extendedBasics, fullWellModes | temperatures},
    {"6112-kestrane", 6112, 14101, 11121, kestraneElectronics,
     allBinnings | corrections | exposureModes | readoutBit3Set, extendedBasics | sliceInterlacing,
     fullWellModes | temperatures},
    {"6213", 6213, 15101, 30, plainElectronics, squareBinnings | corrections | exposureModes | readoutBit3Set,
     extendedBasics, fullWellModes | temperatures},
    {"6213-kestrane", 6213, 16101, 11138, kestraneElectronics,
     squareBinnings | bin2x2Flagged | corrections | exposureModes | readoutBit3Set, extendedBasics | sliceInterlacing,
     fullWellModes | temperatures},
    {"7127", 7127, 17101, 30, plainElectronics, squareBinnings | corrections | exposureModes | readoutBit3Set,
     extendedBasics, fullWellModes | temperatures},
    {"7127-slowed", 7127, 18101, 13, plainElectronics, corrections | exposureModes | readoutBit3Set, extendedBasics,
     fullWellModes | temperatures},
    {"8131", 8131, 19101, 8, plainElectronics, exposureModes, 0, 0},
};

constexpr std::uint16_t word(unsigned value) {
    return static_cast<std::uint16_t>(value);
}

Profile makeProfile(const Row& row) {
    const PanelModel& panel = *findPanel(row.model);
    Profile profile;
    profile.name = row.name;
    profile.model = row.model;
    profile.serialNumber = row.serialNumber;
    profile.firmwareVersion = row.firmwareVersion;
    profile.firmwareBuild = {2024, word(static_cast<unsigned>(row.model)),
                             word(static_cast<unsigned>(row.firmwareVersion))};
    profile.electronicsFamily = row.electronicsFamily;
    profile.featureWord36 = word(row.word36);
    profile.featureWord37 = word(row.word37);
    profile.featureWord130 = word(row.word130);
    profile.sensorWidth = panel.sensorWidth;
    profile.sensorHeight = panel.sensorHeight;
    profile.sensorsAcross = panel.sensorsAcross;
    profile.sensorsDown = panel.sensorsDown;
    return profile;
}

}  // namespace

const std::vector<Profile>& namedProfiles() {
    // Never destroyed: a rack that is asked during the end of the process still finds them.
    static const std::vector<Profile>& profiles = *[] {
        auto* made = new std::vector<Profile>;  // NOLINT
        for (const Row& row : rows) made->push_back(makeProfile(row));
        return made;
    }();
    return profiles;
}

const Profile* findProfile(std::string_view name) {
    for (const Profile& profile : namedProfiles())
        if (profile.name == name) return &profile;
    return nullptr;
}

}  // namespace simulator
