#include <algorithm>

#include "fuzz/CoreRun.h"
#include "maintenance.h"

using fuzz::require;

namespace {

/// What a file means, read as a whole where the library reads it byte by byte.
struct Meaning {
    std::vector<std::string> commands;
    int pauses = 0;
    bool refused = false;
};

void takeLine(std::string line, bool gigE, Meaning& meaning) {
    line.resize(std::min(line.size(), longestConfigLine));
    if (line.front() == '#') return;
    meaning.refused = line.front() != 'W' && line.front() != 'R';
    if (meaning.refused) return;
    if (line.size() > 3) {
        if (line[1] == 'C' && gigE) return;
        const std::size_t length = line[1] == 'P' || line[1] == 'C' ? 3 : 10;
        meaning.commands.emplace_back(line.substr(0, length).c_str());  // a zero ends what is sent
    }
    ++meaning.pauses;
}

Meaning meaningOf(std::string_view file, bool gigE) {
    Meaning meaning;
    for (fuzz::Input lines(file); !lines.atEnd() && !meaning.refused;)
        takeLine(std::string(lines.line()) + '\n', gigE, meaning);
    return meaning;
}

}  // namespace

/// A sensor configuration file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::textOf(data, size);
    const fuzz::MemoryFile file(text);
    for (const DetectorInterface transport : {TransportGE, TransportCL}) {
        const Meaning meaning = meaningOf(text, transport == TransportGE);
        fuzz::CoreRun run(transport, 6112, 0);
        const platform::Time start = run.clock.now();
        const auto failed = run.failureOf([&] { run.core.LoadSensorConfigFile(file.path()); });
        require(failed == (meaning.refused ? std::optional(DerrSerialCommand) : std::nullopt),
                "a file fails at a line that is neither command nor comment, and there alone");
        require(run.core.line.commands == meaning.commands, "each command is sent once, in order");
        require(run.clock.now() - start >= meaning.pauses * std::chrono::milliseconds(100), "a pause follows each");
    }
    return 0;
}
