#pragma once

#include "tools/Hdf5File.h"

namespace tool::hdf5 {

/// A new HDF5 file in an open, empty one. HDF5 is never told that the disk failed, because it can't close such a file
/// without ruin; what it writes after the first failure goes nowhere.
/// @param descriptor  stays the caller's; open for reading and writing for as long as the file is
/// @param diskError   becomes the system's error number at the first failure; look at it after each step
Handle createFileIn(int descriptor, int& diskError);

}  // namespace tool::hdf5
