#pragma once

#include <atomic>
#include <string>

namespace tool {

/// Lists the name of a file that must not stay behind if a signal ends the program. Any thread.
class UnfinishedName {
public:
    /// A name of more than 4095 bytes, or one too many for the list, is not listed.
    explicit UnfinishedName(const std::string& path);
    ~UnfinishedName();
    UnfinishedName(const UnfinishedName&) = delete;
    UnfinishedName& operator=(const UnfinishedName&) = delete;

private:
    struct Slot;
    friend void removeUnfinishedFiles() noexcept;
    static Slot* takeSlot();

    Slot* slot = nullptr;
};

/// Removes the listed files. Async-signal-safe; meant for the last moment of the program.
void removeUnfinishedFiles() noexcept;

}  // namespace tool
