#include "Document.h"

#include <fmt/format.h>

#include "support/Json.h"

namespace controller {

using tavctl::Json;

namespace {

constexpr size_t MOST_STEPS = 64;             // a poller further behind gets the complete document
constexpr size_t MOST_STEP_OBJECTS = 100'000; // in all of them together

bool hasUnescapedUris(const std::optional<int64_t> &restVersion) { return !restVersion || *restVersion < 0; }

Json load(std::string_view text, size_t flags) { return Json(json_loadb(text.data(), text.size(), flags, nullptr)); }

// Of duplicate keys the last counts, in the library too; they are dropped from the text. No value: it is no JSON.
Json loadOnce(std::string &text) {
    if (Json json = load(text, JSON_REJECT_DUPLICATES)) return json;
    Json json = load(text, 0);
    if (json) text = tavctl::jsonLine(json.get());
    return json;
}

std::optional<int64_t> restVersionOf(const json_t *document) {
    const json_t *value = json_object_get(document, "restVersion");
    return json_is_integer(value) ? std::optional<int64_t>(json_integer_value(value)) : std::nullopt;
}

// The document's text with another version in it.
AnswerPtr wholeAnswer(const EntryIndex &index, int64_t version) {
    const std::string number = std::to_string(version);
    if (index.version()) return makeAnswer(index.text(), index.version()->begin, index.version()->end, number);
    const size_t brace = index.text()->find('{') + 1;
    const bool empty = (*index.text())[index.text()->find_first_not_of(" \t\r\n", brace)] == '}';
    return makeAnswer(index.text(), brace, brace, fmt::format("\"version\":{}{}", number, empty ? "" : ","));
}

} // namespace

// What was read of a text, and what it changes.
struct Document::Read {
    std::string text;
    std::optional<EntryIndex::Piece> piece; // the rest is as it was
    Json document;                          // without a piece
    std::optional<FlatDocument> flat;       // likewise; no value: deltas cannot be told from it
    std::optional<int64_t> restVersion;
    std::optional<Change> change; // no value: unknown
};

bool Document::readPiece(const std::string &text, Read &read) const {
    if (!index_) return false;
    read.piece = index_->pieceOf(text, [&](const EntryIndex::Piece &piece) {
        const Json before = load(piece.before, JSON_REJECT_DUPLICATES), after = load(piece.after, JSON_REJECT_DUPLICATES);
        if (!after) return false;
        const auto flatBefore = flattenEntry(before.get()), flatAfter = flattenEntry(after.get());
        if (flatBefore && flatAfter) read.change = model_.comparePiece(*flatBefore, *flatAfter);
        return true;
    });
    read.restVersion = restVersion_;
    if (!read.change) read.piece.reset();
    return read.change.has_value();
}

bool Document::readWhole(Read &read) const {
    read.document = loadOnce(read.text);
    if (!json_is_object(read.document.get()) || json_is_true(json_object_get(read.document.get(), "delta"))) return false;
    read.flat = flatten(read.document.get());
    read.restVersion = restVersionOf(read.document.get());
    if (!read.flat || !comparable_ || hasUnescapedUris(read.restVersion) != hasUnescapedUris(restVersion_)) return true;
    read.change = model_.compare(*read.flat, hasUnescapedUris(read.restVersion));
    return true;
}

// Is the new text good, and does the library take the delta? FALSE: it is not good.
bool Document::vouch(Read &read, LoadResult &result, int64_t version) {
    const bool tellable = read.change && !read.change->whole;
    if (tellable && !check_.ready()) check_.whole(*index_->text());
    if (tellable) {
        prepared_->delta = deltaText(*read.change, version, read.restVersion);
        result.delta = check_.ready() && check_.takes(prepared_->delta);
    }
    // A delta that only sets and adds shows everything that is new.
    if (result.delta && !read.change->deletes) return true;
    result.complaints = check_.whole(read.text);
    return !anyBlocks(result.complaints);
}

void Document::accept(Read &read, LoadResult &result, int64_t version) {
    if (!result.delta) {
        prepared_->delta.clear();
        prepared_->fresh.emplace();
        prepared_->comparable = read.flat.has_value();
        if (read.flat) prepared_->fresh->reset(*read.flat);
    } else {
        result.objects = read.change->objects.size() + read.change->pairs.size();
        prepared_->change = std::move(*read.change);
    }
    result.bytes = result.delta ? prepared_->delta.size() : read.text.size();
    result.outcome = LoadOutcome::Accepted;
    prepared_->version = result.version = version;
    prepared_->restVersion = read.restVersion;
}

void Document::refuseIncomplete(const Read &read, LoadResult &result) {
    result.complaints = check_.whole(read.text);
    check_.forget();
    if (!anyBlocks(result.complaints))
        result.complaints = {{name_, "document", "the file holds a delta; it must hold a complete document", true}};
    result.outcome = LoadOutcome::Refused;
}

void Document::takeText(Read &read) {
    // What is read again of a piece is told by the text alone: not when a "set" has changed what an "add" says.
    if (read.piece)
        index_->replace(std::move(read.text), *read.piece);
    else
        index_.emplace(std::move(read.text), read.flat && !read.flat->hasSet);
}

LoadResult Document::prepare(std::string text, int64_t version) {
    LoadResult result;
    Read read;
    prepared_.emplace();
    if (index_) index_->adoptVersion(text);
    if (index_ && text == *index_->text()) return result;
    result.piece = readPiece(text, read);
    read.text = std::move(text); // a piece stays where it is in memory
    if (!result.piece && !readWhole(read)) {
        refuseIncomplete(read, result);
        return result;
    }
    const bool same = read.change && read.change->empty() && read.restVersion == restVersion_;
    if (!same && !vouch(read, result, version)) {
        result.outcome = LoadOutcome::Refused;
        return result;
    }
    if (!same) accept(read, result, version);
    takeText(read);
    return result;
}

void Document::publish() {
    const int64_t before = version_;
    version_ = prepared_->version;
    restVersion_ = prepared_->restVersion;
    whole_ = wholeAnswer(*index_, version_);
    nothingNew_.reset();
    deltas_.clear();
    if (prepared_->fresh) {
        model_ = std::move(*prepared_->fresh);
        comparable_ = prepared_->comparable;
        steps_.clear();
    } else {
        model_.apply(prepared_->change);
        if (prepared_->delta.size() < whole_->size()) deltas_[before] = makeAnswer(std::move(prepared_->delta));
        steps_[before] = std::move(prepared_->change);
        dropOldSteps();
    }
    prepared_.reset();
}

void Document::dropOldSteps() {
    size_t objects = 0, kept = 0;
    for (auto step = steps_.rbegin(); step != steps_.rend(); ++step, kept++) {
        objects += step->second.objects.size() + step->second.pairs.size();
        if (objects > MOST_STEP_OBJECTS || kept == MOST_STEPS) break;
    }
    while (steps_.size() > kept) steps_.erase(steps_.begin());
}

AnswerPtr Document::nothingNew() {
    if (!nothingNew_) nothingNew_ = makeAnswer(deltaText({}, version_, restVersion_));
    return nothingNew_;
}

AnswerPtr Document::since(int64_t vid) {
    const auto known = deltas_.find(vid);
    if (known != deltas_.end()) return known->second;
    auto step = steps_.find(vid);
    if (step == steps_.end()) return whole_;
    Change change;
    bool tellable = true;
    for (; tellable && step != steps_.end(); ++step) tellable = change.append(step->second);
    const std::string text = tellable ? deltaText(change, version_, restVersion_) : "";
    AnswerPtr answer = text.empty() || text.size() >= whole_->size() ? whole_ : makeAnswer(text);
    return deltas_[vid] = answer;
}

} // namespace controller
