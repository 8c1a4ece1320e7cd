#pragma once

#include <csignal>

namespace tool {

/// While it exists, the first SIGINT only asks for an end; a second one ends the program as ever. What was to happen
/// before is put back at the end, and a SIGINT that was ignored stays so. One at a time.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    bool isRequested() const;

private:
    struct sigaction previous {};
};

}  // namespace tool
