// Expressions: the nodes of a parsed rule, the context each was made in, and their evaluation against one request.
//
// A tree is built by the parser, then only read: any number of threads may evaluate it, each with its own EvaluationContext.
// Every node can be evaluated in two ways with the same result:
//   cell     expressionEvaluate() returns a new cell of one machine word (see EvaluateFcn). Every operator and operand has it.
//   value    expressionEvaluateInto() fills an ExpressionValue on the caller's stack. Operators with `combine` and operands with
//            `evaluateInto` (tavLanguage.h) are computed without allocation, trees of any depth without recursion; others through their
//            cell.
//
// Writing an operand: write one OperandValueFcn, pass `operandEvaluateAsCell<thatFunction>` as its evaluate function to operandCreate, and
// operandSetEvaluateInto(operand, thatFunction). Or write an EvaluateFcn alone: everything works, at the cost of one allocation or two.
#ifndef TAVLANGUAGE_TAVEXPRESSION_H
#define TAVLANGUAGE_TAVEXPRESSION_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "tavInstance/tavInstance.h"
#include "tavList/tavList.h"
#include "tavUtil/tavStringBuffer.h"
#include "tr/tr.h"

typedef struct _Expression Expression;
typedef struct _ExpressionContext ExpressionContext;
typedef struct _OperatorContext OperatorContext;
typedef struct _OperandContext OperandContext;
typedef struct _EvaluationContext EvaluationContext;
typedef struct _Operator Operator;
typedef struct _Operand Operand;

typedef enum _ExpressionType : int {
    EXPR_UNKNOWN = 0,
    EXPR_BOOLEAN = 1,
    EXPR_INT = 2,
    EXPR_LONG = 3,
    EXPR_STRING = 4,
    EXPR_LIST = 5
} ExpressionType;

typedef enum _ExpressionEmbodiment : int { EXPR_IS_CONSTANT = 0, EXPR_IS_OPERATOR = 1, EXPR_IS_OPERAND = 2 } ExpressionEmbodiment;

const char *expressionTypeToString(ExpressionType type) noexcept; // the enumerator's name; "EXPR_UNKNOWN" for any other value

// Writes a line break, "** TAV_ERROR(" module "): " and the text to standard error: what should not happen in the rule language.
void langReportError(const char *module, const char *format, ...) noexcept __attribute__((format(printf, 2, 3)));

// ---- values ----

// Returns a new cell: 1 or 0 for EXPR_BOOLEAN, the number for EXPR_INT and EXPR_LONG, a new text (or null: no value) for EXPR_STRING, the
// list itself for EXPR_LIST. Null when nothing could be evaluated at all (a null context, a host that has no answer). The caller frees a
// text in it, then the cell, with expressionCellFree; never a list. A cell is always one whole intptr_t: no narrower access.
typedef intptr_t *(*EvaluateFcn)(Expression *expr, EvaluationContext *evalCtx);

intptr_t *expressionCellCreate(intptr_t word) noexcept;        // returns new; null without memory
intptr_t *expressionCellCreateText(const char *text) noexcept; // a cell with a copy (null: a cell that holds null); null without memory
// Frees a cell that `expr` delivered, with the text in it when it holds one. Null cell ignored.
void expressionCellFree(const Expression *expr, intptr_t *cell) noexcept;

// What an evaluation really delivered. The type of a context does not tell: an operand in parentheses is typed EXPR_LIST, an operand as a
// whole rule EXPR_BOOLEAN, whatever it delivers.
typedef enum ExpressionValueKind : unsigned char {
    VALUE_MISSING, // no cell
    VALUE_WORD,    // a boolean or a number
    VALUE_TEXT,    // a text in `word`; may be null: no value
    VALUE_LIST     // the TavList of a list expression in `word`
} ExpressionValueKind;

// Plain storage without constructor: set it with the functions below before it is read; clear it once.
typedef struct ExpressionValue {
    intptr_t word;
    ExpressionValueKind kind;
    bool owned; // VALUE_TEXT: clear frees it
} ExpressionValue;

inline void expressionValueSetMissing(ExpressionValue *value) noexcept { *value = {0, VALUE_MISSING, false}; }
inline void expressionValueSetWord(ExpressionValue *value, intptr_t word) noexcept { *value = {word, VALUE_WORD, false}; }
// Borrows `text` (null: no value) until the value is cleared.
inline void expressionValueBorrowText(ExpressionValue *value, const char *text) noexcept {
    *value = {reinterpret_cast<intptr_t>(text), VALUE_TEXT, false};
}
// Takes `text` (from the counted allocator; null: no value).
inline void expressionValueTakeText(ExpressionValue *value, char *text) noexcept {
    *value = {reinterpret_cast<intptr_t>(text), VALUE_TEXT, text != nullptr};
}
// Copies `text` (null: no value) into the context's scratch room or, when that is full, counted memory. Without memory: missing.
// Use it for texts of the host: they may be gone after the next call of the host.
void expressionValueSetText(ExpressionValue *value, EvaluationContext *evalCtx, const char *text) noexcept;
// The same for a text of `text.size()` bytes; never a null text.
void expressionValueSetTextView(ExpressionValue *value, EvaluationContext *evalCtx, std::string_view text) noexcept;
// The text; null when it has none or is of another kind. Borrowed until the value is cleared and, for a copy, the context goes.
inline const char *expressionValueGetText(const ExpressionValue *value) noexcept {
    return value->kind == VALUE_TEXT ? reinterpret_cast<const char *>(value->word) : nullptr;
}
// Frees what it owns and makes it missing.
void expressionValueClear(ExpressionValue *value) noexcept;

// Computes an operand's value. `evalCtx` is never null. Sets `*result` always.
typedef void (*OperandValueFcn)(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result);
// Computes an operator's value from its `expr`'s inputs, which were evaluated in pattern order and are cleared afterwards by the caller.
typedef void (*OperatorCombineFcn)(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result);
inline constexpr int OPERATOR_MAX_COMBINED_INPUTS = 4; // an operator with more is evaluated through its cell

// ---- short forms, for conditionProgram.h ----

// Shows an operand's value without copying it: a number, or a text (may be null) that is good until the next operand is asked. `argument`
// is the operand's first argument, null without one. FALSE: the value is missing. Shows what the operand's OperandValueFcn delivers.
typedef Boolean (*OperandPeekFcn)(const char *argument, const EvaluationContext *evalCtx, intptr_t *word);
// The verdict of an operator with two inputs that are numbers, or texts (either may be null), none of them missing.
typedef Boolean (*OperatorTestFcn)(intptr_t left, intptr_t right);
// An operator that joins truths to a truth.
typedef enum OperatorLogic : unsigned char { LOGIC_NONE, LOGIC_AND, LOGIC_OR, LOGIC_NOT } OperatorLogic;
// What is known of an operand's truth before it is asked.
typedef enum OperandTruth : unsigned char { TRUTH_DEPENDS, TRUTH_ALWAYS, TRUTH_NEVER } OperandTruth;

// ---- expressions ----

typedef struct _Evaluable {
    EvaluateFcn evaluate;
} Evaluable;

typedef void (*ExpressionDestructorFcn)(Expression *expr);

// The head of every expression record.
struct _Expression {
    Evaluable base;
    ExpressionDestructorFcn destructor; // releases the kind's own part; may be null
    ExpressionEmbodiment embodiment;
    ExpressionContext *exprCtx; // owned
    char *errorMessage;         // owned; null: no error
    Expression *nextToFree;     // links what expressionFree has still to free
    int height;                 // operators below it on the longest path, itself included; 0 for leaves
};

typedef struct _BooleanConstantExpression {
    Expression base;
    Boolean value;
} BooleanConstantExpression;

typedef struct _IntegerConstantExpression {
    Expression base;
    int32_t value;
} IntegerConstantExpression;

typedef struct _LongConstantExpression {
    Expression base;
    long value;
} LongConstantExpression;

typedef struct _StringConstantExpression {
    Expression base;
    char *value; // owned; may be null
} StringConstantExpression;

typedef struct _ListExpression {
    Expression base;
    TavList *value; // owned; of expressions
} ListExpression;

// Views of the expressions that an operator's or operand's createExpression makes; their own records extend the head in another way.
typedef struct _OperatorExpression {
    Expression base;
    Operator *operator_;
} OperatorExpression;

typedef struct _OperandExpression {
    Expression base;
    Operand *operand;
} OperandExpression;

// Constants. Each takes `ctx` (and sets its type) and returns new; null without memory or for a null context, the context then stays the
// caller's. A list owns its members.
Expression *booleanConstantExpressionCreate(ExpressionContext *ctx) noexcept;
Expression *integerConstantExpressionCreate(ExpressionContext *ctx) noexcept;
Expression *longConstantExpressionCreate(ExpressionContext *ctx) noexcept;
Expression *stringConstantExpressionCreate(ExpressionContext *ctx) noexcept;
Expression *listExpressionCreate(ExpressionContext *ctx) noexcept;

// The expression must be a constant of that kind; a null expression is ignored (getters: 0 or null).
void expressionSetBooleanValue(Expression *expr, Boolean value) noexcept;
void expressionSetIntegerValue(Expression *expr, int32_t value) noexcept;
void expressionSetLongValue(Expression *expr, long value) noexcept;
Boolean expressionSetStringValue(Expression *expr, const char *value) noexcept; // stores a copy; FALSE without memory
void expressionSetListValue(Expression *expr, TavList *value) noexcept;         // takes the list; its destructor frees the members
Boolean expressionGetBooleanValue(const Expression *expr) noexcept;
int32_t expressionGetIntegerValue(const Expression *expr) noexcept;
long expressionGetLongValue(const Expression *expr) noexcept;
const char *expressionGetStringValue(const Expression *expr) noexcept; // borrowed
TavList *expressionGetListValue(const Expression *expr) noexcept;      // borrowed

// TRUE only for what listExpressionCreate made; never trust the type EXPR_LIST alone.
Boolean expressionIsList(const Expression *expr) noexcept;
// What this expression's evaluation delivers when it delivers anything (not VALUE_MISSING). Operands: by the declared return type, the
// first one when the expected type is not among them; one declared EXPR_LIST delivers a text.
ExpressionValueKind expressionGetValueKind(const Expression *expr) noexcept;

// Make the expression of an operator or operand by its createExpression. Take `ctx` on success; return new. Null (and `ctx` still the
// caller's) when the creator is missing or returns null.
Expression *operatorCreateExpression(Operator *op, OperatorContext *ctx) noexcept;
Expression *operandCreateExpression(Operand *operand, OperandContext *ctx) noexcept;

// Frees the whole tree. Null ignored. A destructor frees its inputs by calling this again; that only queues them, so that no depth of
// nesting costs stack.
void expressionFree(Expression *expr) noexcept;

void expressionSetError(Expression *expr, const char *message) noexcept; // keeps a copy, replaces an earlier one
void expressionClearError(Expression *expr) noexcept;
int expressionIsError(const Expression *expr) noexcept;                 // 1 for null
const char *expressionGetErrorMessage(const Expression *expr) noexcept; // borrowed; null without

ExpressionType expressionGetType(const Expression *expr) noexcept; // the context's; EXPR_UNKNOWN for null
Language *expressionGetLanguage(const Expression *expr) noexcept;  // borrowed
void *expressionGetPassback(const Expression *expr) noexcept;
ExpressionContext *expressionGetContext(const Expression *expr) noexcept; // borrowed
void evaluableSetEvaluate(Evaluable *evaluable, EvaluateFcn evaluate) noexcept;
EvaluateFcn evaluableGetEvaluateFcn(const Evaluable *evaluable) noexcept;

// A new cell, or null (see EvaluateFcn). Null for a null argument.
intptr_t *expressionEvaluate(Expression *expr, EvaluationContext *evalCtx) noexcept;
// The same as a value; missing for a null argument. The caller clears `*result`; a text in it is valid until then and while `evalCtx`
// lives.
void expressionEvaluateInto(Expression *expr, EvaluationContext *evalCtx, ExpressionValue *result) noexcept;
// The cell of expressionEvaluateInto: the evaluate function of operators that have `combine`.
intptr_t *expressionEvaluateAsCell(Expression *expr, EvaluationContext *evalCtx) noexcept;
// A new cell from a value, which it clears. Null for a missing one or without memory.
intptr_t *expressionCellFromValue(ExpressionValue *value) noexcept;
// TRUE when the delivered word is not 0: the verdict of a rule whose root is `expr`, of whatever type.
Boolean expressionIsTrue(Expression *expr, EvaluationContext *evalCtx) noexcept;

// The evaluate function of an operand with this value function.
template <OperandValueFcn valueFcn>
intptr_t *operandEvaluateAsCell(Expression *expr, EvaluationContext *evalCtx) noexcept {
    if (!expr || !evalCtx) return nullptr;
    ExpressionValue value;
    valueFcn(expr, evalCtx, &value);
    return expressionCellFromValue(&value);
}

struct ExpressionDeleter {
    void operator()(Expression *expr) const noexcept { expressionFree(expr); }
};
using ExpressionPtr = std::unique_ptr<Expression, ExpressionDeleter>;

// ---- looking at a tree ----

typedef enum ExpressionNodeKind : int { NODE_CONSTANT, NODE_LIST, NODE_OPERATOR, NODE_OPERAND } ExpressionNodeKind;

// One node as a walk shows it; everything is borrowed for the call.
typedef struct ExpressionNode {
    const Expression *expr;
    ExpressionNodeKind kind;
    ExpressionType type;     // of a string constant EXPR_STRING, and so on
    const char *name;        // operator's or operand's name; a constant's value as text; "list"
    int level;               // 0 for the root
    int numChildren;         // an operator's inputs, a list's members
    int numArgs;             // an operand's arguments
    const char *const *args; // numArgs texts
} ExpressionNode;

typedef void (*ExpressionVisitFcn)(const ExpressionNode *node, void *passback);

// Visits every node, parents before children, children in order. FALSE without memory or for a null argument.
Boolean expressionWalk(const Expression *expr, ExpressionVisitFcn visit, void *passback) noexcept;
// Appends the tree on one line, as in: AND(StringEqualsString(uri, "/a"), IntEqualsInt(port, 80)); operands with arguments as
// queryparm("name"), lists as ["a", "b"]. FALSE without memory.
Boolean expressionDescribe(const Expression *expr, TavStringBuffer *sb) noexcept;

// ---- expression contexts (made while parsing) ----

typedef enum _ExpressionContextType : int { EXPRCTX_OPERATOR = 0, EXPRCTX_OPERAND = 1 } ExpressionContextType;

typedef void (*ExpressionContextDestructorFcn)(ExpressionContext *ctx);

struct _ExpressionContext {
    ExpressionType type;               // an operator's result type; for an operand the type that was expected where it stands
    ExpressionContextType exprCtxType; // not meaningful for constants
    void *passback;
    Language *language;                        // borrowed
    ExpressionContextDestructorFcn destructor; // releases the kind's own part; may be null
    int depth;                                 // of parentheses; 0 outside
    int32_t exprPos;                           // of the token that completed the expression
    const char *exprString; // that token's text, borrowed from the tokenizer while the expression is made; null in a finished tree
};

struct _OperatorContext {
    ExpressionContext expressionContext;
    Operator *operator_; // borrowed
    int numInputs;
    Expression **inputs; // the array is owned, the expressions belong to the operator's expression
};

struct _OperandContext {
    ExpressionContext expressionContext;
    int numActualArgs; // arguments given
    char **actualArgs; // owned texts by formal position; a slot not given is null
    Operand *operand;  // borrowed; set by operandCreateExpression
};

// Return new; null without memory. Texts are borrowed as said at exprString.
ExpressionContext *expressionContextCreate(ExpressionType type, ExpressionContextDestructorFcn destructor, void *passback,
                                           Language *language, int depth, int position, const char *text) noexcept;
// Copies the arguments.
OperandContext *operandContextCreate(ExpressionType expectedType, int depth, Language *language, void *passback, int numArgs,
                                     const char *const *args, int position, const char *text) noexcept;
// Moves the expressions of `inputList` into the context in order; on null the list is as it was.
OperatorContext *operatorContextCreate(Operator *op, int depth, Language *language, void *passback, TavList *inputList, int position,
                                       const char *text) noexcept;
// Runs the context's destructor and releases it; an operator context only forgets its inputs. Null ignored.
void expressionContextFree(ExpressionContext *ctx) noexcept;

ExpressionType expressionContextGetType(const ExpressionContext *ctx) noexcept; // EXPR_UNKNOWN for null
void *expressionContextGetPassback(const ExpressionContext *ctx) noexcept;
Language *expressionContextGetLanguage(const ExpressionContext *ctx) noexcept;
int operatorContextGetNumInputs(const OperatorContext *ctx) noexcept;                // 0 for null
Expression *operatorContextGetInput(const OperatorContext *ctx, int index) noexcept; // borrowed; null outside
// The number of arguments given (below the formal number when a slot was left out: a creator that needs all of them refuses).
int operandContextGetNumArguments(const OperandContext *ctx) noexcept;                // 0 for null
const char *operandContextGetArgument(const OperandContext *ctx, int index) noexcept; // borrowed from the context; null outside

struct ExpressionContextDeleter {
    void operator()(ExpressionContext *ctx) const noexcept { expressionContextFree(ctx); }
};
using ExpressionContextPtr = std::unique_ptr<ExpressionContext, ExpressionContextDeleter>;

// ---- evaluation context (one request) ----

typedef struct _EvaluationContextProp {
    char *name;
    void *val; // owned by the context, released with tavFree
} EvaluationContextProp;

inline constexpr size_t EVALUATION_SCRATCH_SIZE = 512; // bytes

// Used by one thread at a time.
struct _EvaluationContext {
    void *object;          // what the operands read from; borrowed
    TavList *properties;   // of EvaluationContextProp; null until the first is set
    TrContext *trCtx;      // borrowed
    TrRecord *trRec_Debug; // "http.request.rules.process"; null: no debug lines
    size_t scratchUsed;    // bytes of `scratch` that values of the evaluation under way lie in
    char scratch[EVALUATION_SCRATCH_SIZE];
};

// Looks the debug record up in the context's manager (null context: none). Returns new; null without memory.
EvaluationContext *evaluationContextCreate(TrContext *trCtx, void *object) noexcept;
void evaluationContextFree(EvaluationContext *ctx) noexcept; // frees the properties with their values; null ignored
// The same on the caller's storage and with the record at hand: nothing is looked up or allocated. Pairs with evaluationContextClear.
void evaluationContextInit(EvaluationContext *ctx, TrContext *trCtx, TrRecord *debugRecord, void *object) noexcept;
void evaluationContextClear(EvaluationContext *ctx) noexcept;

void *evaluationContextGetObject(const EvaluationContext *ctx) noexcept; // null for null
TrContext *evaluationContextGetTrContext(const EvaluationContext *ctx) noexcept;
TrRecord *evaluationContextGetTrRecord(const EvaluationContext *ctx) noexcept;

// Sets a property (name case-sensitive, copied; takes `val`, from the counted allocator) and frees the value it replaces, unless it is the
// same pointer. Returns the property, borrowed; null for a null context or name and without memory, `val` then stays the caller's.
EvaluationContextProp *evaluationContextSetProp(EvaluationContext *ctx, const char *name, void *val) noexcept;
TavListEle *evaluationContextFindProp(const EvaluationContext *ctx, const char *name) noexcept; // null name: the first entry
void *evaluationContextFindPropVal(const EvaluationContext *ctx, const char *name) noexcept;    // borrowed
const char *evaluationContextPropGetName(const EvaluationContextProp *prop) noexcept;
void *evaluationContextPropGetValue(const EvaluationContextProp *prop) noexcept;
void evaluationContextPropDestroy(EvaluationContextProp *prop) noexcept; // frees the name and the property, not the value

// A debug line of an evaluation: tests, then emits.
#define EVALUATION_DEBUG(evalCtx, ...)                                                               \
    do {                                                                                             \
        if ((evalCtx)->trRec_Debug) TR_DEBUG((evalCtx)->trCtx, (evalCtx)->trRec_Debug, __VA_ARGS__); \
    } while (0)

#endif
