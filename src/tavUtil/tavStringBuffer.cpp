// A growing text. `ptr` is always terminated and `len <= max`; after a failed append the text stays as it was, so it is never half a piece.
#include "tavUtil/tavStringBuffer.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

#include "tavUtil/tavMemory.h"

namespace {

constexpr long long LONGEST = INT_MAX - 1; // the terminator counts too

// Gives the buffer room for `length` more characters. The old text is handed back so that the caller frees it after copying from it.
bool grow(TavStringBuffer *sb, size_t length, char **old) noexcept {
    if (length > static_cast<size_t>(LONGEST - sb->len)) return false;
    const long long wanted = std::max(2LL * sb->max, static_cast<long long>(sb->max) + static_cast<long long>(length));
    const long long capacity = std::min(wanted, LONGEST);
    auto *ptr = static_cast<char *>(tavMalloc(static_cast<size_t>(capacity) + 1));
    if (!ptr) return false;
    std::memcpy(ptr, sb->ptr, static_cast<size_t>(sb->len));
    *old = sb->ptr;
    sb->ptr = ptr;
    sb->max = static_cast<int>(capacity);
    return true;
}

} // namespace

TavStringBuffer *sbCreate(int max) noexcept {
    const int capacity = std::max(max, 0);
    auto *sb = tavNewRecord<TavStringBuffer>();
    if (!sb) return nullptr;
    sb->max = capacity;
    sb->ptr = static_cast<char *>(tavMalloc(static_cast<size_t>(capacity) + 1));
    if (sb->ptr) return sb;
    tavDestroyRecord(sb);
    return nullptr;
}

void sbAdd(TavStringBuffer *sb, const char *text) noexcept {
    if (!sb || !text || sb->failed) return;
    const size_t length = std::strlen(text);
    char *old = nullptr; // freed last: `text` may be this buffer's own
    if (length > static_cast<size_t>(sb->max - sb->len) && !grow(sb, length, &old)) {
        sb->failed = TRUE;
        return;
    }
    std::memcpy(sb->ptr + sb->len, text, length);
    sb->len += static_cast<int>(length);
    sb->ptr[sb->len] = '\0';
    tavFree(old);
}

void sbAddInt(TavStringBuffer *sb, int n) noexcept {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%d", n);
    sbAdd(sb, digits);
}

int sbLen(const TavStringBuffer *sb) noexcept { return sb ? sb->len : 0; }

const char *sbStr(const TavStringBuffer *sb) noexcept { return sb ? sb->ptr : nullptr; }

void sbDelete(TavStringBuffer *sb) noexcept {
    if (!sb) return;
    tavFree(sb->ptr);
    tavDestroyRecord(sb);
}
