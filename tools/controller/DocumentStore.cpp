#include "DocumentStore.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "support/Fault.h"
#include "support/Json.h"

namespace controller {

namespace {

constexpr std::string_view SUFFIX = ".json";
constexpr std::string_view DEFAULT = "default";
// Where the library asks when nothing else is set.
constexpr std::string_view DEFAULT_PATHS[] = {"/", "/sentinelFabric", "/kel/api/dynamicRouting"};

// Throws Fault. Another kind of file could keep its reader waiting for ever.
std::string readDocument(const std::string &path) {
    std::error_code none; // what is not there says so when it is opened
    const std::filesystem::file_status status = std::filesystem::status(path, none);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) throw tavctl::Fault(path, 0, "not a regular file");
    return tavctl::readFile(path);
}

std::string documentName(const std::string &fileName) { return fileName.substr(0, fileName.size() - SUFFIX.size()); }

} // namespace

bool DocumentStore::isDocumentFile(std::string_view fileName) {
    return fileName.size() > SUFFIX.size() && fileName[0] != '.' && fileName.ends_with(SUFFIX) && fileName != "status.json";
}

std::vector<std::string> DocumentStore::fileNames() const {
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator at(directory_, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (isDocumentFile(name)) names.push_back(name);
    }
    if (error) throw tavctl::Fault(directory_, 0, error.message());
    std::sort(names.begin(), names.end());
    return names;
}

// Versions grow from start to start as well, so that no poller mistakes one of an earlier run for one of ours.
int64_t DocumentStore::nextVersion() {
    using namespace std::chrono;
    const int64_t now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    return lastVersion_ = std::max(lastVersion_ + 1, now);
}

// A document that is the default stays it when others come, unless one is called so.
void DocumentStore::chooseDefault() {
    if (documents_.count(DEFAULT))
        default_ = DEFAULT;
    else if (default_.empty() && documents_.size() == 1)
        default_ = documents_.begin()->first;
}

LoadResult DocumentStore::load(const std::string &fileName) {
    const std::string name = documentName(fileName), path = directory_ + "/" + fileName;
    Document *document = nullptr;
    {
        const std::lock_guard<std::mutex> guard(lock_);
        auto &place = documents_[name];
        if (!place) place = std::make_unique<Document>(name, path, strict_);
        document = place.get();
    }
    LoadResult result;
    try {
        result = document->prepare(readDocument(path), nextVersion());
    } catch (const tavctl::Fault &unreadable) {
        result.outcome = LoadOutcome::Refused;
        result.complaints = {{path, "document", unreadable.what(), true}};
    }
    if (result.outcome != LoadOutcome::Accepted) return result;
    const std::lock_guard<std::mutex> guard(lock_);
    document->publish();
    return result;
}

void DocumentStore::settleDefault() {
    const std::lock_guard<std::mutex> guard(lock_);
    chooseDefault();
}

Document *DocumentStore::find(std::string_view path) {
    const bool standard = std::find(std::begin(DEFAULT_PATHS), std::end(DEFAULT_PATHS), path) != std::end(DEFAULT_PATHS);
    if (!path.empty()) path.remove_prefix(1);
    auto found = documents_.find(path);
    if (found == documents_.end() && standard) found = documents_.find(default_);
    return found == documents_.end() ? nullptr : found->second.get();
}

} // namespace controller
