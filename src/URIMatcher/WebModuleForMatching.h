// What path matching asks of a web module; the request mapper implements it.
#ifndef URIMATCHER_WEBMODULEFORMATCHING_H
#define URIMATCHER_WEBMODULEFORMATCHING_H

typedef struct _WebModule WebModule;

const char *wmGetName(const WebModule *webModule) noexcept;        // borrowed; may be null
const char *wmGetContextRoot(const WebModule *webModule) noexcept; // borrowed; may be null

#endif
