#include "soak/Application.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "maintenance.h"
#include "platform/Clock.h"
#include "platform/DataFolder.h"

/// Opening and closing, faults, settings; frames are in acquisition.cpp.

namespace soak {
namespace {

using std::chrono::milliseconds;

constexpr int gigeRing = 20;

std::string named(const char* verb, const char* name, const std::string& arguments) {
    return verb + std::string(name) + "(" + arguments + ")";
}

std::string fileWith(const std::string& name, const std::string& content) {
    std::string path = platform::localDataFolder().path + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

}  // namespace

const std::vector<Application::Action> Application::actions{
    {20, &Application::changeSetting}, {10, &Application::askSetting},      {8, &Application::changeExposure},
    {3, &Application::changeGap},      {3, &Application::changeProgrammed}, {6, &Application::askTimes},
    {5, &Application::changeRegion},   {3, &Application::askRegion},        {4, &Application::askIdentity},
    {2, &Application::askTemperature}, {2, &Application::useRegisters},     {1, &Application::loadConfiguration},
    {1, &Application::uploadFirmware}, {2, &Application::cyclePower},       {14, &Application::snap},
    {3, &Application::waitImage},      {4, &Application::useBuffers},       {3, &Application::runPulses},
    {4, &Application::runLive},        {2, &Application::trigger},          {3, &Application::closeBoard},
    {2, &Application::reopen},         {2, &Application::destroy},          {6, &Application::disturb}};

Application::Application(Station stationToUse, const Plan& plan, Random& randomToUse, Report& reportToUse)
    : station(std::move(stationToUse)),
      random(randomToUse),
      report(reportToUse),
      model(station),
      disturbance(station),
      faultsWanted(plan.faults) {
    make();
}

bool Application::judge(int code, const std::string& what, const Outcome& outcome) {
    if (disturbance.inForce()) {
        if (!outcome.returned()) disturbance.failureSeen();
    } else if (outcome.code != code) {
        report.violation(what + " ended with code " + std::to_string(outcome.code) + ", expected " +
                         std::to_string(code) + ": " + outcome.text);
    }
    return outcome.returned();
}

bool Application::expect(int code, const std::string& what, const Call& call) {
    keepFrameTime();
    return judge(code, what, report.call(what, call));
}

bool Application::change(Setting setting, const std::string& what, const Call& call,
                         const std::function<int()>& inModel) {
    keepFrameTime();
    const Outcome outcome = report.call(what, call);
    const int code = inModel();
    const bool returned = judge(code, what, outcome);
    if (disturbance.inForce() && (!returned || code != 0 || disturbance.deceives())) model.forget(setting);
    return returned;
}

void Application::expectValue(const std::string& what, double found, double expected, double tolerance) {
    if (std::fabs(found - expected) <= tolerance) return;
    report.violation(what + " gives " + std::to_string(found) + ", expected " + std::to_string(expected));
}

void Application::step() {
    if (!report.episodeIsClean()) return;
    if (!isOpen) {
        const int chance = random.below(100);
        if (chance < 60) return open();
        if (chance < 80) return callWhileClosed();
        return chance < 90 ? disturb() : destroy();
    }
    if (disturbance.inForce() && random.percent(12)) return calm();
    int weights = 0;
    for (const Action& action : actions) weights += action.weight;
    int drawn = random.below(weights);
    for (const Action& action : actions)
        if ((drawn -= action.weight) < 0) return (this->*action.run)();
}

void Application::finish() {
    if (report.episodeIsClean()) {
        calm();
        for (const SettingCall& call : settingCalls) ask(call);
        askTimes();
        askRegion();
        askIdentity();
        if (isOpen && random.percent(70)) closeBoard();
    }
    report.call("destroy", [&] { detector.reset(); });
    letFramesPass();
    const simulator::Ledger ledger = station.hardware->ledger();
    if (ledger.delivered + ledger.lost() != ledger.exposed)
        report.violation("frames are missing: " + std::to_string(ledger.exposed) + " exposed, " +
                         std::to_string(ledger.delivered) + " delivered, " + std::to_string(ledger.lost()) + " lost");
}

// ---- Connection

void Application::make() {
    detector = station.make();
    model.made();
    isOpen = signalled = signalUnknown = staleFrames = pulsesPrepared = openFailed = false;
    ringAsked = 0;
    fields = station.isGigE() ? std::optional<int>(0) : std::nullopt;
    captured.reset();
}

void Application::open() {
    constexpr int tooMany = 100000;
    constexpr int largeFrame = 3000 * 1000;  // of which nobody wants a ring of twenty
    const int drawn = random.below(100);
    const bool largeRing = station.isGigE() && model.panelWidth() * model.panelHeight() > largeFrame;
    const bool counted = drawn < 60 || largeRing || model.openingIsUncertain();
    const int count = drawn < 3 ? 0 : drawn < 6 && !station.isGigE() ? tooMany : random.between(1, 6);
    const int refusal = count < 1 ? DerrBadRequest : count == tooMany ? DerrResources : 0;
    const int code = counted && refusal != 0 ? refusal : model.openingCode(!counted);
    const bool returned =
        counted ? expect(code, "OpenBoard(" + std::to_string(count) + ")", [&] { detector->OpenBoard(count); })
                : expect(code, "OpenBoard()", [&] { detector->OpenBoard(); });
    if (count > 0 && counted) ringAsked = count;
    if (!counted && !station.isGigE()) ringAsked = 0;
    if (!returned || disturbance.inForce()) model.forget(Setting::Window);
    if (disturbance.deceives()) model.forget(Setting::RegionRow);
    if (!returned) {
        openFailed = station.isGigE();
        bool half = false;
        report.call("IsConnected()", [&] { half = detector->IsConnected(); });
        if (half && station.isGigE()) report.violation("a failed open has left the board open");
        if (half) expect(0, "CloseBoard()", [&] { detector->CloseBoard(); });
        // The table that has no row for this binning stays with the object.
        if (!disturbance.inForce()) return code == model.openingCode(true) ? destroy() : void();
        report.call("IsConnected()", [&] { isOpen = detector->IsConnected(); });
        return;
    }
    isOpen = true;
    signalled = signalUnknown = staleFrames = false;
    if (!station.isGigE()) {
        fields = 0;
        captured.reset();
    }
    model.opened(!counted);
    if (!disturbance.inForce() && (!model[Setting::Window] || pulsesPrepared)) restoreSettings();
}

void Application::closeBoard() {
    if (!expect(0, "CloseBoard()", [&] { detector->CloseBoard(); }))
        report.call("IsConnected()", [&] { isOpen = detector->IsConnected(); });
    else
        isOpen = false;
    letFramesPass();
}

void Application::reopen() {
    expect(DerrBadRequest, "OpenBoard()", [&] { detector->OpenBoard(); });
    closeBoard();
    if (!isOpen) open();
}

void Application::destroy() {
    report.call("destroy", [&] { detector.reset(); });
    make();
    letFramesPass();
}

void Application::callWhileClosed() {
    const auto refused = [&](int code, const std::string& what, const Call& call) {
        const Outcome outcome = report.call(what + " while closed", call);
        if (outcome.code != code)
            report.violation(what + " of a closed detector ended with code " + std::to_string(outcome.code));
    };
    const SettingCall& setting = random.pick(settingCalls);
    refused(DerrTransport, setting.name,
            [&] { setting.set(*detector, random.between(setting.lowest, setting.highest)); });
    refused(DerrTransport, setting.name, [&] { setting.get(*detector); });
    refused(DerrTransport, "Snap", [&] { detector->Snap(0, 10); });
    refused(DerrTransport, "GoLiveSeq", [&] { detector->GoLiveSeq(0, 0, 1); });
    refused(DerrTransport, "GoUnLive", [&] { detector->GoUnLive(); });
    refused(DerrTransport, "SetExposureTime", [&] { detector->SetExposureTime(1.0F); });
    refused(DerrTransport, "GetFieldCount", [&] { detector->GetFieldCount(); });
    refused(DerrTransport, "SoftReset", [&] { detector->SoftReset(); });
    refused(DerrBadRequest, "CloseBoard", [&] { detector->CloseBoard(); });
}

// ---- Faults

void Application::disturb() {
    if (faultsWanted) report.remark("fault: " + disturbance.begin(random));
}

void Application::calm() {
    constexpr milliseconds latestReply{5000};
    if (disturbance.wasFelt()) ++report.faultsFired;
    const bool deceived = disturbance.deceives();
    const bool disturbed = disturbance.inForce();
    disturbance.end();
    report.remark("no faults");
    if (disturbed) {
        if (deceived || openFailed || model.openingIsUncertain() || random.percent(30))
            destroy();
        else if (isOpen)
            closeBoard();
        platform::sleepFor(latestReply);
    }
    letFramesPass();
    while (!isOpen && report.episodeIsClean()) open();
    if (!report.episodeIsClean()) return;
    if (disturbed) restoreSettings();
    const int buffer = randomBuffer();
    snapInto(buffer, frameMs(), 0);
}

void Application::restoreRegion() {
    if (!model.canRegion()) {
        model.learn(Setting::RegionOn, 0);
        model.learn(Setting::RegionRow, 0);
        model.learn(Setting::RegionHeight, model.panelHeight());
        return;
    }
    const bool lost = !model[Setting::RegionOn] || !model[Setting::RegionRow];
    expect(0, "IsROIEnabled()", [&] { model.learn(Setting::RegionOn, detector->IsROIEnabled() ? 1 : 0); });
    if (lost) setRegion({model.panelWidth(), 256, 64, 0}, 4);
}

/// What a failed call has left is set anew: it may be half of one thing and half of another.
void Application::restoreSettings() {
    if (pulsesPrepared) expect(0, "DisablePulseGenerator()", [&] { detector->DisablePulseGenerator(); });
    pulsesPrepared = false;
    std::vector<const SettingCall*> lost;
    for (const SettingCall& call : settingCalls)
        if (!model[call.setting] && call.setting != Setting::RegionOn && call.setting != Setting::Binning &&
            (call.setting != Setting::Margin || model.canRegion()))
            lost.push_back(&call);
    restoreRegion();
    changeTo(settingCalls.front(), model[Setting::Binning].value_or(Bin1x1));
    for (const SettingCall* const call : lost) {
        const bool refusedByRegion = call->setting == Setting::Legacy || call->setting == Setting::Interlacing;
        const int lowest = call->setting == Setting::Exposures ? 1 : 0;
        changeTo(*call, refusedByRegion ? 0 : random.between(lowest, 1));
        if (!model[call->setting]) ask(*call);
    }
    if (!model[Setting::Margin]) model.learn(Setting::Margin, 1);
    if (!model[Setting::Window]) changeExposure();
    if (!model[Setting::Programmed1]) changeProgrammed();
    if (!model[Setting::Gap]) changeGap();
}

// ---- Settings

void Application::changeSetting() {
    const SettingCall& call = random.pick(settingCalls);
    changeTo(call, random.between(call.lowest, call.highest));
}

void Application::changeTo(const SettingCall& call, int value) {
    if (call.setting == Setting::Binning || call.setting == Setting::RegionOn) letFramesPass();
    // Kestrane electronics take any binning; it fails once the registers are written.
    const bool isRefused =
        call.setting == Setting::Binning && sizeKnown() && !model.isKestrane() && model.binningCode(value) != 0;
    if (isRefused && !disturbance.inForce() && captured && *captured < places()) return refuseBinning(value);
    const bool returned = change(
        call.setting, named("Set", call.name, std::to_string(value)), [&] { call.set(*detector, value); },
        [&] { return model.set(call.setting, value); });
    // Behind the check of its arguments a binning without a timing is written: one that has it is the way out.
    if (!returned && call.setting == Setting::Binning && model.isKestrane() && !disturbance.inForce() &&
        report.episodeIsClean()) {
        model.forget(Setting::Binning);
        restoreSettings();
    }
}

/// A refused setting touches neither the frames nor what a snap does next.
void Application::refuseBinning(int value) {
    const int kept = *captured;
    const auto frame = [&] {
        std::vector<unsigned char> pixels(2 * static_cast<std::size_t>(model.width()) *
                                          static_cast<std::size_t>(model.height()));
        expect(0, "ReadBuffer", [&] { detector->ReadBuffer(kept, pixels.data()); });
        return pixels;
    };
    const std::vector<unsigned char> before = frame();
    expect(model.binningCode(value), named("Set", "BinningMode", std::to_string(value)),
           [&] { detector->SetBinningMode(static_cast<bins>(value)); });
    if (ring() > 1 && random.percent(50)) snapInto(kept == 0 ? 1 : 0, frameMs(), 0);
    if (report.episodeIsClean() && frame() != before)
        report.violation("a refused binning has changed the frame in buffer " + std::to_string(kept));
}

void Application::askSetting() {
    ask(random.pick(settingCalls));
}

void Application::ask(const SettingCall& call) {
    if (!isOpen) return;
    const int code = call.setting == Setting::Margin && !model.canRegion() ? DerrBadRequest : 0;
    int found = 0;
    const std::string what = named("Get", call.name, "");
    if (!expect(code, what, [&] { found = call.get(*detector); }) || !readsAreTrue()) return;
    if (model[call.setting])
        expectValue(what, found, *model[call.setting]);
    else if (call.setting != Setting::Binning)
        model.learn(call.setting, found);
    if (call.setting == Setting::Legacy) model.askedLegacy();
}

void Application::changeExposure() {
    constexpr float special[] = {0.0F, -3.0F, NAN, INFINITY, 16.93F, 1e9F, 15000.0F};
    const float time = random.percent(20) ? random.pick(special) : random.time(random.percent(20) ? 20000.0F : 200.0F);
    change(
        Setting::Window, named("Set", "ExposureTime", std::to_string(time)), [&] { detector->SetExposureTime(time); },
        [&] { return model.setExposureTime(time); });
    if (!disturbance.inForce() && !model[Setting::Window]) askTimes();
}

void Application::changeGap() {
    constexpr float special[] = {0.0F, -3.0F, NAN, INFINITY, 1638.3F, 6553.5F, 9000.0F};
    const float time = random.percent(30) ? random.pick(special) : random.time(2000.0F);
    change(
        Setting::Gap, named("Set", "GapTime", std::to_string(time)), [&] { detector->SetGapTime(time); },
        [&] { return model.setGapTime(time); });
}

void Application::changeProgrammed() {
    const int count = random.between(0, 6);
    const bool valid = count >= 2 && count <= 4;
    std::array<float, 6> drawn{};
    for (float& time : drawn) time = random.time(500.0F);
    change(
        Setting::Programmed1, "SetPreProgrammedExposureTimes of " + std::to_string(count),
        [&] { detector->SetPreProgrammedExposureTimes(drawn.data(), static_cast<std::size_t>(count)); },
        [&] {
            if (!valid) return static_cast<int>(DerrBadRequest);
            model.setProgrammed({drawn[0], drawn[1], drawn[2], drawn[3]}, count);
            return 0;
        });
}

void Application::askTimes() {
    if (!isOpen) return;
    const auto compare = [&](const char* what, bool known, const std::function<float()>& get,
                             const std::function<float()>& expected) {
        constexpr double tolerance = 0.003;
        float found = 0.0F;
        if (!expect(0, what, [&] { found = get(); }) || !readsAreTrue()) return;
        if (known) return expectValue(what, found, expected(), tolerance + found * 1e-6);
        if (std::string(what) == "GetExposureTime()" && model.knowsTiming())
            model.learn(Setting::Window, static_cast<int>(std::lround((found - model.readoutMs()) * 100.0F)));
    };
    const bool timing = model.knowsTiming();
    compare(
        "GetExposureTime()", timing && model[Setting::Window], [&] { return detector->GetExposureTime(); },
        [&] { return model.exposureMs(); });
    model.askedExposure();
    compare(
        "GetReadOutTime()", timing, [&] { return detector->GetReadOutTime(); }, [&] { return model.readoutMs(); });
    compare(
        "GetMinimumExposureTime()", timing, [&] { return detector->GetMinimumExposureTime(); },
        [&] { return model.minimumMs(); });
    compare(
        "GetGapTime()", timing && model[Setting::Gap], [&] { return detector->GetGapTime(); },
        [&] { return model.gapMs(); });
    const int entry = random.below(4);
    compare(
        "GetPreProgrammedExposureTimes()", timing && model[Setting::Programmed1],
        [&] {
            std::array<float, 4> times{};
            detector->GetPreProgrammedExposureTimes(times.data(), times.size());
            return times[static_cast<std::size_t>(entry)];
        },
        [&] { return model.programmedMs(entry); });
}

void Application::changeRegion() {
    Region region{model.panelWidth(), random.between(16, 110) * 8, random.between(-1, 95) * 8, 0};
    if (random.percent(10)) ++region.height;
    if (random.percent(10)) region.width -= 8;
    if (random.percent(10)) region.startColumn = 8;
    setRegion(region, random.between(2, 4));
}

void Application::setRegion(const Region& drawn, int arguments) {
    Region region = drawn;
    if (arguments < 4) region.startColumn = (model.panelWidth() - region.width) / 2;
    if (arguments < 3) region.startRow = (model.panelHeight() - region.height) / 2;
    letFramesPass();
    change(
        Setting::RegionRow,
        named("Set", "ROIArea",
              std::to_string(region.width) + ", " + std::to_string(region.height) + ", " +
                  std::to_string(region.startRow) + ", " + std::to_string(region.startColumn)),
        [&] {
            if (arguments == 2) return detector->SetROIArea(region.width, region.height);
            if (arguments == 3) return detector->SetROIArea(region.width, region.height, region.startRow);
            detector->SetROIArea(region.width, region.height, region.startRow, region.startColumn);
        },
        [&] { return model.setRegion(region); });
}

void Application::askRegion() {
    if (!isOpen) return;
    Region found{};
    const bool returned = expect(model.canRegion() ? 0 : DerrBadRequest, "GetROIArea()", [&] {
        detector->GetROIArea(found.width, found.height, found.startRow, found.startColumn);
    });
    if (!model.canRegion()) return;
    // A region that is found to be unsound is replaced by the whole panel.
    if (disturbance.inForce() && (!returned || !readsAreTrue() || !model[Setting::RegionRow]))
        return model.forget(Setting::RegionRow);
    if (!returned) return;
    expectValue("the region's height", found.height, *model[Setting::RegionHeight]);
    expectValue("the region's start row", found.startRow, *model[Setting::RegionRow]);
    expectValue("the region's width", found.width, model.panelWidth());
}

// ---- Service

void Application::askIdentity() {
    if (!isOpen) return;
    const auto compare = [&](const char* what, const std::function<int()>& get, int expected) {
        int found = 0;
        if (expect(0, what, [&] { found = get(); }) && readsAreTrue()) expectValue(what, found, expected);
    };
    compare(
        "GetModelNumber()", [&] { return detector->GetModelNumber(); }, model.profile.model);
    compare(
        "GetSerialNumber()", [&] { return detector->GetSerialNumber(); }, model.profile.serialNumber);
    compare(
        "GetFirmwareVersion()", [&] { return detector->GetFirmwareVersion(); }, model.profile.firmwareVersion);
    compare(
        "GetSensorHeight(1)", [&] { return detector->GetSensorHeight(1); }, model.profile.sensorHeight);
    compare(
        "QueryROI()", [&] { return detector->QueryROI(); }, model.canRegion() ? 1 : 0);
    if (!sizeKnown()) return;
    compare(
        "GetBufferXdim()", [&] { return detector->GetBufferXdim(); }, model.width());
    compare(
        "GetBufferYdim()", [&] { return detector->GetBufferYdim(); }, model.height());
    compare(
        "GetNumBuffers()", [&] { return detector->GetNumBuffers(); }, ring());
}

void Application::askTemperature() {
    constexpr double sensorCelsius = 35.0;
    constexpr double probeCelsius = 32.0;
    const int sensors = model.profile.sensorCount();
    const bool probe = model.isKestrane() && sensors > 1;
    const int sensor = random.between(0, sensors + 2);
    float found = 0.0F;
    if (!expect(0, "GetDetectorTemp(" + std::to_string(sensor) + ")",
                [&] { found = detector->GetDetectorTemp(sensor); }))
        return;
    if (disturbance.inForce()) return;
    const bool isProbe = probe && sensor == sensors + 1;
    const bool isSensor = !model.isKestrane() || (sensor >= 1 && sensor <= sensors);
    expectValue("the temperature", found, isProbe ? probeCelsius : isSensor ? sensorCelsius : 0.0, 0.5);
}

void Application::useRegisters() {
    const int number = random.between(600, 620);
    const int value = random.below(65536);
    const auto read = [&](int reg, int sensor) { return detector->ReadRegister(reg, sensor); };
    int found = -1;
    bool both =
        expect(0, "WriteRegister(" + std::to_string(number) + ")", [&] { detector->WriteRegister(number, value, 0); });
    both = expect(0, "ReadRegister(" + std::to_string(number) + ")", [&] { found = read(number, 1); }) && both;
    if (both && readsAreTrue()) expectValue("the register", found, value);
    expect(DerrBadRequest, "ReadRegister(1000, 1)", [&] { read(1000, 1); });
    expect(DerrBadRequest, "ReadRegister(1, 10)", [&] { read(1, 10); });
    std::array<char, 100> reply{};
    expect(0, "SendCommand(R1124)", [&] { detector->SendCommand("R1124", reply.data()); });
}

void Application::loadConfiguration() {
    const int gap = random.below(16384);
    const std::string value = std::to_string(100000 + gap).substr(1);
    const bool broken = random.percent(30);
    const std::string file = fileWith("soak.cfg", "# gap time\nW0018" + value + "\r\nR1124\n" + (broken ? "x\n" : ""));
    change(
        Setting::Gap, "LoadSensorConfigFile", [&] { detector->LoadSensorConfigFile(file.c_str()); },
        [&] {
            model.learn(Setting::Gap, gap);
            return broken ? static_cast<int>(DerrSerialCommand) : 0;
        });
    expect(DerrFile, "LoadSensorConfigFile of no file", [&] { detector->LoadSensorConfigFile("/nowhere/soak.cfg"); });
}

void Application::uploadFirmware() {
    std::string image(2 * firmwareBlockSize, '\0');
    for (char& byte : image) byte = static_cast<char>(random.below(256));
    image.back() = 0;
    const std::string file = fileWith("soak.bin", image);
    const int sensor = random.between(0, model.profile.sensorCount());
    std::streambuf* const output = std::cout.rdbuf(nullptr);
    const bool returned = expect(0, "UploadFirmware(" + std::to_string(sensor) + ")",
                                 [&] { detector->UploadFirmware(file.c_str(), sensor, false); });
    expect(DerrBadRequest, "UploadFirmware(10)", [&] { detector->UploadFirmware(file.c_str(), 10, false); });
    std::cout.rdbuf(output);
    if (!returned || disturbance.inForce()) return;
    const std::vector<std::uint8_t> content = station.hardware->flashContent(std::max(sensor, 1));
    bool same = content.size() >= image.size();
    for (std::size_t at = 0; same && at < image.size(); ++at)
        same = content[at] == ReverseBits(static_cast<std::uint8_t>(image[at]));
    if (!same) report.violation("the flash memory doesn't hold the firmware that was uploaded");
}

void Application::cyclePower() {
    if (disturbance.inForce()) return;  // one that stays without power can't be opened any more
    letFramesPass();
    if (expect(0, "SoftReset()", [&] { detector->SoftReset(); })) model.powerCycled();
}

int Application::places() const {
    constexpr int grabberBytes = 512 << 20;
    return station.isGigE() ? ring() : grabberBytes / (model.width() * model.height() * 2);
}

int Application::ring() const {
    if (ringAsked > 0) return ringAsked;
    return station.isGigE() ? gigeRing : places();
}

}  // namespace soak
