// The scanner.
//
// Idea: one pass over the expression. Literals are unescaped while they are read, by copying each kept character from a read place to a
// write place in the same copy, so that any number of escapes costs one pass. Positions count the write side: the text as it is without
// escape characters.
// Ownership: the tokenizer owns its copy, the error texts and the tokens. Recording an error frees the tokens.
// Invariant: tokens or an error, never both. Without memory during the scan there is no tokenizer at all.
#include "tavTokenizer/tavTokenizer.h"

#include <array>
#include <cstring>
#include <string_view>

#include "tavUtil/tavMemory.h"

namespace {

constexpr std::string_view contiguousSubexprGroups[] = {
    "=<>",
    "/[]$.-:_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
    "+",
};

// Number of a character's group, from 1; 0: in none. The terminating NUL is in none, so that no run passes the end of the text.
constexpr std::array<unsigned char, 256> groupTable = [] {
    std::array<unsigned char, 256> table{};
    unsigned char number = 0;
    for (std::string_view group : contiguousSubexprGroups) {
        ++number;
        for (char c : group) table[static_cast<unsigned char>(c)] = number;
    }
    return table;
}();

unsigned char groupOf(char c) noexcept { return groupTable[static_cast<unsigned char>(c)]; }
// A carriage return is not one.
bool isBlank(char c) noexcept { return c == '\t' || c == '\n' || c == ' '; }
bool isQuote(char c) noexcept { return c == '"' || c == '\''; }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

void freeTokens(Tokenizer *tokenizer) noexcept {
    Token *token = tokenizer->firstTokenToConsume;
    tokenizer->firstTokenToConsume = tokenizer->nextTokenToConsume = nullptr;
    while (token) {
        Token *next = token->next;
        tavFree(token->string);
        tavFree(token);
        token = next;
    }
}

// Appends behind the cursor field, which holds the tail during the scan.
bool appendToken(Tokenizer *tokenizer, TOKEN_TYPE type, const char *text, size_t length, int position) noexcept {
    auto *token = tavNewRecord<Token>();
    char *copy = tavStrndup(text, length);
    if (!token || !copy) {
        tavFree(copy);
        tavFree(token);
        return false;
    }
    *token = {type, copy, position, nullptr};
    (tokenizer->firstTokenToConsume ? tokenizer->nextTokenToConsume->next : tokenizer->firstTokenToConsume) = token;
    tokenizer->nextTokenToConsume = token;
    return true;
}

class Scanner {
public:
    explicit Scanner(Tokenizer *tokenizer) noexcept
        : tokenizer_(tokenizer), text_(tokenizer->expressionString), read_(text_), write_(text_) {}

    // FALSE without memory.
    bool scan() noexcept {
        bool ok = scanTokens();
        closeGap();
        return ok;
    }

private:
    // 1-based position of the character under the read place.
    int position() const noexcept { return static_cast<int>(write_ - text_) + 1; }
    void keep() noexcept { *write_++ = *read_++; }
    // Without an escape both places are one, and the rest of the text is where it belongs.
    void closeGap() noexcept {
        if (read_ != write_) std::memmove(write_, read_, std::strlen(read_) + 1);
    }
    void skipBlanks() noexcept {
        while (isBlank(*read_)) keep();
    }
    bool emit(TOKEN_TYPE type, const char *from) noexcept {
        return appendToken(tokenizer_, type, from, static_cast<size_t>(write_ - from), position() - 1);
    }

    bool scanTokens() noexcept {
        for (skipBlanks(); *read_; skipBlanks()) {
            if (!scanToken()) return false;
            if (tokenizer_->errorString || tokenizer_->outOfMemory) return true;
        }
        return appendToken(tokenizer_, TOKEN_EOF, "", 0, position());
    }

    bool scanToken() noexcept {
        if (isQuote(*read_)) return scanLiteral();
        if (isDigit(*read_)) return scanNumber();
        switch (*read_) {
            case '(':
                return scanSign(TOKEN_LT_PAREN);
            case ')':
                return scanSign(TOKEN_RT_PAREN);
            case ',':
                return scanSign(TOKEN_COMMA);
            default:
                return scanSubexpression();
        }
    }

    bool scanSign(TOKEN_TYPE type) noexcept {
        const char *from = write_;
        keep();
        return emit(type, from);
    }

    bool scanLiteral() noexcept {
        const char quote = *read_;
        keep();
        const char *from = write_;
        while (*read_ && *read_ != quote) {
            if (*read_ == '\\' && *++read_ == '\0') {
                syntaxError(tokenizer_, "Last character in expression may not be an escape character.", position());
                return true;
            }
            keep();
        }
        if (!*read_) {
            syntaxError(tokenizer_, "Literal has no terminating character.", position());
            return true;
        }
        const auto length = static_cast<size_t>(write_ - from);
        keep();
        return appendToken(tokenizer_, TOKEN_LITERAL, from, length, position() - 1);
    }

    bool scanNumber() noexcept {
        const char *from = write_;
        while (isDigit(*read_)) keep();
        if (*read_ != 'L' && *read_ != 'l') return emit(TOKEN_INTEGER, from);
        keep();
        return emit(TOKEN_LONG, from);
    }

    bool scanSubexpression() noexcept {
        const unsigned char group = groupOf(*read_);
        if (!group) {
            syntaxError(tokenizer_, "Syntax error - unrecognized string.", position());
            return true;
        }
        const char *from = write_;
        while (groupOf(*read_) == group) keep();
        return emit(TOKEN_SUBEXPRESSION, from);
    }

    Tokenizer *tokenizer_;
    char *text_;
    char *read_;
    char *write_;
};

char *createIndicator(int position) noexcept {
    const size_t blanks = position > 1 ? static_cast<size_t>(position) - 1 : 0;
    char *indicator = static_cast<char *>(tavMalloc(blanks + 2));
    if (!indicator) return nullptr;
    std::memset(indicator, ' ', blanks);
    indicator[blanks] = '^';
    return indicator;
}

} // namespace

int isValidSubexpressionChar(char c) noexcept { return groupOf(c) != 0; }
int isContiguousToSubexpression(char a, char b) noexcept { return groupOf(a) != 0 && groupOf(a) == groupOf(b); }

Tokenizer *tokenizerCreate(const char *expression) noexcept {
    if (!expression) return nullptr;
    TokenizerPtr tokenizer(tavNewRecord<Tokenizer>());
    if (!tokenizer) return nullptr;
    tokenizer->errorPosition = -1;
    tokenizer->expressionString = tavStrdup(expression);
    if (!tokenizer->expressionString || !Scanner(tokenizer.get()).scan()) return nullptr;
    tokenizerRewind(tokenizer.get());
    return tokenizer.release();
}

void tokenizerFree(Tokenizer *tokenizer) noexcept {
    if (!tokenizer) return;
    freeTokens(tokenizer);
    tavFree(tokenizer->expressionString);
    tavFree(tokenizer->errorString);
    tavFree(tokenizer->posString);
    tavFree(tokenizer);
}

void syntaxError(Tokenizer *tokenizer, const char *message, int position) noexcept {
    if (!tokenizer || tokenizerIsError(tokenizer)) return;
    freeTokens(tokenizer);
    tokenizer->errorString = tavStrdup(message);
    tokenizer->posString = createIndicator(position);
    tokenizer->errorPosition = position;
    tokenizer->outOfMemory = !tokenizer->errorString;
}

void tokenizerSetOutOfMemory(Tokenizer *tokenizer) noexcept {
    if (!tokenizer) return;
    freeTokens(tokenizer);
    tokenizer->outOfMemory = true;
}

int tokenizerIsError(const Tokenizer *tokenizer) noexcept { return !tokenizer || tokenizer->errorString || tokenizer->outOfMemory; }
const char *tokenizerGetErrorMessage(const Tokenizer *tokenizer) noexcept { return tokenizer ? tokenizer->errorString : nullptr; }
const char *tokenizerGetErrorPositionIndicatorString(const Tokenizer *tokenizer) noexcept {
    return tokenizer ? tokenizer->posString : nullptr;
}
const char *tokenizerGetExpressionString(const Tokenizer *tokenizer) noexcept { return tokenizer ? tokenizer->expressionString : nullptr; }
int tokenizerGetErrorPosition(const Tokenizer *tokenizer) noexcept { return tokenizer ? tokenizer->errorPosition : -1; }
void tokenizerPrintErrorPosition(const Tokenizer *, FILE *) noexcept {}

int tokenizerHasMoreTokens(const Tokenizer *tokenizer) noexcept { return tokenizerPeekNextToken(tokenizer) != nullptr; }
Token *tokenizerPeekNextToken(const Tokenizer *tokenizer) noexcept { return tokenizer ? tokenizer->nextTokenToConsume : nullptr; }

Token *tokenizerConsumeNextToken(Tokenizer *tokenizer) noexcept {
    Token *token = tokenizerPeekNextToken(tokenizer);
    if (token) tokenizer->nextTokenToConsume = token->next;
    return token;
}

void tokenizerRewind(Tokenizer *tokenizer) noexcept {
    if (tokenizer) tokenizer->nextTokenToConsume = tokenizer->firstTokenToConsume;
}

TOKEN_TYPE tokenGetType(const Token *token) noexcept { return token ? token->type : TOKEN_UNKNOWN; }
const char *tokenGetString(const Token *token) noexcept { return token ? token->string : nullptr; }
int tokenGetPosition(const Token *token) noexcept { return token ? token->position : -1; }
