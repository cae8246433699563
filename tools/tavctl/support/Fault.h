// What ends a command: it is reported on standard error, and the program ends with EXIT_UNREADABLE or EXIT_INTERNAL.
#ifndef TAVCTL_FAULT_H
#define TAVCTL_FAULT_H

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace tavctl {

// Exit statuses; docs and man page list them.
inline constexpr int EXIT_GOOD = 0;
inline constexpr int EXIT_FINDINGS = 1;   // a finding, a miss, a rule that does not parse
inline constexpr int EXIT_UNREADABLE = 2; // a file or a line that is not understood, a wrong command line
inline constexpr int EXIT_INTERNAL = 3;   // the library could not be started

// Input that cannot be used.
class Fault : public std::runtime_error {
public:
    explicit Fault(const std::string &text) : std::runtime_error(text) {}
    // "file:line: text"; a line below 1 is left out.
    Fault(const std::string &file, int line, const std::string &text)
        : std::runtime_error(line > 0 ? fmt::format("{}:{}: {}", file, line, text) : fmt::format("{}: {}", file, text)) {}
};

// Whatever the input is, the library does not work.
class InternalFault : public Fault {
    using Fault::Fault;
};

} // namespace tavctl

#endif
