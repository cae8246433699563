// The common operators: one table of patterns, a few templates that compute.
//
// Every operator computes its value from the values of its inputs, all of which were evaluated; none looks at its input expressions, but
// for the members of a list. An input that is missing altogether makes a boolean operator false, without an error. What arrives is judged
// by its real kind: a text where a list is expected (an operand declared as a list) has no members.
// Ownership: an operator's expression owns its inputs; the values belong to the evaluation.
#include <cstring>
#include <functional>

#include "tavCommonLanguage/tavCommonLanguage.h"
#include "tavUtil/tavString.h"

namespace {

// A text as a template argument.
template <size_t size>
struct Format {
    char text[size];
    constexpr Format(const char (&source)[size]) noexcept { // NOLINT: meant to convert
        for (size_t i = 0; i < size; ++i) text[i] = source[i];
    }
};

const char *truthText(bool truth) noexcept { return truth ? "TRUE" : "FALSE"; }

// TRUE, and a false result, when an input is missing.
bool lacksInput(const Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) noexcept {
    const auto *ctx = reinterpret_cast<const OperatorContext *>(expr->exprCtx);
    for (int i = 0; i < ctx->numInputs; ++i) {
        if (inputs[i].kind != VALUE_MISSING) continue;
        EVALUATION_DEBUG(evalCtx, "%s: INTERNAL ERROR: NULL parameter!", ctx->operator_->name);
        expressionValueSetWord(result, 0);
        return true;
    }
    return false;
}

// ---- numbers and booleans: whole words are compared ----

template <typename Compare, Format format>
void compareInts(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const bool truth = Compare()(inputs[0].word, inputs[1].word);
    EVALUATION_DEBUG(evalCtx, format.text, static_cast<int>(inputs[0].word), static_cast<int>(inputs[1].word), truthText(truth));
    expressionValueSetWord(result, truth);
}

template <typename Compare>
Boolean testInts(intptr_t left, intptr_t right) {
    return Compare()(left, right);
}

template <typename Compute, Format format>
void computeBooleans(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const bool left = inputs[0].word != 0;
    const bool right = inputs[1].word != 0;
    const bool truth = Compute()(left, right);
    EVALUATION_DEBUG(evalCtx, format.text, truthText(left), truthText(right), truthText(truth));
    expressionValueSetWord(result, truth);
}

void negate(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const bool truth = inputs[0].word == 0;
    EVALUATION_DEBUG(evalCtx, "operatorEvaluate_NOT (%s) --> %s", truthText(!truth), truthText(truth));
    expressionValueSetWord(result, truth);
}

void isBetween(Expression *, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    expressionValueSetWord(result, 0);
    for (int i = 0; i < 3; ++i) {
        if (inputs[i].kind != VALUE_MISSING) continue;
        EVALUATION_DEBUG(evalCtx, "IntBetweenInt got NULLPARM\n");
        return;
    }
    const intptr_t value = inputs[0].word, low = inputs[1].word, high = inputs[2].word;
    const bool truth = low <= value && value <= high;
    EVALUATION_DEBUG(evalCtx, "IntBetweenInt %d<=%d<=%d --> %s\n", static_cast<int>(low), static_cast<int>(value), static_cast<int>(high),
                     truthText(truth));
    expressionValueSetWord(result, truth);
}

// ---- texts: a null one makes any comparison false ----

struct SameText {
    bool operator()(const char *a, const char *b) const noexcept { return std::strcmp(a, b) == 0; }
};
struct OtherText {
    bool operator()(const char *a, const char *b) const noexcept { return std::strcmp(a, b) != 0; }
};
struct SameTextAnyCase {
    bool operator()(const char *a, const char *b) const noexcept { return tavStrCmpIgnoreCase(a, b) == 0; }
};
template <bool caseSensitive>
struct LikeText {
    bool operator()(const char *a, const char *b) const noexcept { return wildcardTextCompare(a, b, caseSensitive); }
};

template <typename Compare, Format format>
void compareTexts(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const char *left = expressionValueGetText(&inputs[0]);
    const char *right = expressionValueGetText(&inputs[1]);
    const bool truth = left && right && Compare()(left, right);
    EVALUATION_DEBUG(evalCtx, format.text, static_cast<const void *>(left), tavOrNull(left), static_cast<const void *>(right),
                     tavOrNull(right), truthText(truth));
    expressionValueSetWord(result, truth);
}

template <typename Compare>
Boolean testTexts(intptr_t left, intptr_t right) {
    return left && right && Compare()(reinterpret_cast<const char *>(left), reinterpret_cast<const char *>(right));
}

void concatenate(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return expressionValueBorrowText(result, nullptr);
    const char *left = expressionValueGetText(&inputs[0]);
    const char *right = expressionValueGetText(&inputs[1]);
    char *joined = left && right ? tavStrJoin(left, right) : nullptr;
    EVALUATION_DEBUG(evalCtx, "StringConcatString: [%p]%s+[%p]%s -> %s", static_cast<const void *>(left), tavOrNull(left),
                     static_cast<const void *>(right), tavOrNull(right), tavOrNull(joined));
    expressionValueTakeText(result, joined);
}

// ---- lists ----

const TavList *listOf(const ExpressionValue &value) noexcept {
    return value.kind == VALUE_LIST ? reinterpret_cast<const TavList *>(value.word) : nullptr;
}

// Does `holds` say yes to the value of some member of this type? Stops at the first.
template <typename Holds>
bool someMember(const ExpressionValue &list, ExpressionType type, EvaluationContext *evalCtx, Holds holds) noexcept {
    for (Expression *member : TavListRange<Expression>(listOf(list))) {
        if (expressionGetType(member) != type) continue;
        ExpressionValue value;
        expressionEvaluateInto(member, evalCtx, &value);
        const bool found = value.kind != VALUE_MISSING && holds(value);
        expressionValueClear(&value);
        if (found) return true;
    }
    return false;
}

template <typename Compare, Format format>
void textInList(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const char *text = expressionValueGetText(&inputs[0]);
    const bool truth = text && someMember(inputs[1], EXPR_STRING, evalCtx, [text](const ExpressionValue &member) {
                           const char *memberText = expressionValueGetText(&member);
                           return memberText && Compare()(text, memberText);
                       });
    EVALUATION_DEBUG(evalCtx, format.text, tavOrNull(text), truthText(truth));
    expressionValueSetWord(result, truth);
}

void intInList(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const intptr_t number = inputs[0].word;
    const bool truth = someMember(inputs[1], EXPR_INT, evalCtx, [number](const ExpressionValue &member) { return member.word == number; });
    EVALUATION_DEBUG(evalCtx, "EXIT: operatorEvaluate_INTINLIST: %d IN (list) --> %s", static_cast<int>(number), truthText(truth));
    expressionValueSetWord(result, truth);
}

// ---- null tests ----

// A list without members is null; so is a null text, wherever it stands.
bool isNullValue(const ExpressionValue &value) noexcept {
    const TavList *list = listOf(value);
    return list ? tavListIsEmpty(list) : value.word == 0;
}

template <bool wanted, Format format>
void testNull(Expression *expr, EvaluationContext *evalCtx, const ExpressionValue *inputs, ExpressionValue *result) {
    if (lacksInput(expr, evalCtx, inputs, result)) return;
    const char *text = expressionValueGetText(&inputs[0]);
    EVALUATION_DEBUG(evalCtx, format.text, inputs[0].kind == VALUE_LIST ? "(list)" : tavOrNull(text));
    expressionValueSetWord(result, isNullValue(inputs[0]) == wanted);
}

// ---- the table ----

struct PatternElement {
    ExpressionType type; // EXPR_UNKNOWN: a keyword
    const char *keyword;
};
constexpr PatternElement BOOLEAN_{EXPR_BOOLEAN, nullptr}, INT_{EXPR_INT, nullptr}, STRING_{EXPR_STRING, nullptr}, LIST_{EXPR_LIST, nullptr};
constexpr PatternElement word(const char *keyword) noexcept { return {EXPR_UNKNOWN, keyword}; }

constexpr int maxPattern = 5;

struct CommonOperator {
    const char *name;
    PatternElement pattern[maxPattern]; // ends at the first element that is neither type nor keyword
    OperatorCombineFcn combine;
    ExpressionType result = EXPR_BOOLEAN;
    OperatorTestFcn test = nullptr; // short form, like `logic`
    OperatorLogic logic = LOGIC_NONE;
};

constexpr CommonOperator commonOperators[] = {
    {.name = "IntEqualsInt",
     .pattern = {INT_, word("="), INT_},
     .combine = compareInts<std::equal_to<>, "IntEqualsInt %d=%d --> %s\n">,
     .test = testInts<std::equal_to<>>},
    {.name = "IntNotEqualsInt",
     .pattern = {INT_, word("<>"), INT_},
     .combine = compareInts<std::not_equal_to<>, "IntNotEqualsInt %d<>%d --> %s\n">,
     .test = testInts<std::not_equal_to<>>},
    {.name = "StringEqualsString",
     .pattern = {STRING_, word("="), STRING_},
     .combine = compareTexts<SameText, "StringEqualsString: [%p]%s=[%p]%s -> %s">,
     .test = testTexts<SameText>},
    {.name = "StringEqualsIgnoreCaseString",
     .pattern = {STRING_, word("EQUALSIGNORECASE"), STRING_},
     .combine = compareTexts<SameTextAnyCase, "StringEqualsIgnoreCaseString: [%p]%s=[%p]%s -> %s">,
     .test = testTexts<SameTextAnyCase>},
    {.name = "StringNotEqualsString",
     .pattern = {STRING_, word("<>"), STRING_},
     .combine = compareTexts<OtherText, "StringNotEqualsString: [%p]%s<>[%p]%s -> %s">,
     .test = testTexts<OtherText>},
    {.name = "StringLikeString",
     .pattern = {STRING_, word("LIKE"), STRING_},
     .combine = compareTexts<LikeText<true>, "StringLikeString: [%p]%s LIKE [%p]%s -> %s">,
     .test = testTexts<LikeText<true>>},
    {.name = "StringLikeIgnoreCaseString",
     .pattern = {STRING_, word("LIKEIGNORECASE"), STRING_},
     .combine = compareTexts<LikeText<false>, "StringLikeIgnoreCaseString: [%p]%s LIKEIGNORECASE [%p]%s -> %s">,
     .test = testTexts<LikeText<false>>},
    {.name = "BooleanEqualsBoolean",
     .pattern = {BOOLEAN_, word("="), BOOLEAN_},
     .combine = computeBooleans<std::equal_to<>, "BooleanEqualsBoolean %s=%s --> %s\n">},
    {.name = "BooleanNotEqualsBoolean",
     .pattern = {BOOLEAN_, word("<>"), BOOLEAN_},
     .combine = computeBooleans<std::not_equal_to<>, "BooleanNotEqualsBoolean %s<>%s --> %s\n">},
    {.name = "IntGreaterthanInt",
     .pattern = {INT_, word(">"), INT_},
     .combine = compareInts<std::greater<>, "IntGreaterthanInt %d>%d --> %s\n">,
     .test = testInts<std::greater<>>},
    {.name = "IntLessthanInt",
     .pattern = {INT_, word("<"), INT_},
     .combine = compareInts<std::less<>, "IntLessthanInt %d<%d --> %s\n">,
     .test = testInts<std::less<>>},
    {.name = "IntGreaterthanEqualToInt",
     .pattern = {INT_, word(">="), INT_},
     .combine = compareInts<std::greater_equal<>, "IntGreaterthanEqualToInt %d>=%d --> %s\n">,
     .test = testInts<std::greater_equal<>>},
    {.name = "IntLessthanEqualToInt",
     .pattern = {INT_, word("<="), INT_},
     .combine = compareInts<std::less_equal<>, "IntLessthanEqualToInt %d<=%d --> %s\n">,
     .test = testInts<std::less_equal<>>},
    {.name = "IntBetweenInt", .pattern = {INT_, word("BETWEEN"), INT_, word("AND"), INT_}, .combine = isBetween},
    {.name = "AND",
     .pattern = {BOOLEAN_, word("AND"), BOOLEAN_},
     .combine = computeBooleans<std::logical_and<>, "operatorEvaluate_AND (%s AND %s) --> %s">,
     .logic = LOGIC_AND},
    {.name = "OR",
     .pattern = {BOOLEAN_, word("OR"), BOOLEAN_},
     .combine = computeBooleans<std::logical_or<>, "operatorEvaluate_OR (%s OR %s) --> %s">,
     .logic = LOGIC_OR},
    {.name = "NOT", .pattern = {word("NOT"), BOOLEAN_}, .combine = negate, .logic = LOGIC_NOT},
    {.name = "STRING_IN_LIST",
     .pattern = {STRING_, word("IN"), LIST_},
     .combine = textInList<SameText, "EXIT: operatorEvaluate_STRINGINLIST: %s IN (list) --> %s">,
     .test = testTexts<SameText>},
    {.name = "STRING_LIKE_IN_LIST",
     .pattern = {STRING_, word("LIKEIN"), LIST_},
     .combine = textInList<LikeText<true>, "EXIT: operatorEvaluate_STRINGLIKEINLIST: %s LIKEIN (list) --> %s">,
     .test = testTexts<LikeText<true>>},
    {.name = "INT_IN_LIST", .pattern = {INT_, word("IN"), LIST_}, .combine = intInList, .test = testInts<std::equal_to<>>},
    {.name = "StringConcatString", .pattern = {STRING_, word("+"), STRING_}, .combine = concatenate, .result = EXPR_STRING},
    {.name = "IsNull", .pattern = {STRING_, word("IS"), word("NULL")}, .combine = testNull<true, "operatorEvaluate_IsNull: '%s'">},
    {.name = "IsNullList", .pattern = {LIST_, word("IS"), word("NULL")}, .combine = testNull<true, "operatorEvaluate_IsNullList: '%s'">},
    {.name = "IsNotNull",
     .pattern = {STRING_, word("IS"), word("NOT"), word("NULL")},
     .combine = testNull<false, "operatorEvaluate_IsNotNull: '%s'">},
    {.name = "IsNotNullList",
     .pattern = {LIST_, word("IS"), word("NOT"), word("NULL")},
     .combine = testNull<false, "operatorEvaluate_IsNotNullList: '%s'">},
};

struct NamedFunctions {
    OperatorCreateExpressionFcn create;
    ExpressionDestructorFcn destroy;
    EvaluateFcn evaluate;
};

#define TAV_FUNCTIONS_OF(name, numInputs) {operatorCreateExpression_##name, operatorDestroyExpression_##name, operatorEvaluate_##name},
constexpr NamedFunctions functions[] = {TAV_COMMON_OPERATORS(TAV_FUNCTIONS_OF)};
#undef TAV_FUNCTIONS_OF
static_assert(std::size(functions) == std::size(commonOperators));

#define TAV_NAME_OF(name, numInputs) #name,
constexpr std::string_view functionNames[] = {TAV_COMMON_OPERATORS(TAV_NAME_OF)};
#undef TAV_NAME_OF
// Both lists name the same operators in the same order.
static_assert([] {
    for (size_t i = 0; i < std::size(functionNames); ++i) {
        if (functionNames[i] != commonOperators[i].name) return false;
    }
    return true;
}());

Operator *createOperator(const CommonOperator &row, const NamedFunctions &named) noexcept {
    InputElement *elements[maxPattern];
    int count = 0;
    for (const PatternElement &element : row.pattern) {
        if (element.type == EXPR_UNKNOWN && !element.keyword) break;
        elements[count++] = element.keyword ? tokenInputElementCreate(element.keyword) : typeInputElementCreate(element.type);
    }
    Operator *op = operatorCreateFromArray(row.name, row.result, named.create, named.destroy, named.evaluate, count, elements);
    operatorSetCombine(op, row.combine);
    operatorSetTest(op, row.test, row.pattern[0].type == EXPR_STRING, row.pattern[2].type == EXPR_LIST);
    operatorSetLogic(op, row.logic);
    return op;
}

} // namespace

Boolean commonOperatorAccepts(const Operator *op, const OperatorContext *ctx, int numInputs) noexcept {
    if (!op || !ctx) return FALSE;
    if (operatorContextGetNumInputs(ctx) == numInputs) return TRUE;
    langReportError("tavCommonLanguage", "In operatorCreateExpression_%s - invalid number of inputs (%d) - expecting %d.\n", op->name,
                    operatorContextGetNumInputs(ctx), numInputs);
    return FALSE;
}

Boolean langRegisterCommonOperators(Language *language) noexcept {
    if (!language) return FALSE;
    for (size_t i = 0; i < std::size(commonOperators); ++i) {
        Operator *op = createOperator(commonOperators[i], functions[i]);
        if (!op) return FALSE;
        langRegisterOperator(language, op);
        if (!langFindOperator(language, commonOperators[i].name)) return FALSE;
    }
    return TRUE;
}
