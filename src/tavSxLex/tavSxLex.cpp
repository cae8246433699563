// The catalogue's characters fall into fixed ASCII classes, the same in every locale: what starts a word, what continues one, what is a
// token by itself. Everything else is dropped, so a text that must keep a sign stands in quotes.
#include "tavSxLex/tavSxLex.h"

#include <array>
#include <string_view>

#include "tavUtil/tavMemory.h"

namespace {

enum CharClass : unsigned char { WordStart = 1, WordPart = 2, ContentPart = 4, Single = 8 };

constexpr auto charClasses = [] {
    std::array<unsigned char, 256> table{};
    auto mark = [&table](std::string_view characters, unsigned char bits) {
        for (unsigned char c : characters) table[c] |= bits;
    };
    mark("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789:", WordStart | WordPart | ContentPart);
    mark("._", WordPart | ContentPart);
    mark(" /%-,\\';()", ContentPart);
    mark("<=/!->?", Single);
    return table;
}();

bool is(int c, CharClass which) { return c != EOF && (charClasses[static_cast<unsigned char>(c)] & which); }

int readChar(TavSXLex *lex) {
    int c = getc(lex->inputFile);
    if (c == '\n') lex->lineNumber++;
    return c;
}

void unreadChar(TavSXLex *lex, int c) {
    if (c == EOF) return;
    if (c == '\n') lex->lineNumber--;
    ungetc(c, lex->inputFile);
}

// The token being read, in the caller's buffer.
struct Token {
    TavSXLex *lex;
    char *buffer;
    int maxLength;
    int length;

    bool add(int c) {
        if (length >= maxLength) {
            tavLexSetError(lex, 1);
            tavLexSetErrorString(lex, "token exceeded maximum token length");
            return false;
        }
        buffer[length++] = static_cast<char>(c);
        return true;
    }
    char *finish() {
        buffer[length] = '\0';
        return buffer;
    }
};

char *readQuoted(Token &token) {
    for (int c = readChar(token.lex); c != '"'; c = readChar(token.lex)) {
        if (c == EOF || !token.add(c)) return nullptr;
    }
    return token.finish();
}

char *readWord(Token &token, int first, CharClass part) {
    int c = first;
    for (; is(c, part); c = readChar(token.lex)) {
        if (!token.add(c)) return nullptr;
    }
    unreadChar(token.lex, c);
    return token.finish();
}

} // namespace

TavSXLex *tavLexCreate(FILE *file) noexcept {
    if (!file) return nullptr;
    TavSXLex *lex = tavNewRecord<TavSXLex>();
    if (!lex) return nullptr;
    lex->inputFile = file;
    lex->lineNumber = 1;
    return lex;
}

void tavLexDestroy(TavSXLex *lex) noexcept {
    if (!lex) return;
    tavFree(lex->errorString);
    tavDestroyRecord(lex);
}

char *tavLexFile(TavSXLex *lex, char *buffer, int maxLength, int state) noexcept {
    if (!lex || !buffer) return nullptr;
    Token token{lex, buffer, maxLength, 0};
    for (;;) {
        int c = readChar(lex);
        if (c == EOF || c == '\0') return nullptr;
        if (c == '"') return readQuoted(token);
        if (is(c, Single)) return token.add(c) ? token.finish() : nullptr;
        if (is(c, WordStart)) return readWord(token, c, state == TAV_SX_STATE_CONTENT ? ContentPart : WordPart);
    }
}

int tavLexGetError(const TavSXLex *lex) noexcept { return lex->errorNumber; }
void tavLexSetError(TavSXLex *lex, int error) noexcept { lex->errorNumber = error; }
const char *tavLexGetErrorString(const TavSXLex *lex) noexcept { return lex->errorString; }
void tavLexSetErrorString(TavSXLex *lex, const char *text) noexcept { tavReplaceStr(&lex->errorString, text); }
int tavLexGetLineNumber(const TavSXLex *lex) noexcept { return lex->lineNumber; }
