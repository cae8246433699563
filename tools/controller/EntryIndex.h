// A document's text with the places of its object entries, so that a small edit is read again in its innermost entry and nowhere else.
//
// An entry's text is one JSON value. If the old text is well-formed and another text of one JSON value takes that value's place, the new
// text is well-formed, whatever stands around it. So an edit is confined by comparing bytes from both ends and then trying the entries
// around the difference, innermost first, until what stands in the entry's place is one value again.
#ifndef CONTROLLER_ENTRYINDEX_H
#define CONTROLLER_ENTRYINDEX_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace controller {

struct TextRange {
    size_t begin = 0, end = 0;
};

class EntryIndex {
public:
    // Indexes a well-formed document of at most 1 GiB without duplicate keys. Without `pieces` it has no entries, and no edit is confined.
    explicit EntryIndex(std::string text, bool pieces = true);

    const std::shared_ptr<const std::string> &text() const { return text_; }
    // Where the value of the top-level "version" stands; no value: there is none.
    std::optional<TextRange> version() const { return version_; }
    size_t entryCount() const { return entries_.size(); }

    // Writes this text's version number over that of `text`, if both differ in nothing before or nothing behind it: a new number alone is
    // no edit. Pollers never see either.
    void adoptVersion(std::string &text) const;

    struct Piece {
        size_t entry;                   // which
        std::string_view before, after; // its text here and in the new one
    };
    // Calls take(piece) for the entries that hold every difference to `text`, innermost first, until it returns TRUE. No value: none did.
    std::optional<Piece> pieceOf(const std::string &text, const std::function<bool(const Piece &)> &take) const;
    // `text`, which differs in that piece only, takes this one's place.
    void replace(std::string text, const Piece &piece);

private:
    struct Entry {
        uint32_t begin, end;
        uint32_t depth; // entries around it
    };
    friend class EntryScan;

    std::shared_ptr<const std::string> text_;
    std::vector<Entry> entries_; // by begin
    std::optional<TextRange> version_;
};

} // namespace controller

#endif
