// Tokens and tokenizers as text, for debugging.
#include <cstdio>
#include <cstring>

#include "tavTokenizer/tavTokenizer.h"
#include "tavUtil/tavMemory.h"

namespace {

constexpr const char *typeNames[] = {
    "Unknown",       "EOF",        "Integer",  "Long",     "LeftParen", "RightParen", "Comma",      "Literal",
    "Subexpression", "Identifier", "FieldSep", "FwdSlash", "Equals",    "LeftAngle",  "RightAngle", "LeftSquare",
    "RightSquare",   "Star",       "Dash",     "Period",   "Colon",     "Dollar",     "Plus",
};
static_assert(sizeof typeNames / sizeof *typeNames == TOKEN_PLUS + 1);

} // namespace

const char *tokenTypeToString(TOKEN_TYPE type) noexcept {
    const int index = static_cast<int>(type);
    return index >= TOKEN_UNKNOWN && index <= TOKEN_PLUS ? typeNames[index] : typeNames[TOKEN_UNKNOWN];
}

const char *tokenToString(const Token *token, char *buffer) noexcept {
    if (!buffer) return nullptr;
    if (!token) return "{token: NULL}";
    int used = std::sprintf(buffer, "{token: type=%s", tokenTypeToString(token->type));
    if (token->string) used += std::sprintf(buffer + used, " value={%s}", token->string);
    std::sprintf(buffer + used, "}");
    return buffer;
}

void tokenPrint(const Token *token) noexcept {
    const char *string = tokenGetString(token);
    const TavText buffer(static_cast<char *>(tavMalloc((string ? std::strlen(string) : 0) + 100)));
    if (buffer) std::printf("%s", tokenToString(token, buffer.get()));
}

void tokenizerPrintTokens(Tokenizer *tokenizer) noexcept {
    std::printf("{Tokens:");
    while (const Token *token = tokenizerConsumeNextToken(tokenizer)) tokenPrint(token);
    std::printf("}");
}

void tokenizerPrint(Tokenizer *tokenizer) noexcept {
    if (!tokenizer) {
        std::printf("{Tokenizer:NULL}\n");
        return;
    }
    std::printf("{Tokenizer:expression=%s,errStr=%s,tokens=", tokenizer->expressionString,
                tokenizer->errorString ? tokenizer->errorString : "NULL");
    tokenizerPrintTokens(tokenizer);
    std::printf("}\n");
}
