#include "tools/FrameFiles.h"

#include <filesystem>
#include <iomanip>
#include <sstream>

#include "tools/TiffWriter.h"
#include "tools/commands.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

class Pages : public FrameFiles {
public:
    Pages(const std::string& path, std::uint64_t expectedBytes) : writer(path, expectedBytes) {}

    void write(int /*number*/, const std::uint16_t* pixels, int width, int height,
               const std::string& description) override {
        writer.writePage(pixels, width, height, description);
        hasPages = true;
    }

    void commit() override {
        if (hasPages) writer.commit();  // a TIFF file has at least one page
    }

private:
    TiffWriter writer;
    bool hasPages = false;
};

class NumberedFiles : public FrameFiles {
public:
    explicit NumberedFiles(std::string directoryToFill) : directory(std::move(directoryToFill)) {}

    void write(int number, const std::uint16_t* pixels, int width, int height,
               const std::string& description) override {
        constexpr int digits = 6;  // names sort as the frames came
        std::ostringstream name;
        name << "frame_" << std::setw(digits) << std::setfill('0') << number + 1 << ".tif";
        const std::uint64_t bytes =
            static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * sizeof(std::uint16_t);
        TiffWriter writer((fs::path(directory) / name.str()).string(), bytes);
        writer.writePage(pixels, width, height, description);
        writer.commit();
    }

    void commit() override {}

private:
    std::string directory;
};

}  // namespace

void checkOutputFile(const std::string& output) {
    const fs::path path(output);
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code unseen;
    if (!fs::is_directory(folder, unseen)) throw UsageError("--output: there is no directory " + folder.string());
    if (!path.has_filename() || fs::is_directory(path, unseen))
        throw UsageError("--output: " + output + " is a directory; a file is needed");
    if (fs::exists(path, unseen) && !fs::is_regular_file(path, unseen))
        throw UsageError("--output: " + output + " is no regular file");
}

void checkOutputFileOrDirectory(const std::string& output) {
    std::error_code unseen;
    if (!fs::is_directory(output, unseen)) checkOutputFile(output);
}

std::unique_ptr<FrameFiles> makeFrameFiles(const std::string& output, std::uint64_t expectedBytes) {
    std::error_code unseen;
    if (fs::is_directory(output, unseen)) return std::make_unique<NumberedFiles>(output);
    return std::make_unique<Pages>(output, expectedBytes);
}

}  // namespace tool
