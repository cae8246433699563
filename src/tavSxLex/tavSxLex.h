// Cuts the trace catalogue into tokens. Not locked; one reader.
#ifndef TAVSXLEX_TAVSXLEX_H
#define TAVSXLEX_TAVSXLEX_H

#include <cstdio>

inline constexpr int TAV_SX_STATE_CONTENT = 15; // the parser state in which words run on over blanks and punctuation

typedef struct _TavSXLex {
    FILE *inputFile;   // borrowed
    int lineNumber;    // from 1
    int errorNumber;   // 1: a token was too long
    char *errorString; // owned; may be null
} TavSXLex;

TavSXLex *tavLexCreate(FILE *file) noexcept; // borrows the file; returns new, null without memory or file
void tavLexDestroy(TavSXLex *lex) noexcept;  // null ignored; the file stays open

// The next token in `buffer` (maxLength + 1 bytes), or null at the end of the input, at a NUL byte and after an error. `state` is the
// parser's state. A quoted token comes without its quotes and may be empty.
char *tavLexFile(TavSXLex *lex, char *buffer, int maxLength, int state) noexcept;

int tavLexGetError(const TavSXLex *lex) noexcept; // 0: none
void tavLexSetError(TavSXLex *lex, int error) noexcept;
const char *tavLexGetErrorString(const TavSXLex *lex) noexcept; // borrowed; may be null
void tavLexSetErrorString(TavSXLex *lex, const char *text) noexcept;
int tavLexGetLineNumber(const TavSXLex *lex) noexcept;

#endif
