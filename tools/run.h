#pragma once

#include <iosfwd>

/// The command-line tool `qrapi`.
namespace tool {

inline constexpr int exitSuccess = 0;
inline constexpr int exitFailedCall = 1;  ///< the detector, the library or a file failed
inline constexpr int exitBadCommandLine = 2;
inline constexpr int exitFramesLost = 3;     ///< of a live run; the others are written
inline constexpr int exitInterrupted = 130;  ///< ended by SIGINT, SIGTERM or SIGHUP; what came before is kept

/// Runs one command line and answers with the exit status. Results go to `out`; failures, and which detector was taken
/// when none was named, to `err`. Lets no exception out.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace tool
