// One constant text for all who keep it, counted. Any thread.
#ifndef TAVUTIL_TAVSHAREDTEXT_H
#define TAVUTIL_TAVSHAREDTEXT_H

#include <memory>

// What is handed about is the text itself; its count stands before it.
char *tavSharedTextCreate(const char *text) noexcept;   // returns new with one holder; null for null or without memory
char *tavSharedTextObtain(const char *shared) noexcept; // one more holder; `shared` itself. Null ignored
void tavSharedTextRelease(const char *shared) noexcept; // the last holder's release frees it. Null ignored

struct TavSharedTextReleaser {
    void operator()(char *shared) const noexcept { tavSharedTextRelease(shared); }
};
using TavSharedText = std::unique_ptr<char, TavSharedTextReleaser>; // holds one for the length of a function

#endif
