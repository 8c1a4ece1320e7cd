#pragma once

#include <memory>

class PleoraLib;
class xclib;

/// Makes the real eBUS seam, held by its own type: the interface has no virtual destructor. Calls no vendor library.
std::shared_ptr<PleoraLib> makePleoraLib();

/// Makes the real XCLIB seam. Calls no vendor library.
std::shared_ptr<xclib> makeXclib();
