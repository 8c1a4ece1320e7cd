#pragma once

#include "tools/Hdf5File.h"

namespace tool::hdf5 {

/// The system's error number of the first write that failed; 0 if none did.
struct DiskErrors {
    int data = 0;       ///< of an array. The file stays sound if the array is cut to what was written before
    int structure = 0;  ///< of HDF5's own records: the file is lost
};

/// A new HDF5 file in an open, empty one. HDF5 never learns that the disk failed, because it can't close such a file
/// without ruin.
/// @param descriptor  stays the caller's; open for reading and writing for as long as the file is
/// @param errors      look at them after each step
Handle createFileIn(int descriptor, DiskErrors& errors);

}  // namespace tool::hdf5
