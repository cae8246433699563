// The registry half of a language: operators and operands, their patterns and arguments, made, found and freed.
//
// Ownership: the language owns what is registered; an operator its pattern, an operand its arguments and named values. Creation takes the
// parts it is given even when it fails, so that a caller can make them in the call.
#include <cstdarg>
#include <cstring>

#include "tavLanguage/tavLanguage.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

template <typename T, void (*freeOne)(T *)>
void freeAll(T *const *objects, int count) noexcept {
    for (int i = 0; objects && i < count; ++i) freeOne(objects[i]);
}

// A new array of the same pointers; null for a null member (something was not created) and without memory. The objects stay where they are.
template <typename T>
T **adoptArray(T *const *objects, int count) noexcept {
    for (int i = 0; i < count; ++i) {
        if (!objects[i]) return nullptr;
    }
    auto **copy = static_cast<T **>(tavMalloc(sizeof(T *) * static_cast<size_t>(count > 0 ? count : 1)));
    if (copy && count > 0) std::memcpy(copy, objects, sizeof(T *) * static_cast<size_t>(count));
    return copy;
}

template <typename T, void (*freeOne)(T *)>
void destroyMember(void *object) noexcept {
    freeOne(static_cast<T *>(object));
}

template <typename T>
T *findByName(const TavList *list, const char *name) noexcept {
    if (!name) return nullptr;
    for (T *object : TavListRange<T>(list)) {
        if (tavStrCmpIgnoreCase(object->name, name) == 0) return object;
    }
    return nullptr;
}

template <typename T, void (*freeOne)(T *)>
void registerUnique(TavList *list, T *object, const char *function, const char *kind) noexcept {
    T *existing = findByName<T>(list, object->name);
    if (!existing) {
        tavListAddTail(list, object);
        return;
    }
    langReportError("tavLanguage", "%s - %s with name %s is already registered.  Redundant one ignored.", function, kind, object->name);
    if (existing != object) freeOne(object);
}

bool hasKeyword(const Operator *op, const char *text) noexcept {
    for (int i = 0; i < op->numInputElements; ++i) {
        const InputElement *element = op->inputElements[i];
        if (element->ie_type != IETYPE_TOKEN) continue;
        if (tavStrCmpIgnoreCase(reinterpret_cast<const TokenInputElement *>(element)->string, text) == 0) return true;
    }
    return false;
}

SelectableValue *createSelectable(const char *string, const char *key, int32_t intValue) noexcept {
    auto *value = tavNewRecord<SelectableValue>();
    if (!value) return nullptr;
    *value = {tavStrdup(string), tavStrdup(key), intValue};
    if ((value->string || !string) && (value->key || !key)) return value;
    selectableValueFree(value);
    return nullptr;
}

} // namespace

InputElement *typeInputElementCreate(ExpressionType type) noexcept {
    auto *element = tavNewRecord<TypeInputElement>();
    if (!element) return nullptr;
    *element = {{IETYPE_EXPRTYPE}, type};
    return &element->base;
}

InputElement *tokenInputElementCreate(const char *keyword) noexcept {
    char *copy = tavStrdup(keyword);
    auto *element = copy ? tavNewRecord<TokenInputElement>() : nullptr;
    if (!element) {
        tavFree(copy);
        return nullptr;
    }
    *element = {{IETYPE_TOKEN}, copy};
    return &element->base;
}

void inputElementFree(InputElement *element) noexcept {
    if (!element) return;
    if (element->ie_type == IETYPE_TOKEN) tavFree(reinterpret_cast<TokenInputElement *>(element)->string);
    tavFree(element);
}

Operator *operatorCreateFromArray(const char *name, ExpressionType resultType, OperatorCreateExpressionFcn createExpression,
                                  ExpressionDestructorFcn destroyExpression, EvaluateFcn evaluate, int numInputElements,
                                  InputElement *const *elements) noexcept {
    auto *op = name ? tavNewRecord<Operator>() : nullptr;
    InputElement **pattern = op ? adoptArray(elements, numInputElements) : nullptr;
    char *nameCopy = pattern ? tavStrdup(name) : nullptr;
    if (!nameCopy) {
        freeAll<InputElement, inputElementFree>(elements, numInputElements);
        tavFree(pattern);
        tavFree(op);
        return nullptr;
    }
    *op = {{evaluate}, nameCopy, resultType, numInputElements, pattern, createExpression, destroyExpression, nullptr};
    return op;
}

Operator *operatorCreate(const char *name, ExpressionType resultType, OperatorCreateExpressionFcn createExpression,
                         ExpressionDestructorFcn destroyExpression, EvaluateFcn evaluate, int numInputElements, ...) noexcept {
    const int count = numInputElements > 0 ? numInputElements : 0;
    auto **elements = static_cast<InputElement **>(tavMalloc(sizeof(InputElement *) * static_cast<size_t>(count + 1)));
    va_list args;
    va_start(args, numInputElements);
    for (int i = 0; i < count; ++i) {
        InputElement *element = va_arg(args, InputElement *);
        if (elements) {
            elements[i] = element;
        } else {
            inputElementFree(element);
        }
    }
    va_end(args);
    Operator *op =
        elements ? operatorCreateFromArray(name, resultType, createExpression, destroyExpression, evaluate, count, elements) : nullptr;
    tavFree(elements);
    return op;
}

void operatorSetCombine(Operator *op, OperatorCombineFcn combine) noexcept {
    if (op) op->combine = combine;
}

void operatorSetTest(Operator *op, OperatorTestFcn test, bool testsTexts, bool testsMembers) noexcept {
    if (!op) return;
    op->test = test;
    op->testsTexts = testsTexts;
    op->testsMembers = testsMembers;
}

void operatorSetLogic(Operator *op, OperatorLogic logic) noexcept {
    if (op) op->logic = logic;
}

void operatorFree(Operator *op) noexcept {
    if (!op) return;
    freeAll<InputElement, inputElementFree>(op->inputElements, op->numInputElements);
    tavFree(op->inputElements);
    tavFree(op->name);
    tavFree(op);
}

SelectableValue *selectableValueCreate(const char *string, int32_t intValue) noexcept { return createSelectable(string, string, intValue); }
SelectableValue *selectableValueStrCreate(const char *string, const char *key) noexcept { return createSelectable(string, key, 0); }

void selectableValueFree(SelectableValue *value) noexcept {
    if (!value) return;
    tavFree(value->string);
    tavFree(value->key);
    value->intValue = -1;
    tavFree(value);
}

const char *selectableValueGetString(const SelectableValue *value) noexcept { return value ? value->string : nullptr; }
int32_t selectableValueGetIntValue(const SelectableValue *value) noexcept { return value ? value->intValue : -1; }

FormalArg *formalArgCreate(const char *name, FormalArgType fat, const char *defaultValue, int numSelectableValues,
                           SelectableValue *const *selectableValues) noexcept {
    auto *arg = name ? tavNewRecord<FormalArg>() : nullptr;
    SelectableValue **values = arg ? adoptArray(selectableValues, numSelectableValues) : nullptr;
    if (!values) {
        freeAll<SelectableValue, selectableValueFree>(selectableValues, numSelectableValues);
        tavFree(arg);
        return nullptr;
    }
    *arg = {tavStrdup(name), fat, tavStrdup(defaultValue), numSelectableValues, values};
    if (arg->name && (arg->defaultValue || !defaultValue)) return arg;
    formalArgFree(arg);
    return nullptr;
}

void formalArgFree(FormalArg *arg) noexcept {
    if (!arg) return;
    freeAll<SelectableValue, selectableValueFree>(arg->selectableValues, arg->numSelectableValues);
    tavFree(arg->selectableValues);
    tavFree(arg->defaultValue);
    tavFree(arg->name);
    tavFree(arg);
}

Operand *operandCreate(const char *name, int numSelectableValues, SelectableValue *const *selectableValues, int numFormalArgs,
                       FormalArg *const *formalArgs, OperandCreateExpressionFcn createExpression, ExpressionDestructorFcn destroyExpression,
                       EvaluateFcn evaluate, OperandValidateInputFcn validateInput, int numReturnTypes, ...) noexcept {
    const int typeCount = numReturnTypes > 0 ? numReturnTypes : 0;
    auto *operand = name ? tavNewRecord<Operand>() : nullptr;
    SelectableValue **values = operand ? adoptArray(selectableValues, numSelectableValues) : nullptr;
    FormalArg **args = values ? adoptArray(formalArgs, numFormalArgs) : nullptr;
    auto *types = args ? static_cast<ExpressionType *>(tavMalloc(sizeof(ExpressionType) * static_cast<size_t>(typeCount + 1))) : nullptr;
    char *nameCopy = types ? tavStrdup(name) : nullptr;
    if (!nameCopy) {
        freeAll<SelectableValue, selectableValueFree>(selectableValues, numSelectableValues);
        freeAll<FormalArg, formalArgFree>(formalArgs, numFormalArgs);
        for (void *part :
             {static_cast<void *>(values), static_cast<void *>(args), static_cast<void *>(types), static_cast<void *>(operand)}) {
            tavFree(part);
        }
        return nullptr;
    }
    va_list list;
    va_start(list, numReturnTypes);
    for (int i = 0; i < typeCount; ++i) types[i] = static_cast<ExpressionType>(va_arg(list, int));
    va_end(list);
    *operand = {{evaluate},    nameCopy,         numSelectableValues, values,    numFormalArgs, args,
                validateInput, createExpression, destroyExpression,   typeCount, types,         nullptr};
    return operand;
}

void operandSetEvaluateInto(Operand *operand, OperandValueFcn evaluateInto) noexcept {
    if (operand) operand->evaluateInto = evaluateInto;
}

void operandSetPeek(Operand *operand, OperandPeekFcn peek) noexcept {
    if (operand) operand->peek = peek;
}

void operandSetTruth(Operand *operand, OperandTruth truth) noexcept {
    if (operand) operand->truth = truth;
}

void operandFree(Operand *operand) noexcept {
    if (!operand) return;
    freeAll<SelectableValue, selectableValueFree>(operand->selectableValues, operand->numSelectableValues);
    freeAll<FormalArg, formalArgFree>(operand->formalArgs, operand->numFormalArgs);
    tavFree(operand->selectableValues);
    tavFree(operand->formalArgs);
    tavFree(operand->returnTypes);
    tavFree(operand->name);
    tavFree(operand);
}

const char *operandGetName(const Operand *operand) noexcept { return operand ? operand->name : nullptr; }
int operandGetNumReturnTypes(const Operand *operand) noexcept { return operand ? operand->numReturnTypes : 0; }
const ExpressionType *operandGetReturnTypes(const Operand *operand) noexcept { return operand ? operand->returnTypes : nullptr; }

Boolean operandReturnsType(const Operand *operand, ExpressionType type) noexcept {
    for (int i = operandGetNumReturnTypes(operand) - 1; i >= 0; --i) {
        if (operand->returnTypes[i] == type) return TRUE;
    }
    return FALSE;
}

Operand *operandInstanceInfoGetOperand(const OperandInstanceInfo *info) noexcept { return info ? info->operand : nullptr; }
int operandInstanceInfoGetNumActualArgs(const OperandInstanceInfo *info) noexcept { return info ? info->numActualArguments : 0; }
char **operandInstanceInfoGetActualArgs(const OperandInstanceInfo *info) noexcept { return info ? info->actualArguments : nullptr; }
const char *operandInstanceInfoGetActualArg(const OperandInstanceInfo *info, int index) noexcept {
    return index >= 0 && index < operandInstanceInfoGetNumActualArgs(info) ? info->actualArguments[index] : nullptr;
}

Language *langCreate(TrContext *trCtx, TrRecord *trRec) noexcept {
    LanguagePtr language(tavNewRecord<Language>());
    if (!language) return nullptr;
    *language = {tavStrdup("$"), tavListCreate(destroyMember<Operator, operatorFree>), tavListCreate(destroyMember<Operand, operandFree>),
                 trCtx, trRec};
    return language->fieldSeparator && language->operators && language->operands ? language.release() : nullptr;
}

void langFree(Language *language) noexcept {
    if (!language) return;
    tavFree(language->fieldSeparator);
    tavListDestroy(language->operators);
    tavListDestroy(language->operands);
    tavFree(language);
}

void langSetFieldSeparator(Language *language, const char *sep) noexcept {
    if (language) tavReplaceStr(&language->fieldSeparator, sep);
}
const char *langGetFieldSeparator(const Language *language) noexcept { return language ? language->fieldSeparator : nullptr; }

void langRegisterOperator(Language *language, Operator *op) noexcept {
    if (language && op) registerUnique<Operator, operatorFree>(language->operators, op, "langRegisterOperator", "Operator");
}
void langRegisterOperand(Language *language, Operand *operand) noexcept {
    if (language && operand) registerUnique<Operand, operandFree>(language->operands, operand, "langRegisterOperand", "Operand");
}
Operator *langFindOperator(const Language *language, const char *name) noexcept {
    return language ? findByName<Operator>(language->operators, name) : nullptr;
}
Operand *langFindOperand(const Language *language, const char *name) noexcept {
    return language ? findByName<Operand>(language->operands, name) : nullptr;
}

int langTokenIsOperator(const Language *language, const char *text) noexcept {
    if (!language || !text) return 0;
    for (const Operator *op : TavListRange<Operator>(language->operators)) {
        if (hasKeyword(op, text)) return 1;
    }
    return 0;
}
