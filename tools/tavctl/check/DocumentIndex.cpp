#include "check/DocumentIndex.h"

#include <cstring>

#include "support/Json.h"

namespace tavctl {

namespace {

using Visit = std::function<void(const ObjectEntry &)>;

void walkObjects(const json_t *json, const std::string &operation, const std::string &pointer, const Visit &fn) {
    for (size_t i = 0; i < json_array_size(json); i++)
        walkObjects(json_array_get(json, i), operation, pointer + "/" + std::to_string(i), fn);
    if (!json_is_object(json)) return;
    const json_t *props = json_object_get(json, "props");
    const ObjectEntry entry{operation, memberText(json, "type"), memberText(json, "name"), pointer,
                            json_is_object(props) ? props : nullptr};
    if (!entry.type.empty() && !entry.name.empty()) fn(entry);
    walkObjects(json_object_get(json, "objects"), operation, pointer + "/objects", fn);
}

// ---- lines ----

// Walks a well-formed JSON text and notes the lines of the wanted values.
class LineFinder {
public:
    LineFinder(std::string_view text, const std::set<std::string> &wanted) : text_(text), wanted_(wanted) {}
    std::map<std::string, int> run() {
        value();
        return std::move(lines_);
    }

private:
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    void blanks() {
        for (; at_ < text_.size() && strchr(" \t\r\n", text_[at_]); at_++) line_ += text_[at_] == '\n';
    }
    std::string_view string() {
        const size_t start = at_++;
        while (at_ < text_.size() && text_[at_] != '"') at_ += text_[at_] == '\\' ? 2 : 1;
        at_++;
        return text_.substr(start, at_ - start);
    }
    std::string key() {
        const std::string_view quoted = string();
        if (quoted.find('\\') == std::string_view::npos) return std::string(quoted.substr(1, quoted.size() - 2));
        const Json decoded(json_loadb(quoted.data(), quoted.size(), JSON_DECODE_ANY, nullptr));
        return decoded ? json_string_value(decoded.get()) : std::string(quoted);
    }
    void child(std::string_view token) {
        const size_t length = pointer_.size();
        appendToken(pointer_, token);
        value();
        pointer_.resize(length);
    }
    void members(char end, bool named) {
        at_++;
        for (size_t index = 0; blanks(), at_ < text_.size() && peek() != end; index++) {
            const std::string token = named ? key() : std::to_string(index);
            if (named) {
                blanks();
                at_++; // the colon
            }
            child(token);
            blanks();
            if (peek() == ',') at_++;
        }
        at_++;
    }
    void value() {
        blanks();
        if (wanted_.count(pointer_)) lines_[pointer_] = line_;
        if (peek() == '{') return members('}', true);
        if (peek() == '[') return members(']', false);
        if (peek() == '"') {
            string();
            return;
        }
        while (at_ < text_.size() && !strchr(",]} \t\r\n", text_[at_])) at_++;
    }

    std::string_view text_;
    const std::set<std::string> &wanted_;
    std::map<std::string, int> lines_;
    std::string pointer_;
    size_t at_ = 0;
    int line_ = 1;
};

} // namespace

void appendToken(std::string &pointer, std::string_view token) {
    pointer += '/';
    for (const char c : token) {
        if (c == '~')
            pointer += "~0";
        else if (c == '/')
            pointer += "~1";
        else
            pointer += c;
    }
}

bool isRoutingRule(const ObjectEntry &entry) { return entry.type == "rule" && entry.name.find("/ruleSet/") == std::string::npos; }

void forEachObject(const json_t *document, const Visit &fn) {
    for (const char *operation : {"del", "add", "set"}) {
        const json_t *objects = json_object_get(json_object_get(document, operation), "objects");
        walkObjects(objects, operation, std::string("/") + operation + "/objects", fn);
    }
}

std::vector<std::pair<std::string, std::string>> relationshipPairs(const json_t *document, const std::string &kind) {
    std::vector<std::pair<std::string, std::string>> pairs;
    const size_t colon = kind.find(':');
    const json_t *relationships = json_object_get(json_object_get(document, "add"), "relationships");
    const json_t *entries = json_object_get(relationships, kind.c_str());
    for (size_t i = 0; i < json_array_size(entries); i++) {
        const json_t *entry = json_array_get(entries, i);
        pairs.emplace_back(memberText(entry, kind.substr(0, colon).c_str()), memberText(entry, kind.substr(colon + 1).c_str()));
    }
    return pairs;
}

std::map<std::string, int> linesOf(std::string_view text, const std::set<std::string> &pointers) {
    return LineFinder(text, pointers).run();
}

} // namespace tavctl
