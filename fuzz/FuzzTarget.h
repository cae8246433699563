// What every fuzz target shares: its entry, checks that end the run, texts and choices cut out of the input.
//
// A target is a function fuzz_NAME. Built by itself it is libFuzzer's entry; a test compiles the same file and replays the corpus.
#ifndef FUZZ_FUZZTARGET_H
#define FUZZ_FUZZTARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tavUtil/tavMemory.h"
#include "tr/tr.h"

#ifdef TAV_FUZZ_ENTRY
#define FUZZ_ENTRY(target) \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return target(data, size); }
#else
#define FUZZ_ENTRY(target)
#endif
#define FUZZ_TARGET(target)                       \
    int target(const uint8_t *data, size_t size); \
    FUZZ_ENTRY(target)                            \
    int target(const uint8_t *data, size_t size)

#define FUZZ_CHECK(condition)                                                                   \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (0)

// Gives back what it takes: as many blocks are in use at its end as at its beginning.
class FuzzBalance {
public:
    FuzzBalance() : before_(count()) {}
    ~FuzzBalance() { FUZZ_CHECK(count() == before_); }
    FuzzBalance(const FuzzBalance &) = delete;
    FuzzBalance &operator=(const FuzzBalance &) = delete;

private:
    static int count() {
        trPurgeDeathRow();
        return tavGetMemCount();
    }
    const int before_;
};

// The texts that stand between separators.
inline std::vector<std::string> fuzzPieces(const std::string &text, char separator) {
    std::vector<std::string> pieces{""};
    for (const char c : text) c == separator ? pieces.emplace_back() : pieces.back() += c;
    return pieces;
}

// Reads the input from the front. At its end lines are empty and choices 0.
class FuzzInput {
public:
    FuzzInput(const uint8_t *data, size_t size) : data_(reinterpret_cast<const char *>(data)), left_(size) {}

    bool empty() const { return left_ == 0; }
    // 0 to n - 1, from one byte.
    unsigned pick(unsigned n) {
        if (!left_) return 0;
        left_--;
        return static_cast<unsigned char>(*data_++) % n;
    }
    // Up to the next newline, which is dropped.
    std::string line() {
        size_t length = 0;
        while (length < left_ && data_[length] != '\n') length++;
        const std::string text = take(length);
        if (left_) take(1);
        return text;
    }
    std::string take(size_t length) {
        if (length > left_) length = left_;
        const std::string text(data_, length);
        data_ += length;
        left_ -= length;
        return text;
    }
    std::string rest() { return take(left_); }

private:
    const char *data_;
    size_t left_;
};

#endif
