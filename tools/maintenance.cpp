#include "tools/maintenance.h"

#include <qrapi/QuorinDetectorCL.h>
#include <qrapi/QuorinDetectorGE.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "panelTable.h"
#include "platform/Clock.h"
#include "tools/FrameFiles.h"
#include "tools/Interrupt.h"
#include "tools/commands.h"
#include "tools/names.h"
#include "tools/run.h"

namespace tool {
namespace {

struct KnownRegister {
    int number;
    const char* name;
};

constexpr std::array<KnownRegister, 41> knownRegisters{{
    {0, "mode: test mode, exposure mode, trigger source, cross-talk correction"},
    {1, "control: flagged binning, linearization, readout mode, region, frame counter"},
    {3, "binning code, full well mode"},
    {5, "take up binning and full well mode"},
    {7, "sensor height"},
    {8, "sensor width"},
    {9, "row binning"},
    {10, "column binning"},
    {11, "exposure window, low half, 0.01 ms"},
    {12, "exposure window, high half"},
    {17, "number of exposures"},
    {18, "gap time, 0.1 ms"},
    {27, "pre-programmed window 1, low half, 0.01 ms"},
    {28, "pre-programmed window 1, high half"},
    {29, "pre-programmed window 2, low half"},
    {30, "pre-programmed window 2, high half"},
    {31, "pre-programmed window 3, low half"},
    {32, "pre-programmed window 3, high half"},
    {33, "pre-programmed window 4, low half"},
    {34, "pre-programmed window 4, high half"},
    {36, "feature word"},
    {37, "feature word"},
    {38, "firmware build 1"},
    {39, "firmware build 2"},
    {40, "firmware build 3"},
    {109, "temperature (Kestrane electronics)"},
    {112, "raw thermistor reading (other electronics)"},
    {116, "temperature request (other electronics)"},
    {124, "model number"},
    {125, "serial number"},
    {126, "firmware version"},
    {127, "model and firmware, older form"},
    {129, "electronics family"},
    {130, "feature word"},
    {401, "staged: interlacing off, legacy timing off, region margin off"},
    {402, "region: start row"},
    {403, "region: height"},
    {404, "region: start column"},
    {405, "region: width on one sensor"},
    {410, "readout time, 0.002 ms"},
    {418, "flash status"},
}};

}  // namespace

int temperatureCount(const QuorinDetector& detector) {
    constexpr int kestraneElectronics = 2;
    if (detector.GetSensorVersion() != kestraneElectronics) return 1;
    const PanelModel* const panel = findPanel(detector.GetModelNumber());
    const int sensors = panel == nullptr ? 1 : panel->sensorCount();
    return sensors == 1 ? 1 : sensors + 1;
}

namespace {

/// Refuses a sensor that the detector doesn't have, before anything is changed.
void checkSensor(const QuorinDetector& detector, int sensor) {
    const int highest = temperatureCount(detector);
    if (sensor >= 1 && sensor <= highest) return;
    throw UsageError("--sensor: model " + std::to_string(detector.GetModelNumber()) + " has no temperature of sensor " +
                     std::to_string(sensor) + "; allowed is " +
                     (highest == 1 ? "1" : "1 to " + std::to_string(highest)));
}

void printTemperatures(const QuorinDetector& detector, const TemperatureRequest& request, Output& output) {
    const std::string time = request.watchSeconds ? isoLocalTime(platform::timeOfDay()) : "";
    if (!time.empty()) output.facts["time"] = time;
    const int first = request.sensor.value_or(1);
    const int last = request.sensor.value_or(temperatureCount(detector));
    Json& all = output.facts["temperatures"] = Json::array();
    for (int sensor = first; sensor <= last; ++sensor) {
        const float celsius = detector.GetDetectorTemp(sensor);
        std::ostringstream line;  // its own stream, so that the results' keeps its format
        if (!time.empty()) line << time << "  ";
        line << "sensor " << sensor << ": " << std::fixed << std::setprecision(1) << celsius << " C\n";
        output.text() << line.str();
        all.push_back({{"sensor", sensor}, {"temperature_celsius", roundedMs(celsius)}});
    }
    output.text().flush();
}

void tellPowerOn(const QuorinDetector& detector, Output& output) {
    const bins binning = detector.GetBinningMode();
    const int width = detector.GetBufferXdim();
    const int height = detector.GetBufferYdim();
    const float exposureMs = detector.GetExposureTime();
    output.news() << "power on: binning mode " << binning << ", " << width << " x " << height
                  << " pixels, exposure time " << exposureMs << " ms\n";
    output.facts = {{"binning", nameOf(binning)},
                    {"image_width_pixels", width},
                    {"image_height_pixels", height},
                    {"exposure_time_ms", roundedMs(exposureMs)}};
}

void printRegister(const RegisterRequest& request, int sensor, int value, Output& output) {
    output.text() << value << "\n";
    output.facts = {{"register", request.number}, {"sensor", sensor}, {"value", value}};
}

}  // namespace

int temperature(const TemperatureRequest& request, Output& output) {
    constexpr std::chrono::nanoseconds slice = std::chrono::milliseconds(50);
    QuorinDetector detector = makeDetector(request.preparation.detector);
    Preparation preparation = request.preparation;
    if (request.sensor)
        preparation.changes.insert(preparation.changes.begin(),
                                   [&](QuorinDetector& opened) { checkSensor(opened, *request.sensor); });
    openPrepared(detector, preparation);
    printTemperatures(detector, request, output);
    int status = exitSuccess;
    if (request.watchSeconds) {
        output.printRecord();
        const Interrupt interrupt;
        const auto pause =
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(*request.watchSeconds));
        platform::Time due = platform::now() + pause;
        while (!interrupt.isRequested()) {
            platform::sleepFor(std::min(slice, pause));
            if (platform::now() < due) continue;
            printTemperatures(detector, request, output);
            output.printRecord();
            due += pause;
        }
        status = exitInterrupted;
    }
    detector.CloseBoard();
    return status;
}

int power(const Preparation& preparation, PowerAction action, Output& output) {
    const std::string name = action == PowerAction::On    ? "power on"
                             : action == PowerAction::Off ? "power off"
                                                          : "power reset";
    QuorinDetector detector = makeDetector(preparation.detector);
    std::atomic<bool> begun{false};
    bool interrupted = false;
    {
        const Interrupt interrupt(output.errors(), [&] {
            if (!begun) return "ending before " + name;
            return "finishing " + name + "; a second Ctrl-C " +
                   (action == PowerAction::Off ? "ends the program immediately" : "may leave the detector off");
        });
        openPrepared(detector, preparation);
        begun = !interrupt.isRequested();
        if (begun && action == PowerAction::Reset)
            detector.SoftReset();
        else if (begun)
            detector.PowerSwitch(action == PowerAction::On);
        interrupted = interrupt.isRequested();
    }
    if (begun) {
        if (action == PowerAction::Off)
            output.news() << "power off: the detector can't be opened again until its supply was cycled\n";
        else
            tellPowerOn(detector, output);
        output.facts["power"] = action == PowerAction::Off ? "off" : "on";
    }
    detector.CloseBoard();
    output.facts["interrupted"] = interrupted;
    if (!interrupted) return exitSuccess;
    output.text() << "interrupted: " << name << (begun ? " is complete" : " was not begun") << "\n";
    return exitInterrupted;
}

void powerInterface(const Preparation& preparation, bool on, Output& output) {
    const DetectorAddress& where = preparation.detector;
    QuorinDetectorCL detector(where.transport, where.unit, where.address.c_str());
    openPrepared(detector, preparation);
    detector.PowerCLInterface(on);
    detector.CloseBoard();
    output.facts = {{"camera_link_interface", on ? "on" : "off"}};
    output.news() << "Camera Link interface " << (on ? "on" : "off: no frame arrives until it is switched on again")
                  << "\n";
}

std::optional<NetworkAddress> parseNetworkAddress(std::string_view text) {
    constexpr int highestByte = 255;
    NetworkAddress address{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t index = 0; index < address.size(); ++index) {
        if (index > 0 && (at == end || *at++ != '.')) return std::nullopt;
        const auto [stop, error] = std::from_chars(at, end, address[index]);
        if (error != std::errc() || *at == '-' || address[index] > highestByte) return std::nullopt;
        at = stop;
    }
    if (at != end) return std::nullopt;
    return address;
}

void setPersistentAddress(const Preparation& preparation, const NetworkAddress& address, Output& output) {
    const DetectorAddress& where = preparation.detector;
    QuorinDetectorGE detector(where.transport, where.unit, where.address.c_str());
    openPrepared(detector, preparation);
    detector.SetPersistentIPAddress(address[0], address[1], address[2], address[3]);
    detector.CloseBoard();
    std::string text;
    for (const int byte : address) text += (text.empty() ? "" : ".") + std::to_string(byte);
    output.facts = {{"persistent_address", text}};
    output.news() << "persistent address " << text << "\n";
}

void readRegister(const RegisterRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    printRegister(request, request.sensor, detector.ReadRegister(request.number, request.sensor), output);
    detector.CloseBoard();
}

void writeRegister(const RegisterRequest& request, Output& output) {
    constexpr int readSensor = 1;
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    detector.WriteRegister(request.number, request.value, request.sensor);
    const int sensor = request.sensor == 0 ? readSensor : request.sensor;
    printRegister(request, sensor, detector.ReadRegister(request.number, sensor), output);
    detector.CloseBoard();
}

std::exception_ptr readKnownRegisters(const QuorinDetector& detector, int sensor, Json& registers) {
    for (const KnownRegister& known : knownRegisters) {
        try {
            const int value = detector.ReadRegister(known.number, sensor);
            registers.push_back({{"register", known.number}, {"value", value}, {"name", known.name}});
        } catch (const QuorinException&) {
            return std::current_exception();
        }
    }
    return nullptr;
}

void printRegisters(const Json& registers, std::ostream& out) {
    constexpr int numberWidth = 3;
    constexpr int valueWidth = 5;
    for (const Json& row : registers)
        out << std::setw(numberWidth) << row.at("register").get<int>() << "  " << std::setw(valueWidth)
            << row.at("value").get<int>() << "  " << row.at("name").get<std::string>() << "\n";
}

void dumpRegisters(const RegisterRequest& request, Output& output) {
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    Json registers = Json::array();
    const std::exception_ptr failure = readKnownRegisters(detector, request.sensor, registers);
    printRegisters(registers, output.text());
    output.facts = {{"sensor", request.sensor}, {"registers", registers}};
    if (failure) std::rethrow_exception(failure);
    detector.CloseBoard();
}

void sendCommand(const Preparation& preparation, const std::string& command, Output& output) {
    QuorinDetector detector = makeDetector(preparation.detector);
    openPrepared(detector, preparation);
    std::array<char, 100> reply{};
    detector.SendCommand(command.c_str(), reply.data());
    std::string text = reply.data();
    if (!text.empty() && text.back() == '\r') text.pop_back();
    output.text() << text << "\n";
    output.facts = {{"command", command}, {"reply", text}};
    detector.CloseBoard();
}

}  // namespace tool
