#include "support/Json.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/Fault.h"

namespace tavctl {

namespace {

constexpr size_t MAX_FILE = size_t{1} << 30; // bytes; what the library takes at most

struct FileCloser {
    void operator()(FILE *file) const noexcept {
        if (file != stdin) fclose(file);
    }
};

std::string dump(const json_t *json, size_t flags) {
    char *text = json_dumps(json, flags | JSON_ENCODE_ANY);
    std::string result = text ? text : "null";
    free(text);
    return result;
}

} // namespace

std::string readFile(const std::string &path) {
    std::unique_ptr<FILE, FileCloser> file(path == "-" ? stdin : fopen(path.c_str(), "rb"));
    if (!file) throw Fault(path, 0, strerror(errno));
    std::string text;
    char buffer[65536];
    while (size_t count = fread(buffer, 1, sizeof buffer, file.get())) {
        text.append(buffer, count);
        if (text.size() > MAX_FILE) throw Fault(path, 0, "larger than 1 GiB");
    }
    if (ferror(file.get())) throw Fault(path, 0, strerror(errno));
    return text;
}

Json parseJson(std::string_view text, const std::string &source, int firstLine) {
    json_error_t error;
    Json json(json_loadb(text.data(), text.size(), 0, &error));
    if (!json) throw Fault(source, firstLine - 1 + (error.line > 0 ? error.line : 1), error.text);
    return json;
}

void forEachJsonLine(std::string_view text, const std::string &source, const std::function<void(int, json_t *)> &fn) {
    for (int number = 1; !text.empty(); number++) {
        const size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line.find_first_not_of(" \t\r") == std::string_view::npos || line[0] == '#') continue;
        Json json = parseJson(line, source, number);
        if (!json_is_object(json.get())) throw Fault(source, number, "the line is not a JSON object");
        fn(number, json.get());
    }
}

std::string jsonLine(const json_t *json) { return dump(json, JSON_COMPACT); }
std::string jsonPretty(const json_t *json) { return dump(json, JSON_INDENT(3)); }

} // namespace tavctl
