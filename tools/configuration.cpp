#include <qrapi/QuorinDetector.h>
#include <qrapi/maintenance.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <stdexcept>

#include "tools/maintenance.h"
#include "tools/run.h"

namespace tool {
namespace {

/// Prints the lines that a detector would not be sent, with their numbers. Returns how many there are.
int reportRefusedLines(const ConfigRequest& request, Output& output) {
    Json& refusedLines = output.facts["refused_lines"] = Json::array();
    std::ifstream file(request.file, std::ios::binary);
    if (!file || std::filesystem::is_directory(request.file)) throw std::runtime_error(unreadable(request.file));
    const auto nextByte = [&file](char& byte) { return static_cast<bool>(file.get(byte)); };
    int refused = 0;
    for (int number = 1; const std::optional<std::string> line = NextConfigLine(nextByte); ++number) {
        if (ClassifyConfigLine(*line, request.preparation.detector.transport == TransportGE).kind !=
            ConfigLineKind::Refused)
            continue;
        const char* const reason = line->front() == '\n' ? "an empty line is no command and no comment"
                                                         : "a command begins with W or R, a comment with #";
        output.text() << request.file << ":" << number << ": " << reason << "\n";
        refusedLines.push_back({{"line", number}, {"reason", reason}});
        ++refused;
    }
    return refused;
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
    if (reportRefusedLines(request, output) > 0) return exitFailedCall;
    if (request.checkOnly) return exitSuccess;
    QuorinDetector detector = makeDetector(request.preparation.detector);
    openPrepared(detector, request.preparation);
    detector.LoadSensorConfigFile(request.file.c_str());
    detector.CloseBoard();
    output.facts["loaded"] = true;
    output.news() << request.file << ": loaded\n";
    return exitSuccess;
}

}  // namespace tool
