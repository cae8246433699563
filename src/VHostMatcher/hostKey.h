// A host folded to lower case, or the key "host:port", in a buffer on the stack: look-ups of usual names allocate nothing.
#ifndef VHOSTMATCHER_HOSTKEY_H
#define VHOSTMATCHER_HOSTKEY_H

#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

#include "tavUtil/tavString.h"

class HostKey {
public:
    explicit HostKey(const char *host) noexcept { fold(host); }
    HostKey(const char *host, int port) noexcept {
        fold(host);
        if (!fits_) return;
        text_[length_++] = ':';
        char *end = std::to_chars(text_ + length_, std::end(text_) - 1, port).ptr;
        *end = '\0';
        length_ = static_cast<size_t>(end - text_);
    }
    bool fits() const noexcept { return fits_; } // FALSE: the name is longer than any host name
    const char *text() const noexcept { return text_; }
    std::string_view view() const noexcept { return {text_, length_}; }

private:
    static constexpr size_t LONGEST_HOST = 255;
    static constexpr size_t PORT_ROOM = 16;

    void fold(const char *host) noexcept {
        length_ = host ? strnlen(host, LONGEST_HOST + 1) : 0;
        fits_ = length_ <= LONGEST_HOST;
        if (!fits_) length_ = 0;
        for (size_t i = 0; i < length_; ++i) text_[i] = tavAsciiLower(host[i]);
        text_[length_] = '\0';
    }

    char text_[LONGEST_HOST + PORT_ROOM];
    size_t length_;
    bool fits_;
};

#endif
