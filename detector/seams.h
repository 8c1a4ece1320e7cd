#pragma once

#include <memory>

class PleoraLib;

/// Makes the real vendor seam, held by the implementation type: its interface has no virtual destructor. Touches no
/// vendor library yet.
std::shared_ptr<PleoraLib> makePleoraLib();
