#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/FrameFiles.h"
#include "tools/Hdf5Driver.h"
#include "tools/PartialFile.h"

namespace tool {

/// An HDF5 file in the layout of NeXus: docs/files.md draws it.
class Hdf5Writer : public FrameFiles {
public:
    /// @param compression  1 to 9 of gzip, or 0 for none
    Hdf5Writer(const std::string& path, RunFacts facts, int compression);
    ~Hdf5Writer() override;

    void write(const Frame& frame) override;
    void dropFailed() override;
    void commit() override;

private:
    struct Layout;  ///< the open file

    /// Runs one step with HDF5; a failure of it or of the disk names the file.
    void run(const std::function<void()>& step);
    void open(int compression);
    void reserveRecords() const;
    void describeDetector();
    void describeFrames();

    const RunFacts facts;
    PartialFile target;
    hdf5::DiskErrors diskErrors;
    std::unique_ptr<Layout> layout;
    std::vector<int> numbers;
    std::vector<int> fieldCounts;
    std::vector<double> timeStamps;
    std::string endTime;
};

}  // namespace tool
