#pragma once

#include <array>
#include <csignal>
#include <functional>
#include <iosfwd>
#include <string>
#include <thread>

namespace tool {

/// While it exists, the first SIGINT, SIGTERM or SIGHUP only requests an end. A further SIGINT or SIGTERM ends the
/// program by that signal and removes the files that `UnfinishedName` lists, unless it comes within half a second of
/// the first: shells and `timeout` send the same request twice. A signal that was ignored before stays ignored. The
/// destructor restores the previous handlers. One at a time.
class Interrupt {
public:
    Interrupt();
    /// Also writes a line to `err` as soon as the first signal arrives, even while the thread that made the object is
    /// blocked. Ignores SIGPIPE for as long as it exists, because Ctrl-C also ends the reader of a piped output.
    /// @param err     no other thread may write to it meanwhile, unless it is `std::cerr`
    /// @param notice  returns the line, without a line feed. Called once at most, on another thread
    Interrupt(std::ostream& err, std::function<std::string()> notice);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    bool isRequested() const;

private:
    static constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

    void install();

    std::array<struct sigaction, signals.size()> previous{};
    struct sigaction previousPipe {};
    std::thread announcer;
};

}  // namespace tool
