// The documents of a directory: NAME.json is the document NAME.
//
// One thread loads. Everything that pollers ask is asked with the state lock held, and what publish() changes is changed under it.
#ifndef CONTROLLER_DOCUMENTSTORE_H
#define CONTROLLER_DOCUMENTSTORE_H

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Document.h"

namespace controller {

class DocumentStore {
public:
    DocumentStore(std::string directory, bool strict) : directory_(std::move(directory)), strict_(strict) {}

    const std::string &directory() const { return directory_; }
    std::mutex &lock() { return lock_; }

    // ---- the loader's thread, without the lock ----
    // The names of the documents' files, sorted. Throws Fault when the directory cannot be read.
    std::vector<std::string> fileNames() const;
    // Is it the file of a document? Others, hidden ones among them, are passed over.
    static bool isDocumentFile(std::string_view fileName);
    // Reads a file again and publishes it when it is good. A file that is gone is refused: its last version is served on.
    LoadResult load(const std::string &fileName);
    // After files were loaded: which document is asked for where no name is given.
    void settleDefault();

    // ---- with the lock held ----
    // The document that is asked for at a path; null: none. The library's own paths ask for the default one.
    Document *find(std::string_view path);
    const std::map<std::string, std::unique_ptr<Document>, std::less<>> &documents() const { return documents_; }
    const std::string &defaultName() const { return default_; } // empty: none

private:
    int64_t nextVersion();
    void chooseDefault();

    const std::string directory_;
    const bool strict_;
    std::mutex lock_;
    std::map<std::string, std::unique_ptr<Document>, std::less<>> documents_; // none is ever removed
    std::string default_;
    int64_t lastVersion_ = 0; // loader
};

} // namespace controller

#endif
