#pragma once

#include <cstdint>
#include <exception>
#include <memory>

#include "export.h"

/// Error codes of `QuorinException`. No other value is thrown.
enum Derr : std::int32_t {
    DerrWrongTransport = 2,  ///< wrong class for the transport
    DerrBadRequest = 4,      ///< bad argument, unsupported model or setting, wrong state of open or live
    DerrTransport = 5,       ///< not open, a vendor call failed, or a bad answer of the detector
    DerrExposure = 8,        ///< exposure window or time not set
    DerrSerialCommand = 9,   ///< a serial command failed or its effect timed out
    DerrFile = 10,           ///< files and paths
    DerrGrabberSetup = 11,   ///< opening the Camera Link board, tap count, resolution
    DerrResources = 12,      ///< memory and buffer range
    DerrAcquisition = 13,    ///< snap failed, no frame in time
    DerrBinning = 14,        ///< invalid binning
    DerrWrapped = 15,        ///< an exception of another type
    DerrNullPointer = 16,    ///< device information missing
    DerrCallback = 17,       ///< callback change refused during acquisition
};

/// The enumerator's name, such as "DerrTransport"; "unknown" for any other value.
QRAPI_EXPORT const char* DerrName(Derr code) noexcept;

/// The only exception type that leaves the library.
///
/// Immutable; copies share the content, and copying never throws. Any thread may hold, copy and read a copy.
class QRAPI_EXPORT QuorinException : public std::exception {
public:
    /// A null text counts as empty.
    /// @param message           the plain message
    /// @param code              error code
    /// @param line              source line of the throw
    /// @param file              base name of the throwing source file
    /// @param function          qualified name of the throwing function
    /// @param transportError    status of the vendor library, or 0
    /// @param transportMessage  text of the vendor library, or an empty string
    QuorinException(const char* message, Derr code, int line, const char* file, const char* function,
                    int transportError, const char* transportMessage);

    /// Copies `inner` and adds the name of a layer that it passed. `GetFunctionName` keeps the function that threw.
    /// @param inner     the exception that passes
    /// @param function  qualified name of the layer's function
    QuorinException(const QuorinException& inner, const char* function);

    QuorinException(const QuorinException& other) noexcept;             ///< shares the other's content
    QuorinException& operator=(const QuorinException& other) noexcept;  ///< shares the other's content
    ~QuorinException() override;

    /// The plain message, then code, origin and the names of the layers, innermost first.
    const char* what() const noexcept override;

    Derr GetCode() const noexcept;                     ///< error code
    int GetTransportError() const noexcept;            ///< status of the vendor library or the refused value; else 0
    const char* GetTransportMessage() const noexcept;  ///< text of the vendor library; empty if not involved
    int GetLineNumber() const noexcept;                ///< source line of the throw
    const char* GetFileName() const noexcept;          ///< base name of the source file that threw
    /// Qualified name of the function that threw; layers that the exception passed do not change it.
    const char* GetFunctionName() const noexcept;

private:
    struct Content;
    std::shared_ptr<const Content> content;
};
