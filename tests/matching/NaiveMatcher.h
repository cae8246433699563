// The rules of pattern matching told the plain way: every key in one map, its prefixes looked up one after the other. The property tests
// compare the real matcher with it.
#ifndef MATCHING_NAIVEMATCHER_H
#define MATCHING_NAIVEMATCHER_H

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

class NaiveTree {
public:
    void put(std::string pattern, const char *target, int origin) {
        if (!pattern.empty() && pattern[0] != '/') pattern = "/" + pattern;
        const size_t star = pattern.find('*');
        if (origin == 10) putImplied(pattern, star, target);
        Key &key = keys_[pattern.substr(0, star)];
        if (star == std::string::npos) {
            if (!key.exact || origin > key.origin) {
                key.exact = target;
                key.origin = origin;
            }
        } else if (star + 1 == pattern.size()) {
            if (!key.prefix) key.prefix = target;
        } else {
            const std::string suffix = pattern.substr(star + 1);
            const auto has = [&](const auto &entry) { return entry.first == suffix; };
            if (std::none_of(key.suffixes.begin(), key.suffixes.end(), has)) key.suffixes.emplace_back(suffix, target);
        }
    }

    // The longest key that the path begins with decides; in it a suffix comes before the prefix.
    const char *match(std::string path) const {
        if (!path.empty() && path[0] != '/') path = "/" + path;
        const char *best = nullptr;
        for (size_t length = 1; length <= path.size(); length++) {
            const auto found = keys_.find(path.substr(0, length));
            if (found == keys_.end()) continue;
            const Key &key = found->second;
            if (key.exact && length == path.size()) return key.exact;
            if (const char *suffix = key.longestSuffix(path))
                best = suffix;
            else if (key.prefix)
                best = key.prefix;
        }
        return best;
    }

private:
    struct Key {
        const char *exact = nullptr;
        const char *prefix = nullptr;
        int origin = -1;
        std::vector<std::pair<std::string, const char *>> suffixes;

        const char *longestSuffix(const std::string &path) const {
            size_t length = 0;
            const char *best = nullptr;
            for (const auto &[text, target] : suffixes) {
                if (text.size() > length && path.ends_with(text)) {
                    length = text.size();
                    best = target;
                }
            }
            return best;
        }
    };

    void putImplied(const std::string &pattern, size_t star, const char *target) {
        const int implied = star == std::string::npos ? 5 : 0;
        if (pattern.ends_with("/*")) {
            put(pattern.substr(0, pattern.size() - 1), target, implied);
            if (pattern.size() > 2) put(pattern.substr(0, pattern.size() - 2), target, implied);
        } else if (pattern.size() > 1 && pattern.ends_with("/")) {
            put(pattern.substr(0, pattern.size() - 1), target, implied);
        } else if (pattern.find('.', star == std::string::npos ? 0 : star) == std::string::npos) {
            put(pattern + "/", target, implied);
        }
    }

    std::map<std::string, Key> keys_;
};

#endif
