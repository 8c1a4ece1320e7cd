#pragma once

/// Marks what the shared libraries of this family show to others; everything else is hidden.
#if defined(_WIN32)
#define QRAPI_EXPORT __declspec(dllexport)
#else
#define QRAPI_EXPORT __attribute__((visibility("default")))
#endif
