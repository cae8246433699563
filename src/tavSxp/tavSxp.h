// A small streaming parser for XML-like text: it knows elements, quoted attributes, content, comments and declarations, and calls back at
// each start and end of an element. No entities, namespaces or character references. Not locked; one use per file.
#ifndef TAVSXP_TAVSXP_H
#define TAVSXP_TAVSXP_H

#include <cstdio>

#include <tav/types.h>

#include "tavList/tavList.h"
#include "tavSxLex/tavSxLex.h"

inline constexpr int TAV_SXP_MAX_TOKEN = 4095; // bytes of a token

typedef struct _TavNVPair {
    char *name;
    char *value;
} TavNVPair;

// Copies both texts (null stays null); returns new, null without memory.
TavNVPair *tavNvpairCreate(const char *name, const char *value) noexcept;
const char *tavNvpairGetName(const TavNVPair *pair) noexcept;           // borrowed
const char *tavNvpairGetValue(const TavNVPair *pair) noexcept;          // borrowed
Boolean tavNvpairSetName(TavNVPair *pair, const char *name) noexcept;   // FALSE without memory
Boolean tavNvpairSetValue(TavNVPair *pair, const char *value) noexcept; // FALSE without memory
void tavNvpairDestroy(TavNVPair *pair) noexcept;                        // null ignored

// Both borrow their arguments for the call; FALSE ends the parse. `attributes`: TavNVPairs in the order of the document, never null.
typedef Boolean (*TavSxpStartElementFcn)(const char *name, TavList *attributes, void *cbArg);
// `text`: what was collected since the last end tag; null when nothing was.
typedef Boolean (*TavSxpEndElementFcn)(const char *name, const char *text, void *cbArg);

typedef struct _TavSXParser {
    char *parseFilename; // for messages
    FILE *parseFile;
    Boolean closeTraceXMLFile; // close the file on destroy
    TavSXLex *lex;
    TavSxpStartElementFcn startElement; // may be null
    TavSxpEndElementFcn endElement;     // may be null
    void *cbArg;
    Boolean outOfMemory; // the parse failed for want of memory, without a message
} TavSXParser;

// Returns new; null without file or memory (the file is then closed when `closeFile`).
TavSXParser *tavSxpCreate(FILE *file, Boolean closeFile) noexcept;
void tavSxpSetStartFunc(TavSXParser *parser, TavSxpStartElementFcn startElement) noexcept;
void tavSxpSetEndFunc(TavSXParser *parser, TavSxpEndElementFcn endElement) noexcept;
void tavSxpSetCallbackArg(TavSXParser *parser, void *arg) noexcept;
int tavSxpParse(TavSXParser *parser) noexcept; // 1; 0 after a text on standard output that tells the token, line and file
const char *tavSxpGetFilename(const TavSXParser *parser) noexcept; // borrowed
int tavSxpGetLineNumber(const TavSXParser *parser) noexcept;
TavSXLex *tavSxpGetLexer(const TavSXParser *parser) noexcept; // borrowed
void tavSxpDestroy(TavSXParser *parser) noexcept;             // null ignored

#endif
