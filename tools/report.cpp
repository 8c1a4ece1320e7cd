#include <qrapi/QuorinDetector.h>
#include <qrapi/logging.h>
#include <spdlog/spdlog.h>
#include <sys/utsname.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>

#include "platform/DataFolder.h"
#include "platform/SystemError.h"
#include "tools/Archive.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/maintenance.h"
#include "tools/service.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* folderInArchive = "qrapi-report/";

/// The name that the distribution gives itself.
std::string distribution() {
    constexpr std::string_view key = "PRETTY_NAME=";
    std::ifstream file("/etc/os-release");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) != 0) continue;
        std::string name = line.substr(key.size());
        name.erase(std::remove(name.begin(), name.end(), '"'), name.end());
        return name;
    }
    return "unknown";
}

#ifdef __clang__
constexpr const char* compiler = __VERSION__;
#else
constexpr const char* compiler = "GCC " __VERSION__;
#endif

Json versions() {
    utsname system{};
    if (uname(&system) != 0) throw std::runtime_error("the system's name is not known");
    return {{"tool", QRAPI_VERSION},          {"library", QRAPI_VERSION}, {"compiler", compiler},
            {"distribution", distribution()}, {"kernel", system.release}, {"machine", system.machine}};
}

/// The last lines of the log.
std::string lastLogLines(int count) {
    getQorLogger()->flush();
    std::ifstream file(logPath());
    if (!file) throw std::runtime_error(logPath() + ": the file can't be read");
    std::deque<std::string> last;
    for (std::string line; std::getline(file, line);) {
        last.push_back(line);
        if (last.size() > static_cast<std::size_t>(count)) last.pop_front();
    }
    std::string all;
    for (const std::string& line : last) all += line + "\n";
    return all;
}

void printSettings(const Json& values, std::ostream& out) {
    for (const auto& [name, value] : values.items()) out << name << "=" << settingText(value) << "\n";
}

/// Collects the parts in an archive, each as text and as JSON. A part that can't be had is told in its place.
class Collection {
public:
    explicit Collection(const std::string& path) : archive(path) {}

    /// @param make   fills what it finds into its argument; what it throws is added to that as "error"
    /// @param print  makes the text for people
    template <class Make, class Print>
    void add(const std::string& name, Json facts, Make make, Print print, const DetectorAddress* detector = nullptr) {
        std::ostringstream text;
        std::string failure;
        Json error;
        try {
            make(facts);
        } catch (const std::exception& caught) {
            const auto address = detector == nullptr ? std::nullopt : std::optional<DetectorAddress>(*detector);
            failure = caught.what();
            error = describeFailure(caught);
            error["hint"] = remedyFor(caught, address);
            failures.push_back({{"part", name}, {"text", failure}});
        }
        print(facts, text);
        if (!failure.empty()) text << "error: " << failure << "\n";
        constexpr int jsonIndent = 2;
        const Json whole{{name, facts}, {"error", error}};
        addText(name + ".txt", text.str());
        addText(name + ".json", whole.dump(jsonIndent, ' ', false, Json::error_handler_t::replace) + "\n");
    }

    void addText(const std::string& name, const std::string& content) {
        archive.add(folderInArchive + name, content);
        files.push_back(name);
    }

    Archive archive;
    Json files = Json::array();
    Json failures = Json::array();
};

void collectFromDetector(const Preparation& preparation, Collection& collection) {
    QuorinDetector detector = makeDetector(preparation.detector);
    bool isOpen = false;
    collection.add(
        "detector", Json::object(),
        [&](Json& facts) {
            detector.OpenBoard();
            isOpen = true;
            facts = describeDetector(detector);
        },
        printFacts, &preparation.detector);
    if (isOpen) {
        collection.add(
            "settings", Json::object(),
            [&](Json& facts) {
                for (const Setting& setting : settings()) facts[std::string(setting.name)] = setting.get(detector);
            },
            printSettings);
        collection.add(
            "registers", Json::array(),
            [&](Json& facts) {
                const std::exception_ptr failure = readKnownRegisters(detector, 1, facts);
                if (failure) std::rethrow_exception(failure);
            },
            printRegisters);
    }
    try {
        if (detector.IsConnected()) detector.CloseBoard();
    } catch (const QuorinException& failure) {
        collection.failures.push_back({{"part", "close"}, {"text", failure.what()}});
    }
}

void checkArchiveName(const std::string& output) {
    checkIsFile(output);
    const fs::path path(output);
    const std::string name = path.filename().string();
    const auto endsWith = [&](std::string_view ending) {
        return name.size() > ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
    };
    if (!endsWith(".tar.gz") && !endsWith(".tgz"))
        throw UsageError("--output: " + output + " doesn't end with .tar.gz or .tgz, which the archive is");
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code unseen;
    if (!fs::is_directory(folder, unseen)) throw UsageError("--output: there is no directory " + folder.string());
    if (fs::exists(path, unseen) && !fs::is_regular_file(path, unseen))
        throw UsageError("--output: " + output + " is no regular file");
}

std::string nameOf(const DetectorAddress& address) {
    return address.transport == TransportCL ? "cl:" + std::to_string(address.unit) : "ge:" + address.address;
}

}  // namespace

std::string logPath() {
    const platform::DataFolder folder = platform::localDataFolder();
    if (folder.result < 0)
        throw std::runtime_error("the folder of the log is not known: " + platform::systemErrorText(-folder.result));
    return folder.path + "/Selvo/QRAPI/qrapi_log.txt";
}

void report(const ReportRequest& request, Output& output) {
    checkArchiveName(request.output);
    Collection collection(request.output);
    // First of all: the report's own calls would push out the lines that it is about.
    try {
        collection.addText("log.txt", lastLogLines(request.logLines));
    } catch (const std::exception& failure) {
        collection.failures.push_back({{"part", "log"}, {"text", failure.what()}});
    }
    collection.add(
        "versions", Json::object(), [](Json& facts) { facts = versions(); }, printFacts);
    collectFromDetector(request.preparation, collection);
    collection.add(
        "summary", Json::object(),
        [&](Json& facts) {
            facts["address"] = nameOf(request.preparation.detector);
            facts["failures"] = collection.failures;
        },
        [](const Json& facts, std::ostream& text) {
            text << "address: " << facts.at("address").get<std::string>() << "\n";
            for (const Json& failure : facts.at("failures"))
                text << "not had: " << failure.at("part").get<std::string>() << ": "
                     << failure.at("text").get<std::string>() << "\n";
        });
    collection.archive.commit();
    for (const Json& failure : collection.failures)
        output.text() << "not in it: " << failure.at("part").get<std::string>() << ": "
                      << failure.at("text").get<std::string>() << "\n";
    output.news() << "wrote " << request.output << ", " << collection.files.size() << " files\n";
    output.facts = {{"output", request.output}, {"files", collection.files}, {"failures", collection.failures}};
}

}  // namespace tool
