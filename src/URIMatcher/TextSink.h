// Collects a text dump: counts it, or appends it to a buffer that was sized by a counting run.
#ifndef URIMATCHER_TEXTSINK_H
#define URIMATCHER_TEXTSINK_H

#include <cstdio>
#include <cstring>
#include <string_view>

class TextSink {
public:
    TextSink() noexcept = default;                                              // only counts
    explicit TextSink(char *buffer) noexcept : out_(buffer + strlen(buffer)) {} // appends after the text in the buffer
    TextSink &add(std::string_view text) noexcept {
        if (out_) {
            text.copy(out_ + length_, text.size());
            out_[length_ + text.size()] = '\0';
        }
        length_ += text.size();
        return *this;
    }
    TextSink &add(int n) noexcept {
        char digits[16];
        const int length = snprintf(digits, sizeof digits, "%d", n);
        return add(std::string_view(digits, static_cast<size_t>(length)));
    }
    size_t length() const noexcept { return length_; }

private:
    char *out_ = nullptr;
    size_t length_ = 0;
};

#endif
