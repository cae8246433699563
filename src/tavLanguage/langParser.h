// One parse under way; private to the module.
#ifndef TAVLANGUAGE_LANGPARSER_H
#define TAVLANGUAGE_LANGPARSER_H

#include <string_view>
#include <vector>

#include "tavLanguage/tavLanguage.h"

typedef enum _ElementEntryType : int {
    eet_Unknown = 0,
    eet_OperandInstanceInfo = 1,
    eet_Identifier = 2,
    eet_Expression = 3
} ElementEntryType;

const char *elementEntryTypeToString(ElementEntryType type) noexcept;

// One item of the working list.
typedef struct _ElementEntry {
    ElementEntryType elementType;
    void (*destructor)(void *object); // frees `object`; null once it belongs to someone else
    void *object;                     // an OperandInstanceInfo, a copy of a keyword, or an Expression
} ElementEntry;

// Steps return false to end the parse: the tokenizer then holds the error, or memory ran out. A creator that returns null is taken as a
// refusal, which is no match, even if it was memory that it lacked: langParse drops whatever comes of a parse in which memory ran out.
class LangParser {
public:
    LangParser(Language *language, Tokenizer *tokenizer, void *passback) noexcept
        : language_(language), tokenizer_(tokenizer), passback_(passback) {}
    LangParser(const LangParser &) = delete;
    LangParser &operator=(const LangParser &) = delete;
    ~LangParser();

    Expression *parse(int depth, ExpressionType expectedType); // may throw std::bad_alloc

private:
    // A pair of parentheses, or the whole expression.
    struct Level {
        int depth;
        ExpressionType expectedType;
        size_t firstElement; // where its elements begin in the common list
        TavList *commaList;  // owned; null: no comma list
        bool reduced;        // an operator was reduced here
    };
    // How one type slot of a pattern is going to be filled. Nothing changes before the whole pattern has matched.
    struct PlannedInput {
        ElementEntry *element;
        ExpressionType expectedType;
        Operand *operand;                // for a list or constant beside an operand: that operand
        const SelectableValue *selected; // the literal stands for this value
        Expression *input;               // the expression to take; made at commit for operands and selected values
    };

    // langParse.cpp: tokens and levels
    bool step();
    void openLevel(int depth, ExpressionType expectedType);
    bool closeLevel();
    bool appendConstant(TOKEN_TYPE type);
    bool closeListElement();
    bool startCommaList() noexcept;
    Expression *takeResult(ExpressionType expectedType);
    bool takeList(Expression *last, Expression **result);
    void dropElements(size_t from) noexcept;
    void append(ElementEntryType type, void (*destructor)(void *), void *object); // takes the object, on failure too
    void appendExpression(Expression *expr);
    ExpressionContext *createContext(ExpressionType type) noexcept;
    Expression *createOperandExpression(const OperandInstanceInfo *info, ExpressionType expectedType) noexcept;
    Token *consume() noexcept; // remembers its position and text
    bool fail(const char *message) noexcept;
    bool fail(const char *message, int position) noexcept;
    Level &level() noexcept { return levels_.back(); }
    size_t elementCount() noexcept { return elements_.size() - level().firstElement; }

    // langWord.cpp: keywords and operands with their arguments
    bool appendWord();
    bool appendKeyword(const char *word);
    bool separatedArguments(OperandInstanceInfo *info, const char *word, int fields);
    bool parenthesizedArguments(OperandInstanceInfo *info);
    bool argumentValue(bool first, bool afterComma, const char **value, bool *end);
    bool namedArgument(OperandInstanceInfo *info, const char *name, bool *end);
    bool setArgument(OperandInstanceInfo *info, int slot, std::string_view value) noexcept;

    // langReduce.cpp
    void langReduceCompletely();
    bool langReduceSinglePass();
    Expression *langTryCreateExpression(Operator *op);
    bool match(const Operator *op, ElementEntry *first);
    bool matchExpression(bool first, ExpressionType expected, Operand *operand, ElementEntry *element);
    bool prepareInputs(Operator *op);
    Expression *createReduced(Operator *op) noexcept;
    void discardInputs() noexcept;
    void replaceTail(size_t count, Expression *expr) noexcept;

    Language *language_;
    Tokenizer *tokenizer_;
    void *passback_;
    std::vector<ElementEntry> elements_; // of all levels, outermost first
    std::vector<Level> levels_;
    std::vector<PlannedInput> plan_;
    Expression *result_ = nullptr;
    int position_ = 0;           // of the token in hand
    const char *text_ = nullptr; // its text, gone once an error is recorded
};

#endif
