// A language: a registry of operators and operands, and the parser that turns tokens into an expression by it.
//
// An operator is declared by a pattern of keywords and expected types. The parser appends each token to a flat list of elements and
// reduces the list's tail by the first operator, in registration order, whose pattern fits: there is no precedence. Parentheses nest;
// commas make lists. Registration and parsing must not overlap; any number of threads may parse with one language at a time.
#ifndef TAVLANGUAGE_TAVLANGUAGE_H
#define TAVLANGUAGE_TAVLANGUAGE_H

#include "tavLanguage/tavExpression.h"
#include "tavTokenizer/tavTokenizer.h"

inline constexpr int LANG_MAX_FIELDS = 100; // of one token split at the field separator

struct _Language {
    char *fieldSeparator; // owned; null or empty: tokens are not split
    TavList *operators;   // of Operator, owned, in registration order
    TavList *operands;    // of Operand, owned, in registration order
    TrContext *trCtx;     // borrowed
    TrRecord *trRec;      // borrowed
};

// ---- operators ----

typedef enum _InputElementType : int { IETYPE_UNKNOWN = 0, IETYPE_TOKEN = 1, IETYPE_EXPRTYPE = 2 } InputElementType;

typedef struct _InputElement {
    InputElementType ie_type;
} InputElement;

typedef struct _TokenInputElement {
    InputElement base;
    char *string; // owned; compared without regard to case
} TokenInputElement;

typedef struct _TypeInputElement {
    InputElement base;
    ExpressionType type;
} TypeInputElement;

// Returns a new record that begins with an Expression (zero-filled, from the counted allocator) or null: it then keeps nothing. Takes the
// context's inputs when it returns one.
typedef Expression *(*OperatorCreateExpressionFcn)(Operator *op, OperatorContext *ctx);
typedef Expression *(*OperandCreateExpressionFcn)(Operand *operand, OperandContext *ctx);
// Looks at an expression matched beside the operand; its result changes nothing.
typedef Boolean (*OperandValidateInputFcn)(Operand *operand, Operator *op, Expression *expr);

struct _Operator {
    Evaluable base;
    char *name; // owned; unique in a language without regard to case
    ExpressionType type;
    int numInputElements;
    InputElement **inputElements; // owned
    OperatorCreateExpressionFcn createExpression;
    ExpressionDestructorFcn destroyExpression; // frees the inputs, not the record; may be null
    OperatorCombineFcn combine;                // null: evaluated through `base.evaluate` alone
    OperatorTestFcn test;                      // short form of a comparison; may be null
    bool testsTexts;                           // its inputs are texts
    bool testsMembers;                         // `test` is asked for each member of a list, of its input's type, until one holds
    OperatorLogic logic;                       // short form of AND, OR, NOT
};

InputElement *typeInputElementCreate(ExpressionType type) noexcept;  // returns new
InputElement *tokenInputElementCreate(const char *keyword) noexcept; // returns new; null for null
void inputElementFree(InputElement *element) noexcept;               // null ignored

// Takes the elements (InputElement *), on failure too. Returns new; null for a null name or element and without memory.
Operator *operatorCreate(const char *name, ExpressionType resultType, OperatorCreateExpressionFcn createExpression,
                         ExpressionDestructorFcn destroyExpression, EvaluateFcn evaluate, int numInputElements, ...) noexcept;
// The same from an array, which is borrowed for the call (its elements are taken).
Operator *operatorCreateFromArray(const char *name, ExpressionType resultType, OperatorCreateExpressionFcn createExpression,
                                  ExpressionDestructorFcn destroyExpression, EvaluateFcn evaluate, int numInputElements,
                                  InputElement *const *elements) noexcept;
// Lets the operator be computed without cells. `evaluate` should then be expressionEvaluateAsCell or do the same.
void operatorSetCombine(Operator *op, OperatorCombineFcn combine) noexcept;
// Short forms: each must compute what `combine` does. An operator has one of them or none.
void operatorSetTest(Operator *op, OperatorTestFcn test, bool testsTexts, bool testsMembers) noexcept;
void operatorSetLogic(Operator *op, OperatorLogic logic) noexcept;
void operatorFree(Operator *op) noexcept; // null ignored

// ---- operands ----

typedef enum _FormalArgType : int { ARG_BOOLEAN = 0, ARG_INT = 1, ARG_LONG = 2, ARG_STRING = 3, ARG_SELECTABLEVALUE = 4 } FormalArgType;

// A named constant that a string literal beside an integer operand may stand for.
typedef struct _SelectableValue {
    char *string; // owned
    char *key;    // owned
    int32_t intValue;
} SelectableValue;

typedef struct _FormalArg {
    char *name; // owned; matched without regard to case in the named form
    FormalArgType fat;
    char *defaultValue; // owned; may be null
    int numSelectableValues;
    SelectableValue **selectableValues; // owned
} FormalArg;

struct _Operand {
    Evaluable base;
    char *name; // owned; the word in rules; unique in a language without regard to case
    int numSelectableValues;
    SelectableValue **selectableValues; // owned
    int numFormalArgs;
    FormalArg **formalArgs;                // owned; in positional order
    OperandValidateInputFcn validateInput; // null: every input is valid
    OperandCreateExpressionFcn createExpression;
    ExpressionDestructorFcn destroyExpression; // may be null
    int numReturnTypes;
    ExpressionType *returnTypes;  // owned
    OperandValueFcn evaluateInto; // null: evaluated through `base.evaluate` alone
    OperandPeekFcn peek;          // short form; may be null
    OperandTruth truth;           // what every evaluation delivers, if it always delivers the same
};

SelectableValue *selectableValueCreate(const char *string, int32_t intValue) noexcept;   // returns new; the key is the string
SelectableValue *selectableValueStrCreate(const char *string, const char *key) noexcept; // returns new
void selectableValueFree(SelectableValue *value) noexcept;                               // null ignored
const char *selectableValueGetString(const SelectableValue *value) noexcept;             // borrowed; null for null
int32_t selectableValueGetIntValue(const SelectableValue *value) noexcept;               // -1 for null

// In both: the arrays are borrowed for the call (null with a count of 0), their elements are taken, on failure too; a null element is a
// failure. Return new; null for a null name and without memory.
FormalArg *formalArgCreate(const char *name, FormalArgType fat, const char *defaultValue, int numSelectableValues,
                           SelectableValue *const *selectableValues) noexcept;
// After `numReturnTypes` come that many ExpressionType.
Operand *operandCreate(const char *name, int numSelectableValues, SelectableValue *const *selectableValues, int numFormalArgs,
                       FormalArg *const *formalArgs, OperandCreateExpressionFcn createExpression, ExpressionDestructorFcn destroyExpression,
                       EvaluateFcn evaluate, OperandValidateInputFcn validateInput, int numReturnTypes, ...) noexcept;
// Lets the operand be computed without cells; see OperandValueFcn.
void operandSetEvaluateInto(Operand *operand, OperandValueFcn evaluateInto) noexcept;
// Short forms: each must agree with `evaluateInto`.
void operandSetPeek(Operand *operand, OperandPeekFcn peek) noexcept;
void operandSetTruth(Operand *operand, OperandTruth truth) noexcept;
void formalArgFree(FormalArg *arg) noexcept;                 // null ignored
void operandFree(Operand *operand) noexcept;                 // null ignored
const char *operandGetName(const Operand *operand) noexcept; // borrowed
int operandGetNumReturnTypes(const Operand *operand) noexcept;
const ExpressionType *operandGetReturnTypes(const Operand *operand) noexcept; // borrowed
Boolean operandReturnsType(const Operand *operand, ExpressionType type) noexcept;

// An operand as it was written, not yet bound to an expected type.
typedef struct _OperandInstanceInfo {
    Operand *operand;       // borrowed
    int numActualArguments; // given ones
    char **actualArguments; // owned; one slot for each formal argument, null when not given
} OperandInstanceInfo;

Operand *operandInstanceInfoGetOperand(const OperandInstanceInfo *info) noexcept;
int operandInstanceInfoGetNumActualArgs(const OperandInstanceInfo *info) noexcept;
char **operandInstanceInfoGetActualArgs(const OperandInstanceInfo *info) noexcept;                // borrowed
const char *operandInstanceInfoGetActualArg(const OperandInstanceInfo *info, int index) noexcept; // borrowed; null outside

// ---- the language ----

Language *langCreate(TrContext *trCtx, TrRecord *trRec) noexcept;         // separator "$"; returns new; null without memory
void langFree(Language *language) noexcept;                               // frees its operators and operands; null ignored
void langSetFieldSeparator(Language *language, const char *sep) noexcept; // stores a copy; null clears it
const char *langGetFieldSeparator(const Language *language) noexcept;     // borrowed
// Append; take the object. One whose name is taken is reported on standard error and freed (unless it is the very one registered). A null
// argument: nothing happens, nothing is taken.
void langRegisterOperator(Language *language, Operator *op) noexcept;
void langRegisterOperand(Language *language, Operand *operand) noexcept;
Operator *langFindOperator(const Language *language, const char *name) noexcept; // borrowed; any case; null when absent
Operand *langFindOperand(const Language *language, const char *name) noexcept;   // borrowed; any case; null when absent
// 1 when `text` is a keyword of some operator's pattern (any case).
int langTokenIsOperator(const Language *language, const char *text) noexcept;

// Parses the tokens from the cursor on. Rules pass depth 0, EXPR_BOOLEAN and a null passback; the passback goes into every context. The
// root's type is not compared with `expectedType`. Returns new; null with tokenizerIsError() set (message, position and indicator are in
// the tokenizer; when its outOfMemory is set, memory ran out and nothing is known about the text), or null with the tokenizer clear when
// the text does not reduce to one expression. Not recursive: any depth of parentheses will do. The tree keeps nothing of the tokenizer.
Expression *langParse(Language *language, Tokenizer *tokenizer, int depth, ExpressionType expectedType, void *passback) noexcept;

struct LanguageDeleter {
    void operator()(Language *language) const noexcept { langFree(language); }
};
using LanguagePtr = std::unique_ptr<Language, LanguageDeleter>;

#endif
