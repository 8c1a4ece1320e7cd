#pragma once

#include <cstdint>

#include "enumerations.h"

/// The description record of a detector. The application fills it in; the library only reads it.
struct DevInfo {
    std::int32_t id0 = 0;          ///< printed by the trace, otherwise unread
    std::int32_t id1 = 0;          ///< printed by the trace, otherwise unread
    DetectorInterface iface{};     ///< the transport
    char param[52] = "";           ///< zero-terminated: on GigE the detector's network address
    std::int32_t unit = 0;         ///< Camera Link: the frame grabber's unit number; not used on GigE
    std::int32_t grabberFlag = 0;  ///< must be 1 for Camera Link and 0 for GigE
};
