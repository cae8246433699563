// Where the program writes: results to standard output, everything else to standard error.
//
// The library's own texts on standard output (a trace specification that does not parse) are led to standard error, so that what is read by
// programs stays clean.
#ifndef TAVCTL_OUTPUT_H
#define TAVCTL_OUTPUT_H

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace tavctl {

// Call it first. Standard output becomes outStream(), descriptor 1 a copy of standard error.
void outputInit();
FILE *outStream();

template <typename... Args>
void out(fmt::format_string<Args...> format, Args &&...args) {
    fmt::print(outStream(), format, std::forward<Args>(args)...);
}
// FALSE when something could not be written.
bool outputFlush();

// "tavctl: " and the text on standard error.
void complain(std::string_view text);

enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };
// The text in a colour when `stream` is a terminal and NO_COLOR is not set.
std::string paint(Colour colour, std::string_view text, FILE *stream = nullptr); // null: outStream()

// "name      value" lines of one width; each further line of the value is indented like the first.
void outField(std::string_view name, std::string_view value, Colour colour = Colour::Plain);

} // namespace tavctl

#endif
