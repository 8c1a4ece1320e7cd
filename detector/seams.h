#pragma once

#include <memory>

class PleoraLib;
class xclib;

/// Makes the real vendor seam, held by the implementation type: its interface has no virtual destructor. Touches no
/// vendor library yet.
std::shared_ptr<PleoraLib> makePleoraLib();

/// Makes the frame grabber's real seam. Touches no vendor library yet.
std::shared_ptr<xclib> makeXclib();
