// A growing text.
#ifndef TAVUTIL_TAVSTRINGBUFFER_H
#define TAVUTIL_TAVSTRINGBUFFER_H

#include <memory>

#include <tav/types.h>

typedef struct _TavStringBuffer {
    int len;   // characters used
    int max;   // capacity without the terminator
    char *ptr; // NUL-terminated
    Boolean failed; // an append found no memory; the text is then incomplete
} TavStringBuffer;

TavStringBuffer *sbCreate(int max) noexcept; // returns new, null without memory
// Appends; grows to the larger of twice the capacity and capacity + length. Null text adds nothing; null buffer is ignored.
void sbAdd(TavStringBuffer *sb, const char *text) noexcept;
void sbAddInt(TavStringBuffer *sb, int n) noexcept;
int sbLen(const TavStringBuffer *sb) noexcept;
const char *sbStr(const TavStringBuffer *sb) noexcept; // borrowed until the next append
void sbDelete(TavStringBuffer *sb) noexcept;

struct TavStringBufferDeleter {
    void operator()(TavStringBuffer *sb) const noexcept { sbDelete(sb); }
};
using TavStringBufferPtr = std::unique_ptr<TavStringBuffer, TavStringBufferDeleter>;

#endif
