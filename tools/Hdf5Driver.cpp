#include "tools/Hdf5Driver.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>

namespace tool::hdf5 {
namespace {

/// What a driver is told of the file that it is for.
struct Target {
    int descriptor;
    DiskErrors* errors;
};

/// The driver's file. HDF5 knows its first member alone.
struct DriverFile {
    H5FD_t known{};
    Target target{};
    haddr_t allocatedEnd = 0;
    haddr_t end = 0;
};

DriverFile& of(H5FD_t* file) {
    return *reinterpret_cast<DriverFile*>(file);
}

const DriverFile& of(const H5FD_t* file) {
    return *reinterpret_cast<const DriverFile*>(file);
}

H5FD_t* openFile(const char* /*name*/, unsigned /*flags*/, hid_t properties, haddr_t /*greatest*/) {
    const auto* const target = static_cast<const Target*>(H5Pget_driver_info(properties));
    if (target == nullptr) return nullptr;
    auto file = std::make_unique<DriverFile>();
    file->target = *target;
    return &file.release()->known;
}

herr_t closeFile(H5FD_t* file) {
    const std::unique_ptr<DriverFile> owned(&of(file));
    return 0;
}

herr_t query(const H5FD_t* /*file*/, unsigned long* features) {
    *features = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_DATA_SIEVE |
                H5FD_FEAT_AGGREGATE_SMALLDATA;
    return 0;
}

haddr_t allocatedEnd(const H5FD_t* file, H5FD_mem_t /*kind*/) {
    return of(file).allocatedEnd;
}

herr_t setAllocatedEnd(H5FD_t* file, H5FD_mem_t /*kind*/, haddr_t address) {
    of(file).allocatedEnd = address;
    return 0;
}

haddr_t endOf(const H5FD_t* file, H5FD_mem_t /*kind*/) {
    return of(file).end;
}

/// What lies behind the end, or was never written, is zero.
herr_t read(H5FD_t* file, H5FD_mem_t /*kind*/, hid_t /*properties*/, haddr_t address, std::size_t size, void* buffer) {
    auto* next = static_cast<char*>(buffer);
    std::memset(next, 0, size);
    while (size > 0) {
        const ssize_t count = pread(of(file).target.descriptor, next, size, static_cast<off_t>(address));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        next += count;
        address += static_cast<haddr_t>(count);
        size -= static_cast<std::size_t>(count);
    }
    return 0;
}

/// The system's error number, or 0.
int writeAll(int descriptor, haddr_t address, std::size_t size, const char* next) {
    while (size > 0) {
        const ssize_t count = pwrite(descriptor, next, size, static_cast<off_t>(address));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        next += count;
        address += static_cast<haddr_t>(count);
        size -= static_cast<std::size_t>(count);
    }
    return 0;
}

herr_t write(H5FD_t* file, H5FD_mem_t kind, hid_t /*properties*/, haddr_t address, std::size_t size,
             const void* buffer) {
    DriverFile& written = of(file);
    DiskErrors& errors = *written.target.errors;
    const int descriptor = written.target.descriptor;
    written.end = std::max(written.end, address + size);
    const bool isData = kind == H5FD_MEM_DRAW;
    const off_t sizeBefore = lseek(descriptor, 0, SEEK_END);
    const int error = writeAll(descriptor, address, size, static_cast<const char*>(buffer));
    if (error == 0) return 0;
    int& first = isData ? errors.data : errors.structure;
    if (first == 0) first = error;
    // Half an array is worth nothing; its space may be what HDF5's records need.
    if (isData && sizeBefore >= 0 && ftruncate(descriptor, sizeBefore) != 0 && errors.structure == 0)
        errors.structure = errno;
    return 0;
}

herr_t truncate(H5FD_t* file, hid_t /*properties*/, hbool_t /*closing*/) {
    DriverFile& cut = of(file);
    if (cut.end == cut.allocatedEnd) return 0;
    DiskErrors& errors = *cut.target.errors;
    if (ftruncate(cut.target.descriptor, static_cast<off_t>(cut.allocatedEnd)) != 0 && errors.structure == 0)
        errors.structure = errno;
    cut.end = cut.allocatedEnd;
    return 0;
}

H5FD_class_t driver() {
    H5FD_class_t functions{};
    functions.name = "keeps its failures";
    functions.maxaddr = static_cast<haddr_t>(std::numeric_limits<off_t>::max());
    functions.fc_degree = H5F_CLOSE_WEAK;
    functions.fapl_size = sizeof(Target);
    functions.open = openFile;
    functions.close = closeFile;
    functions.query = query;
    functions.get_eoa = allocatedEnd;
    functions.set_eoa = setAllocatedEnd;
    functions.get_eof = endOf;
    functions.read = read;
    functions.write = write;
    functions.truncate = truncate;
    return functions;  // its map of kinds to free lists stays 0, the default: one for all
}

}  // namespace

Handle createFileIn(int descriptor, DiskErrors& errors) {
    static const H5FD_class_t functions = driver();
    const std::string what = "the file";
    const Handle registered(H5FDregister(&functions), H5FDunregister, what);
    const Handle properties(H5Pcreate(H5P_FILE_ACCESS), H5Pclose, what);
    const Target target{descriptor, &errors};
    check(H5Pset_driver(properties.get(), registered.get(), &target), what);
    return {H5Fcreate("frames", H5F_ACC_TRUNC, H5P_DEFAULT, properties.get()), H5Fclose, what};
}

}  // namespace tool::hdf5
