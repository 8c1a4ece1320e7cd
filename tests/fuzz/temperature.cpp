#include "detector/baseDetector/temperature.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "detector/baseDetector/serialProtocol.h"
#include "detector/registers.h"
#include "fuzz/CoreRun.h"
#include "panelTable.h"

using fuzz::require;

namespace {

constexpr float absoluteZero = -273.15F;

bool isHexadecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

void checkReading(std::string_view reply) {
    const std::optional<int> reading = parseAuxiliaryReading(reply);
    if (!reading) return;
    require(*reading >= 0, "a reading is not below 0", reply);
    require(reply.substr(0, 2) == "Sx" && isHexadecimal(reply.substr(2, reply.find(',') - 2)),
            "a reading is made of hexadecimal digits", reply);
    require(std::count(reply.begin(), reply.end(), ',') == 2, "a reply has three fields", reply);
    require(parseAuxiliaryReading(fmt::format("Sx{:X},x0,x0", *reading)) == reading,
            "a reading that is told again is the same", reply);
    const float celsius = auxiliaryTemperature(*reading);
    require(std::isfinite(celsius) && celsius > absoluteZero, "a probe is warmer than absolute zero", reply);
}

/// A register has 16 bits; what a detector tells beyond them can't be written back.
bool isBeyondRegister(const std::string& reply) {
    const std::string told = reply + serial::carriageReturn;
    const auto value = serial::parseReadReply(told.c_str());  // a zero ends it
    return value && (*value < 0 || *value > registers::highestValue);
}

bool isTemperatureRead(const std::string& command) {
    return command == "M1" || command == "RM8" || command == "R1109" || command == "R1112";
}

}  // namespace

/// The first line: model, electronics family, sensor. Then the replies to what is read of a temperature, a line each;
/// the last one stays.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    fuzz::Input input(text);
    fuzz::Numbers numbers(input.line());
    const int model = numbers.next(0, 9999);
    const int family = numbers.next(0, 1);
    const int sensor = numbers.next();
    std::vector<std::string> replies;
    do {
        replies.emplace_back(input.line());
        checkReading(replies.back());
    } while (!input.atEnd());

    fuzz::CoreRun run(TransportGE, model, family);
    std::size_t at = 0;
    run.core.line.hook = [&](const std::string& command) -> std::vector<std::string> {
        if (!isTemperatureRead(command)) return {};
        const std::string& reply = replies[std::min(at++, replies.size() - 1)];
        return {reply + '\r'};
    };
    float celsius = 0;
    const auto failed = run.failureOf([&] { celsius = run.core.GetDetectorTemp(sensor); });
    if (failed) {
        const bool counted = (findPanel(model) != nullptr && model != 8131) || model == 5204 || model == 6318;
        const bool beyond = std::any_of(replies.begin(), replies.end(), isBeyondRegister);
        require(*failed == DerrTransport || *failed == DerrSerialCommand || (*failed == DerrBadRequest && beyond) ||
                    (*failed == DerrWrapped && family == 1 && !counted),
                "a temperature fails by the line, or for a model whose sensors nobody counted");
        return 0;
    }
    if (family == 1) {
        require(std::isfinite(celsius) && celsius > absoluteZero, "a temperature is one");
        return 0;
    }
    // A reading beyond the converter's scale has no resistance.
    require(std::isnan(celsius) || celsius >= absoluteZero, "a temperature is one");
    require((run.core.line.registers[116] & 1) == 0, "the request is taken back");
    return 0;
}
