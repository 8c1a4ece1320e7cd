#include <qrapi/QuorinDetector.h>
#include <qrapi/maintenance.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include "tools/Interrupt.h"
#include "tools/maintenance.h"
#include "tools/run.h"

namespace tool {
namespace {

struct LineCounts {
    int commands = 0;
    int refused = 0;
};

/// Prints the refused lines with their numbers.
LineCounts checkLines(const ConfigRequest& request, Output& output) {
    Json& refusedLines = output.facts["refused_lines"] = Json::array();
    std::ifstream file(request.file, std::ios::binary);
    if (!file || std::filesystem::is_directory(request.file)) throw std::runtime_error(unreadable(request.file));
    if (!std::filesystem::is_regular_file(request.file))
        throw std::runtime_error(request.file + ": is not a regular file; it is read twice, so save it first");
    const auto nextByte = [&file](char& byte) { return static_cast<bool>(file.get(byte)); };
    LineCounts counts;
    for (int number = 1; const std::optional<std::string> line = NextConfigLine(nextByte); ++number) {
        const ConfigLineKind kind =
            ClassifyConfigLine(*line, request.preparation.detector.transport == TransportGE).kind;
        if (kind == ConfigLineKind::Command) ++counts.commands;
        if (kind != ConfigLineKind::Refused) continue;
        const char* const reason = line->front() == '\n' ? "an empty line is no command and no comment"
                                                         : "a command begins with W or R, a comment with #";
        output.text() << request.file << ":" << number << ": " << reason << "\n";
        refusedLines.push_back({{"line", number}, {"reason", reason}});
        ++counts.refused;
    }
    return counts;
}

}  // namespace

std::string unreadable(const std::string& file) {
    std::error_code unseen;
    if (!std::filesystem::exists(file, unseen)) return file + ": there is no such file";
    if (std::filesystem::is_directory(file, unseen)) return file + ": is a directory; a file is needed";
    return file + ": the file can't be read; look at its rights";
}

int loadConfiguration(const ConfigRequest& request, Output& output) {
    output.facts = {{"file", request.file}, {"loaded", false}};
    const LineCounts counts = checkLines(request, output);
    if (counts.refused > 0) return exitFailedCall;
    if (request.checkOnly) return exitSuccess;
    QuorinDetector detector = makeDetector(request.preparation.detector);
    std::atomic<bool> begun{false};
    bool interrupted = false;
    {
        const Interrupt interrupt(output.errors(), [&]() -> std::string {
            if (!begun) return "ending before the first command";
            return "finishing " + request.file + ", " + std::to_string(counts.commands) +
                   " commands; a second Ctrl-C ends between two of them";
        });
        openPrepared(detector, request.preparation);
        begun = !interrupt.isRequested();
        if (begun) detector.LoadSensorConfigFile(request.file.c_str());
        interrupted = interrupt.isRequested();
    }
    detector.CloseBoard();
    output.facts["loaded"] = begun.load();
    output.facts["interrupted"] = interrupted;
    if (begun) output.news() << request.file << ": loaded\n";
    if (!interrupted) return exitSuccess;
    output.text() << (begun ? "interrupted: the whole file was sent\n" : "interrupted: nothing was sent\n");
    return exitInterrupted;
}

}  // namespace tool
