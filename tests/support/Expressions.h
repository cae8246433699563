// Expressions of the rule language, parsed and evaluated in one go.
#ifndef SUPPORT_EXPRESSIONS_H
#define SUPPORT_EXPRESSIONS_H

#include <string>

#include "tavLanguage/tavLanguage.h"
#include "tavTokenizer/tavTokenizer.h"

// One parse: the tree or the error, with what it needs to be evaluated.
struct Parsed {
    Parsed(Language *language, const std::string &text);
    std::string error() const; // "message@position", or "unreduced", or empty
    std::string tree() const;  // as expressionDescribe writes it
    TokenizerPtr tokenizer;
    ExpressionPtr expr;
};

// The value of `text` for `object`: "TRUE"/"FALSE" for other than texts and lists, "'text'", "null", "(list)", "missing", or the parse
// error. Evaluates by value, by cell and by program: where these do not come to the same it is "differs: " and what they come to.
std::string valueOf(Language *language, const std::string &text, void *object);
std::string valueOf(Expression *expr, void *object);

#endif
