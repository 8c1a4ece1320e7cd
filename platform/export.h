#pragma once

/// Marks the exported names of the shared libraries; all others are hidden.
#if defined(_WIN32)
#define QRAPI_EXPORT __declspec(dllexport)
#else
#define QRAPI_EXPORT __attribute__((visibility("default")))
#endif
