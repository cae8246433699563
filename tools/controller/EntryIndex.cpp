#include "EntryIndex.h"

#include <algorithm>
#include <cstring>

namespace controller {

namespace {

constexpr size_t LARGEST_SHARE = 4; // a piece longer than this part of the document is no gain
constexpr size_t SMALL_TEXT = 4096; // unless the document is small

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isNumber(char c) { return (c >= '0' && c <= '9') || c == '-'; }

size_t commonPrefix(std::string_view a, std::string_view b) {
    constexpr size_t BLOCK = 4096;
    const size_t most = std::min(a.size(), b.size());
    size_t at = 0;
    while (at + BLOCK <= most && std::memcmp(a.data() + at, b.data() + at, BLOCK) == 0) at += BLOCK;
    while (at < most && a[at] == b[at]) at++;
    return at;
}

size_t commonSuffix(std::string_view a, std::string_view b, size_t most) {
    constexpr size_t BLOCK = 4096;
    size_t length = 0;
    while (length + BLOCK <= most && std::memcmp(a.data() + a.size() - length - BLOCK, b.data() + b.size() - length - BLOCK, BLOCK) == 0)
        length += BLOCK;
    while (length < most && a[a.size() - length - 1] == b[b.size() - length - 1]) length++;
    return length;
}

} // namespace

// Walks a well-formed text and notes the entries.
class EntryScan {
public:
    EntryScan(std::string_view text, size_t offset, uint32_t depth, std::vector<EntryIndex::Entry> &entries)
        : text_(text), offset_(offset), depth_(depth), entries_(entries) {}

    void document(std::optional<TextRange> &version) {
        members([&](std::string_view key) {
            if (key == "add")
                operation();
            else if (key == "version")
                version = place();
            else
                skip();
        });
    }
    // A value that is an entry, or an array of them.
    void objects() {
        if (peek() == '{') return entry();
        if (peek() != '[') return skip();
        at_++;
        for (; peek() != ']'; comma()) objects();
        at_++;
    }

private:
    char peek() {
        while (isBlank(text_[at_])) at_++;
        return text_[at_];
    }
    void comma() {
        if (peek() == ',') at_++;
    }
    std::string_view string() {
        const size_t start = ++at_;
        while (text_[at_] != '"') at_ += text_[at_] == '\\' ? 2 : 1;
        return text_.substr(start, at_++ - start);
    }
    // Every value must be consumed by fn(key).
    template <typename Fn>
    void members(Fn fn) {
        if (peek() != '{') return skip();
        at_++;
        for (; peek() != '}'; comma()) {
            const std::string_view key = string();
            peek();
            at_++; // the colon
            peek();
            fn(key);
        }
        at_++;
    }
    void operation() {
        members([this](std::string_view key) {
            if (key == "objects")
                objects();
            else
                skip();
        });
    }
    void entry() {
        const size_t index = entries_.size();
        entries_.push_back({static_cast<uint32_t>(offset_ + at_), 0, depth_++});
        operation();
        entries_[index].end = static_cast<uint32_t>(offset_ + at_);
        depth_--;
    }
    TextRange place() {
        const size_t start = at_;
        skip();
        return {start, at_};
    }
    void skip() {
        int open = 0;
        do {
            const char c = peek();
            if (c == '"')
                string();
            else if (c == '{' || c == '[')
                open++, at_++;
            else if (c == '}' || c == ']')
                open--, at_++;
            else if (c == ',' || c == ':')
                at_++;
            else
                while (at_ < text_.size() && !std::strchr(",:]} \t\r\n", text_[at_])) at_++;
        } while (open > 0);
    }

    std::string_view text_;
    size_t offset_;
    uint32_t depth_;
    std::vector<EntryIndex::Entry> &entries_;
    size_t at_ = 0;
};

EntryIndex::EntryIndex(std::string text, bool pieces) : text_(std::make_shared<const std::string>(std::move(text))) {
    EntryScan(*text_, 0, 0, entries_).document(version_);
    if (!pieces) entries_.clear();
}

void EntryIndex::adoptVersion(std::string &text) const {
    if (!version_) return;
    const std::string_view old = *text_, number = old.substr(version_->begin, version_->end - version_->begin);
    const auto put = [&](size_t begin, size_t end) {
        if (end > begin && std::string_view(text).substr(begin, end - begin) != number) text.replace(begin, end - begin, number);
    };
    if (text.compare(0, version_->begin, old, 0, version_->begin) == 0) {
        size_t end = version_->begin;
        while (end < text.size() && isNumber(text[end])) end++;
        return put(version_->begin, end);
    }
    const size_t behind = old.size() - version_->end;
    if (text.size() < behind || text.compare(text.size() - behind, behind, old, version_->end, behind) != 0) return;
    const size_t end = text.size() - behind;
    size_t begin = end;
    while (begin > 0 && isNumber(text[begin - 1])) begin--;
    put(begin, end);
}

std::optional<EntryIndex::Piece> EntryIndex::pieceOf(const std::string &text, const std::function<bool(const Piece &)> &take) const {
    const std::string_view old = *text_, fresh = text;
    const size_t begin = commonPrefix(old, fresh);
    const size_t suffix = commonSuffix(old, fresh, std::min(old.size(), fresh.size()) - begin);
    const size_t end = old.size() - suffix; // of the difference, in the old text
    const size_t largest = std::max(SMALL_TEXT, old.size() / LARGEST_SHARE);
    const auto behind =
        std::lower_bound(entries_.begin(), entries_.end(), begin, [](const Entry &entry, size_t at) { return entry.begin < at; });
    uint32_t depth = UINT32_MAX;
    for (auto entry = std::make_reverse_iterator(behind); entry != entries_.rend() && depth > 0; ++entry) {
        if (entry->depth >= depth || entry->end < end + 1 || entry->end <= begin) continue;
        depth = entry->depth;
        const size_t length = entry->end - entry->begin, newLength = length + fresh.size() - old.size();
        if (std::max(length, newLength) > largest) return std::nullopt;
        const Piece piece = {static_cast<size_t>(&*entry - entries_.data()), old.substr(entry->begin, length),
                             fresh.substr(entry->begin, newLength)};
        if (take(piece)) return piece;
    }
    return std::nullopt;
}

void EntryIndex::replace(std::string text, const Piece &piece) {
    const Entry whole = entries_[piece.entry];
    const auto growth = static_cast<uint32_t>(piece.after.size() - piece.before.size()); // modulo 2^32, as the sums are
    std::vector<Entry> inside;
    EntryScan(piece.after, whole.begin, whole.depth, inside).objects();
    const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(piece.entry);
    const auto last = std::find_if(first, entries_.end(), [&](const Entry &entry) { return entry.begin >= whole.end; });
    for (Entry &entry : entries_) {
        if (entry.begin >= whole.end) entry.begin += growth;
        if (entry.end > whole.end || (entry.end == whole.end && entry.begin <= whole.begin)) entry.end += growth;
    }
    // The entries below are replaced one for one where they can be; a rebuilt vector for each edit would cost more than the edit.
    const auto common = std::min(last - first, static_cast<std::ptrdiff_t>(inside.size()));
    std::copy(inside.begin(), inside.begin() + common, first);
    if (common < last - first)
        entries_.erase(first + common, last);
    else
        entries_.insert(first + common, inside.begin() + common, inside.end());
    if (version_ && version_->begin >= whole.end) {
        version_->begin += piece.after.size() - piece.before.size();
        version_->end += piece.after.size() - piece.before.size();
    }
    text_ = std::make_shared<const std::string>(std::move(text));
}

} // namespace controller
