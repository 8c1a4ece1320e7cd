#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "soak/Plan.h"

namespace soak {

/// What a detector keeps until it is changed or power is cycled, as numbers. Times are counts of the registers.
enum class Setting {
    Binning,
    ExposureMode,
    FullWell,
    Readout,
    Trigger,
    Exposures,
    Legacy,
    FrameCounter,
    Interlacing,
    TestImage,
    Linearization,
    CrossTalk,
    RegionOn,
    Margin,
    RegionRow,
    RegionHeight,
    Window,  ///< of the exposure, 0.01 ms
    Gap,     ///< 0.1 ms
    Programmed1,
    Programmed2,
    Programmed3,
    Programmed4,
    count
};

/// A setting that is one call to change and one to ask.
struct SettingCall {
    Setting setting;
    const char* name;
    void (*set)(QuorinDetector&, int);
    int (*get)(const QuorinDetector&);
    int lowest;   ///< of the values to try, refused ones included
    int highest;  ///< as `lowest`
};
extern const std::array<SettingCall, 14> settingCalls;

struct Region {
    int width, height, startRow, startColumn;
};

/// What an application that made these calls has to find: the library's promises on settings and their effects on each
/// other, worked out once more and apart from it. Each `set...` answers the code that the call fails with, 0 for none,
/// and takes over what it does; a setting of which nothing is known has no value.
class Model {
public:
    explicit Model(const Station& station);

    std::optional<int> operator[](Setting setting) const { return values[place(setting)]; }
    void learn(Setting setting, int value) { values[place(setting)] = value; }
    /// The setting and whatever a call that ended midway may have touched besides.
    void forget(Setting setting);
    void forgetAll();
    bool knowsSize() const;
    bool knowsTiming() const { return timing.has_value(); }

    int set(Setting setting, int value);
    int setRegion(const Region& region);
    int setExposureTime(float timeMs);
    int setGapTime(float timeMs);
    void setProgrammed(const std::array<float, 4>& timesMs, int count);

    void made();  ///< a new object that remembers nothing
    /// What `OpenBoard` fails with: the form without a count takes up the table of model 6213.
    int openingCode(bool pickTimings) const;
    /// That table may have no row for what a failed call has left: only a new object, with a count, is sure to open.
    bool openingIsUncertain() const { return hasMeasuredTimings() && !(*this)[Setting::Binning]; }
    bool hasMeasuredTimings() const;
    void opened(bool pickTimings);
    void powerCycled();
    void askedExposure();  ///< `GetExposureTime` takes up what the detector holds
    void askedLegacy();
    /// Whether `SetBinningMode` finds a readout time, and what it fails with if not.
    int binningCode(int mode) const;

    int panelWidth() const { return profile.sensorWidth * profile.sensorsAcross; }
    int panelHeight() const { return profile.sensorHeight * profile.sensorsDown; }
    int width() const;
    int height() const;
    float readoutMs() const { return timing->readout; }
    float minimumMs() const { return timing->minimumWindow + timing->readout; }
    float exposureMs() const;
    float gapMs() const;
    float programmedMs(int entry) const;
    bool runsFree() const { return (*this)[Setting::Trigger].value_or(TriggerBitsClear) == TriggerBitsClear; }
    bool canRegion() const { return kestrane && profile.model == 6112; }
    bool isKestrane() const { return kestrane; }

    const simulator::Profile profile;

private:
    struct Timing {
        float readout;
        float minimumWindow;
    };

    static std::size_t place(Setting setting) { return static_cast<std::size_t>(setting); }
    void powerOnValues();
    void updateTiming();
    Timing timingNow() const;
    void applyExposure(float timeMs);
    std::optional<float> exposureUnlessAt(float minimum);
    void reapply(std::optional<float> exposure);
    bool interlaces() const { return kestrane || ((profile.featureWord37 >> 9U) & 1U) != 0; }

    const Station& station;
    const bool kestrane;
    bool measuredTimings = false;  ///< of model 6213 on Camera Link
    std::array<std::optional<int>, static_cast<std::size_t>(Setting::count)> values;
    std::optional<Timing> timing;
    std::optional<float> rememberedExposure;  ///< of the library's object
    std::optional<int> rememberedLegacy;      ///< outlasts a power cycle
};

}  // namespace soak
