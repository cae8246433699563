// The rules of pattern matching told the plain way: one heap node per edge, lists searched from the front. The property tests compare the
// real matcher with it.
#ifndef MATCHING_NAIVEMATCHER_H
#define MATCHING_NAIVEMATCHER_H

#include <algorithm>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class NaiveTree {
public:
    void put(std::string pattern, const char *target, int origin) {
        if (!pattern.empty() && pattern[0] != '/') pattern = "/" + pattern;
        const size_t star = pattern.find('*');
        if (origin == 10) putImplied(pattern, star, target);
        const std::string key = pattern.substr(0, star);
        Node &node = descend(key);
        if (star == std::string::npos) {
            if (!node.exact || origin > node.origin) {
                node.exact = target;
                node.origin = origin;
            }
        } else if (star + 1 == pattern.size()) {
            if (!node.prefix) node.prefix = target;
        } else {
            const std::string suffix = pattern.substr(star + 1);
            const auto has = [&](const auto &entry) { return entry.first == suffix; };
            if (std::none_of(node.suffixes.begin(), node.suffixes.end(), has)) node.suffixes.emplace_back(suffix, target);
        }
    }

    const char *match(std::string path) const {
        if (!path.empty() && path[0] != '/') path = "/" + path;
        const char *prefix = nullptr, *suffix = nullptr;
        size_t offset = 0;
        for (const Node *node = &root_;;) {
            const Node *child = nullptr;
            for (const auto &candidate : node->children) {
                if (!child && offset < path.size() && candidate->name[0] == path[offset]) child = candidate.get();
            }
            if (!child || path.compare(offset, child->name.size(), child->name) != 0) break;
            offset += child->name.size();
            if (child->exact && offset == path.size()) return child->exact;
            const char *longest = child->longestSuffix(path);
            if (longest) {
                suffix = longest;
                prefix = nullptr;
            } else if (child->prefix) {
                prefix = child->prefix;
            }
            node = child;
        }
        return prefix ? prefix : suffix;
    }

private:
    struct Node {
        std::string name;
        const char *exact = nullptr;
        const char *prefix = nullptr;
        int origin = -1;
        std::list<std::unique_ptr<Node>> children;
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

    Node &descend(std::string key) {
        Node *node = &root_;
        while (!key.empty()) {
            auto it = node->children.begin();
            while (it != node->children.end() && (*it)->name[0] != key[0]) ++it;
            if (it == node->children.end()) break;
            size_t shared = 0;
            while (shared < key.size() && shared < (*it)->name.size() && (*it)->name[shared] == key[shared]) ++shared;
            key.erase(0, shared);
            if (shared == (*it)->name.size()) {
                node = it->get();
                continue;
            }
            std::unique_ptr<Node> lower = std::move(*it);
            node->children.erase(it);
            Node *upper = addChild(node, lower->name.substr(0, shared));
            lower->name.erase(0, shared);
            upper->children.push_back(std::move(lower));
            node = upper;
            break;
        }
        return key.empty() ? *node : *addChild(node, key);
    }

    static Node *addChild(Node *node, const std::string &name) {
        node->children.push_back(std::make_unique<Node>());
        node->children.back()->name = name;
        return node->children.back().get();
    }

    Node root_;
};

#endif
