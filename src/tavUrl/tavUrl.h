// An absolute URL taken apart.
#ifndef TAVURL_TAVURL_H
#define TAVURL_TAVURL_H

#include <tav/types.h>

typedef struct _TavUrl {
    char *url;      // working copy; protocol and host lie in it
    char *protocol; // before "://", as written
    char *host;
    int port;   // -1: the text named one that is no number
    char *path; // begins with "/"; a copy of its own
} TavUrl;

// Returns new; null for no text, no "://", no memory, or no port with a protocol other than "http" (80) and "https" (443).
// A port text that is empty, holds a non-digit or exceeds int gives -1. Without a path the path is "/".
TavUrl *tavUrlCreate(const char *text) noexcept;
const char *tavUrlGetProtocol(const TavUrl *url) noexcept; // borrowed from the record, as host and path are
const char *tavUrlGetHost(const TavUrl *url) noexcept;
int tavUrlGetPort(const TavUrl *url) noexcept;
const char *tavUrlGetPath(const TavUrl *url) noexcept;
void tavUrlDelete(TavUrl *url) noexcept; // null ignored

#endif
