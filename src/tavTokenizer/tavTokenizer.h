// Cuts the text of one rule expression into a list of tokens, all at once at creation.
//
// A tokenizer either holds the whole token list or an error (message, position, caret line) and no tokens. Positions are 1-based and count
// the expression after its escape characters are taken out. Not locked: one tokenizer belongs to one thread.
#ifndef TAVTOKENIZER_TAVTOKENIZER_H
#define TAVTOKENIZER_TAVTOKENIZER_H

#include <cstdint>
#include <cstdio>
#include <memory>

#include <tav/types.h>

// The scanner makes the values up to TOKEN_SUBEXPRESSION; the rest are names for other code.
typedef enum _TOKEN_TYPE : int {
    TOKEN_UNKNOWN = 0,
    TOKEN_EOF = 1, // always the last token of a list
    TOKEN_INTEGER = 2,
    TOKEN_LONG = 3, // its text keeps the suffix
    TOKEN_LT_PAREN = 4,
    TOKEN_RT_PAREN = 5,
    TOKEN_COMMA = 6,
    TOKEN_LITERAL = 7,       // its text has neither quotes nor escape characters
    TOKEN_SUBEXPRESSION = 8, // every word and every sign: the parser tells them apart
    TOKEN_IDENTIFIER = 9,
    TOKEN_FIELDSEPARATOR = 10,
    TOKEN_FWDSLASH = 11,
    TOKEN_EQUALS = 12,
    TOKEN_LESSTHAN = 13,
    TOKEN_GREATERTHAN = 14,
    TOKEN_LT_SQUAREBRACKET = 15,
    TOKEN_RT_SQUAREBRACKET = 16,
    TOKEN_STAR = 17,
    TOKEN_DASH = 18,
    TOKEN_PERIOD = 19,
    TOKEN_COLON = 20,
    TOKEN_DOLLAR = 21,
    TOKEN_PLUS = 22
} TOKEN_TYPE;

typedef struct _Token {
    TOKEN_TYPE type;
    char *string;     // owned; empty for TOKEN_EOF
    int32_t position; // of the token's last character; length + 1 for TOKEN_EOF
    struct _Token *next;
} Token;

typedef struct _Tokenizer {
    char *expressionString; // owned copy without the escape characters
    char *errorString;      // owned; null: no error
    char *posString;        // owned; blanks and a "^" under the failing column
    int32_t errorPosition;  // -1: no error
    Token *firstTokenToConsume;
    Token *nextTokenToConsume;
    bool outOfMemory; // an error, with a message or without: memory ran out
} Tokenizer;

// Scans `expression` (copied). Returns new: the tokens or an error; null for null or without memory.
Tokenizer *tokenizerCreate(const char *expression) noexcept;
void tokenizerFree(Tokenizer *tokenizer) noexcept; // null ignored

int tokenizerIsError(const Tokenizer *tokenizer) noexcept; // 1 for null
// Borrowed until the tokenizer is freed. Null without an error, for a null tokenizer, or when memory ran out.
const char *tokenizerGetErrorMessage(const Tokenizer *tokenizer) noexcept;
const char *tokenizerGetErrorPositionIndicatorString(const Tokenizer *tokenizer) noexcept;
const char *tokenizerGetExpressionString(const Tokenizer *tokenizer) noexcept;
int tokenizerGetErrorPosition(const Tokenizer *tokenizer) noexcept;                  // -1: none
void tokenizerPrintErrorPosition(const Tokenizer *tokenizer, FILE *stream) noexcept; // does nothing

// Records an error, unless there is one already, and frees the tokens: no Token of this tokenizer may be used afterwards.
// A position below 1 gives the indicator "^".
void syntaxError(Tokenizer *tokenizer, const char *message, int position) noexcept;
// The same for want of memory: an error that says nothing about the expression. A message that was recorded before stays.
void tokenizerSetOutOfMemory(Tokenizer *tokenizer) noexcept;

// The cursor. TOKEN_EOF is a token like the others; after it, and after an error, there is none (null, 0). Tokens are borrowed until the
// tokenizer is freed or an error is recorded.
int tokenizerHasMoreTokens(const Tokenizer *tokenizer) noexcept;
Token *tokenizerPeekNextToken(const Tokenizer *tokenizer) noexcept;
Token *tokenizerConsumeNextToken(Tokenizer *tokenizer) noexcept;
void tokenizerRewind(Tokenizer *tokenizer) noexcept;

TOKEN_TYPE tokenGetType(const Token *token) noexcept;    // TOKEN_UNKNOWN for null
const char *tokenGetString(const Token *token) noexcept; // borrowed; null for null
int tokenGetPosition(const Token *token) noexcept;       // -1 for null
const char *tokenTypeToString(TOKEN_TYPE type) noexcept; // constant

// Writes the token into `buffer` (the text's length plus 100 bytes) and returns it. A null token leaves it alone and gives a constant.
const char *tokenToString(const Token *token, char *buffer) noexcept;
// To standard output. Printing the tokens consumes them.
void tokenPrint(const Token *token) noexcept;
void tokenizerPrintTokens(Tokenizer *tokenizer) noexcept;
void tokenizerPrint(Tokenizer *tokenizer) noexcept;

// ---- character classes ----
// Characters outside literals that may start a token of their own group: signs "=<>", words, and "+".
int isValidSubexpressionChar(char c) noexcept;
// 1 when both characters lie in the same group, so that they belong to one token.
int isContiguousToSubexpression(char a, char b) noexcept;

// Scans a set of sample expressions, prints each outcome to standard output and returns the number of wrong ones.
int testTokenizer() noexcept;

struct TokenizerDeleter {
    void operator()(Tokenizer *tokenizer) const noexcept { tokenizerFree(tokenizer); }
};
using TokenizerPtr = std::unique_ptr<Tokenizer, TokenizerDeleter>;

#endif
