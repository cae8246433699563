// One file of the directory as pollers see it: versions, the deltas between them, and what has to hold before a new one is served.
//
// The loader's thread prepares a new version beside the one that is served: it reads the difference to the last text, tells a change from
// it, has the library take the delta, and checks the file where the delta alone cannot vouch for it. publish() then puts it in place. What
// pollers ask needs the state lock and reads only what publish() wrote.
#ifndef CONTROLLER_DOCUMENT_H
#define CONTROLLER_DOCUMENT_H

#include <deque>
#include <map>
#include <optional>

#include "Answer.h"
#include "DocumentCheck.h"
#include "EntryIndex.h"
#include "Model.h"

namespace controller {

enum class LoadOutcome { Unchanged, Accepted, Refused };
struct LoadResult {
    LoadOutcome outcome = LoadOutcome::Unchanged;
    std::vector<Complaint> complaints;
    int64_t version = -1; // Accepted
    bool delta = false;   // pollers of the last version get a delta
    bool piece = false;   // only a piece of the file was read again
    size_t objects = 0;   // in the change
    size_t bytes = 0;     // of what those pollers get
};

// A version that is ready to be published.
struct PreparedVersion {
    Change change;
    std::optional<Model> fresh; // takes the model's place
    bool comparable = false;
    std::string delta;
    int64_t version = 0;
    std::optional<int64_t> restVersion;
};

class Document {
public:
    Document(std::string name, const std::string &path, bool strict) : name_(std::move(name)), check_(path, strict) {}
    const std::string &name() const { return name_; }

    // ---- the loader's thread, without the state lock ----
    // Makes `text` the next version. Accepted: publish() it.
    LoadResult prepare(std::string text, int64_t version);

    // ---- with the state lock held ----
    void publish();
    bool isGood() const { return whole_ != nullptr; } // there is a version to serve
    int64_t version() const { return version_; }
    size_t objectCount() const { return model_.objectCount(); }
    AnswerPtr whole() const { return whole_; }
    AnswerPtr nothingNew(); // an empty delta of the current version
    // For a poller that has version `vid`, which is not the current one.
    AnswerPtr since(int64_t vid);
    bool knows(int64_t vid) const { return vid == version_ || steps_.count(vid) > 0; }

private:
    struct Read; // a text that was read

    bool readPiece(const std::string &text, Read &read) const;
    bool readWhole(Read &read) const;
    bool vouch(Read &read, LoadResult &result, int64_t version);
    void accept(Read &read, LoadResult &result, int64_t version);
    void refuseIncomplete(const Read &read, LoadResult &result);
    void takeText(Read &read);
    void dropOldSteps();

    const std::string name_;
    DocumentCheck check_;             // loader
    std::optional<EntryIndex> index_; // loader
    std::optional<PreparedVersion> prepared_;
    Model model_;             // written by publish() only
    bool comparable_ = false; // the model holds the version that is served; publish() too
    int64_t version_ = -1;
    std::optional<int64_t> restVersion_;
    AnswerPtr whole_, nothingNew_;
    std::map<int64_t, Change> steps_;     // by the version that each leads on from
    std::map<int64_t, AnswerPtr> deltas_; // from that version to the current one
};

} // namespace controller

#endif
