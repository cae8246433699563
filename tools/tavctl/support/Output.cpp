#include "support/Output.h"

#include <unistd.h>

#include <cstdlib>

namespace tavctl {

namespace {

constexpr size_t FIELD_WIDTH = 13;
FILE *resultStream = stdout;

bool wantsColour(FILE *stream) {
    static const char *noColour = getenv("NO_COLOR");
    static const char *terminal = getenv("TERM");
    if ((noColour && *noColour) || (terminal && std::string_view(terminal) == "dumb")) return false;
    return isatty(fileno(stream)) == 1;
}

const char *codeOf(Colour colour) {
    switch (colour) {
        case Colour::Bold:
            return "1";
        case Colour::Dim:
            return "2";
        case Colour::Red:
            return "31";
        case Colour::Green:
            return "32";
        case Colour::Yellow:
            return "33";
        case Colour::Cyan:
            return "36";
        default:
            return "0";
    }
}

} // namespace

void outputInit() {
    const int results = dup(STDOUT_FILENO);
    FILE *stream = results < 0 ? nullptr : fdopen(results, "w");
    if (!stream) return;
    dup2(STDERR_FILENO, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    resultStream = stream;
}

FILE *outStream() { return resultStream; }

bool outputFlush() { return fflush(resultStream) == 0 && !ferror(resultStream); }

void complain(std::string_view text) {
    fflush(resultStream);
    fmt::print(stderr, "{} {}\n", paint(Colour::Red, "tavctl:", stderr), text);
}

std::string paint(Colour colour, std::string_view text, FILE *stream) {
    if (colour == Colour::Plain || !wantsColour(stream ? stream : resultStream)) return std::string(text);
    return fmt::format("\033[{}m{}\033[0m", codeOf(colour), text);
}

void outField(std::string_view name, std::string_view value, Colour colour) {
    out("  {}", paint(Colour::Dim, fmt::format("{:<{}}", name, FIELD_WIDTH)));
    for (bool first = true; first || !value.empty(); first = false) {
        const size_t end = value.find('\n');
        out("{:>{}}{}\n", "", first ? 0 : FIELD_WIDTH + 2, paint(colour, value.substr(0, end)));
        value.remove_prefix(end == std::string_view::npos ? value.size() : end + 1);
    }
}

} // namespace tavctl
