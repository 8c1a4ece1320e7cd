#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/FrameFiles.h"
#include "tools/PartialFile.h"

namespace tool {

/// 16-bit little-endian frames one behind the other, and beside them a JSON file that tells all else.
class RawWriter : public FrameFiles {
public:
    RawWriter(const std::string& path, RunFacts facts);

    void write(const Frame& frame) override;
    void dropFailed() override;
    void commit() override;
    std::string note() const override { return "described in " + sidePath; }

private:
    std::string description() const;
    void reserveDescription();

    const RunFacts facts;
    const std::string dataName;
    const std::string sidePath;
    PartialFile data;
    PartialFile side;
    std::vector<int> numbers;
    std::vector<int> fieldCounts;
    std::vector<double> timeStamps;
    std::string endTime;
    std::uint64_t reservedBytes = 0;  ///< of the JSON file
};

}  // namespace tool
