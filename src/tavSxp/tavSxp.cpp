// A token state machine. Each token is handed to the handler of the current state; a handler moves to the next state or fails with a
// message. Most states only wait for one token; those stand in a table.
//
// Kept as it is, because catalogues may rely on it: an element's text is all content since the last end tag, even content in front of its
// own start tag; any token counts as a name or as an attribute's value; the input may end between two elements though elements are open.
#include "tavSxp/tavSxp.h"

#include <cstring>

#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"
#include "tavUtil/tavStringBuffer.h"

namespace {

enum State {
    Between = 1,
    AfterOpen,
    EndTag,
    StartTag,
    AttributeEquals,
    AttributeValue,
    EndTagClose,
    CommentDash1,
    CommentDash2,
    Comment,
    CommentEnd1,
    CommentEnd2,
    Declaration,
    DeclarationEnd,
    Content = TAV_SX_STATE_CONTENT,
};

// A state that goes on at `token`; at another one it moves to `otherwise`, or fails with `fault` when that is set.
struct Wait {
    State state;
    const char *token;
    State next;
    State otherwise;
    const char *fault;
};

constexpr Wait waits[] = {
    {Between, "<", AfterOpen, Between, "tavSxpParse: Expected '<' token; got '%s'. line %d of %s\n"},
    {AttributeEquals, "=", AttributeValue, AttributeEquals, "tavSxpParse: Expected '=' token; got '%s'. line %d of %s\n"},
    {EndTagClose, ">", Between, EndTagClose, "tavSxpParse: Expected '>' token; got '%s'. line %d of %s\n"},
    {CommentDash1, "-", CommentDash2, CommentDash1, "tavSxpParse: Expected first dash of comment start; got '%s'. line %d of %s\n"},
    {CommentDash2, "-", Comment, CommentDash2, "tavSxpParse: Expected second dash of comment start; got '%s'. line %d of %s\n"},
    {Comment, "-", CommentEnd1, Comment, nullptr},
    {CommentEnd1, "-", CommentEnd2, Comment, nullptr},
    {CommentEnd2, ">", Between, CommentEnd2, "tavSxpParse: Expected comment end; got '%s'. line %d of %s\n"},
    {Declaration, "?", DeclarationEnd, Declaration, nullptr},
};

bool isToken(const char *token, const char *expected) { return tavStrCmpIgnoreCase(token, expected) == 0; }

void destroyPair(void *pair) { tavNvpairDestroy(static_cast<TavNVPair *>(pair)); }

// One run over the file. Each step returns false when the parse has failed.
class Run {
public:
    explicit Run(TavSXParser *parser) : parser_(parser) {}

    int parse() {
        if (!elements_ || !attributes_) return failWithoutMemory();
        char token[TAV_SXP_MAX_TOKEN + 1];
        while (tavLexFile(parser_->lex, token, TAV_SXP_MAX_TOKEN, state_)) {
            if (!step(token)) return FALSE;
        }
        if (!tavLexGetError(parser_->lex) && state_ == Between) return TRUE;
        printf("tavSxpParse: Lexer returned NULL. Line %d of %s\n", line(), file());
        return FALSE;
    }

private:
    int line() const { return tavSxpGetLineNumber(parser_); }
    const char *file() const { return tavOrNull(parser_->parseFilename); }
    bool failWithoutMemory() {
        parser_->outOfMemory = TRUE;
        return false;
    }
    const char *currentElement() const {
        TavListEle *head = tavListGetHead(elements_.get());
        return head ? static_cast<const char *>(tavListEleGetObject(head)) : nullptr;
    }

    bool step(const char *token) {
        for (const Wait &wait : waits) {
            if (wait.state == state_) return stepWait(wait, token);
        }
        switch (state_) {
            case AfterOpen:
                return stepAfterOpen(token);
            case EndTag:
                return stepEndTag(token);
            case StartTag:
                return stepStartTag(token);
            case AttributeValue:
                return stepAttributeValue(token);
            case DeclarationEnd:
                return stepDeclarationEnd(token);
            default:
                return stepContent(token);
        }
    }

    bool stepWait(const Wait &wait, const char *token) {
        bool met = isToken(token, wait.token);
        if (!met && wait.fault) {
            printf(wait.fault, token, line(), file());
            return false;
        }
        state_ = met ? wait.next : wait.otherwise;
        return true;
    }

    bool stepAfterOpen(const char *token) {
        if (isToken(token, "!")) return go(CommentDash1);
        if (isToken(token, "?")) return go(Declaration);
        if (isToken(token, "/")) return go(EndTag);
        char *name = tavStrdup(token);
        if (!name || !tavListAddHead(elements_.get(), name)) return failWithoutMemory();
        return go(StartTag);
    }

    bool stepEndTag(const char *token) {
        const char *current = currentElement();
        if (current && isToken(token, ">")) return endElement() && go(Between);
        if (current && isToken(token, current)) return endElement() && go(EndTagClose);
        printf("tavSxpParse: Expected '>' token or %s; got '%s'. line %d of %s\n", current ? current : "", token, line(), file());
        return false;
    }

    bool stepStartTag(const char *token) {
        if (isToken(token, "/")) return startElement() && go(EndTag);
        if (isToken(token, ">")) return startElement() && go(Content);
        TavNVPair *pair = tavNvpairCreate(token, nullptr);
        if (!pair || !tavListAddTail(attributes_.get(), pair)) return failWithoutMemory();
        return go(AttributeEquals);
    }

    bool stepAttributeValue(const char *token) {
        auto *pair = static_cast<TavNVPair *>(tavListEleGetObject(tavListGetTail(attributes_.get())));
        if (!tavNvpairSetValue(pair, token)) return failWithoutMemory();
        return go(StartTag);
    }

    bool stepDeclarationEnd(const char *token) {
        if (isToken(token, "?")) return true;
        return go(isToken(token, ">") ? Between : Declaration);
    }

    bool stepContent(const char *token) {
        if (isToken(token, "<")) return go(AfterOpen);
        if (!text_) text_.reset(sbCreate(static_cast<int>(strlen(token)) + 32));
        sbAdd(text_.get(), token);
        return (text_ && !text_->failed) || failWithoutMemory();
    }

    bool startElement() {
        Boolean ok = !parser_->startElement || parser_->startElement(currentElement(), attributes_.get(), parser_->cbArg);
        if (!ok) printf("tavSxpParse: Start element returned FALSE for %s. line %d of %s\n", currentElement(), line(), file());
        tavListClean(attributes_.get());
        return ok;
    }

    bool endElement() {
        const char *text = text_ ? sbStr(text_.get()) : nullptr;
        Boolean ok = !parser_->endElement || parser_->endElement(currentElement(), text, parser_->cbArg);
        if (!ok) printf("tavSxpParse: End element returned FALSE for %s. line %d of %s\n", currentElement(), line(), file());
        tavListDelete(elements_.get(), tavListGetHead(elements_.get()));
        text_.reset();
        return ok;
    }

    bool go(State next) {
        state_ = next;
        return true;
    }

    TavSXParser *parser_;
    State state_ = Between;
    TavListPtr elements_{tavListCreate(tavFree)}; // names of the open elements, newest first
    TavListPtr attributes_{tavListCreate(destroyPair)};
    TavStringBufferPtr text_; // null: nothing collected
};

} // namespace

TavSXParser *tavSxpCreate(FILE *file, Boolean closeFile) noexcept {
    if (!file) return nullptr;
    TavSXParser *parser = tavNewRecord<TavSXParser>();
    if (!parser) {
        if (closeFile) fclose(file);
        return nullptr;
    }
    parser->parseFile = file;
    parser->closeTraceXMLFile = closeFile;
    parser->parseFilename = tavStrdup("tav-trace.xml");
    parser->lex = tavLexCreate(file);
    if (parser->parseFilename && parser->lex) return parser;
    tavSxpDestroy(parser);
    return nullptr;
}

void tavSxpSetStartFunc(TavSXParser *parser, TavSxpStartElementFcn startElement) noexcept { parser->startElement = startElement; }
void tavSxpSetEndFunc(TavSXParser *parser, TavSxpEndElementFcn endElement) noexcept { parser->endElement = endElement; }
void tavSxpSetCallbackArg(TavSXParser *parser, void *arg) noexcept { parser->cbArg = arg; }
int tavSxpParse(TavSXParser *parser) noexcept { return Run(parser).parse(); }
const char *tavSxpGetFilename(const TavSXParser *parser) noexcept { return parser->parseFilename; }
int tavSxpGetLineNumber(const TavSXParser *parser) noexcept { return tavLexGetLineNumber(parser->lex); }
TavSXLex *tavSxpGetLexer(const TavSXParser *parser) noexcept { return parser->lex; }

void tavSxpDestroy(TavSXParser *parser) noexcept {
    if (!parser) return;
    tavFree(parser->parseFilename);
    if (parser->closeTraceXMLFile) fclose(parser->parseFile);
    tavLexDestroy(parser->lex);
    tavDestroyRecord(parser);
}
