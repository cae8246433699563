// Words: keywords, and operands with their arguments.
#include <cstring>
#include <new>

#include "tavLanguage/langParser.h"
#include "tavUtil/tavMemory.h"
#include "tavUtil/tavString.h"

namespace {

void freeInfo(void *object) noexcept {
    auto *info = static_cast<OperandInstanceInfo *>(object);
    for (int i = 0; info->actualArguments && i < info->operand->numFormalArgs; ++i) tavFree(info->actualArguments[i]);
    tavFree(info->actualArguments);
    tavFree(info);
}

struct InfoDeleter {
    void operator()(OperandInstanceInfo *info) const noexcept { freeInfo(info); }
};
using InfoPtr = std::unique_ptr<OperandInstanceInfo, InfoDeleter>;

InfoPtr createInfo(Operand *operand) noexcept {
    auto *info = tavNewRecord<OperandInstanceInfo>();
    if (!info) return nullptr;
    const size_t slots = static_cast<size_t>(operand->numFormalArgs > 0 ? operand->numFormalArgs : 1);
    *info = {operand, 0, static_cast<char **>(tavMalloc(sizeof(char *) * slots))};
    InfoPtr owner(info);
    return info->actualArguments ? std::move(owner) : nullptr;
}

int slotOf(const Operand *operand, const char *name) noexcept {
    for (int i = 0; i < operand->numFormalArgs; ++i) {
        if (tavStrCmpIgnoreCase(operand->formalArgs[i]->name, name) == 0) return i;
    }
    return -1;
}

bool isValue(const Token *token) noexcept { return token->type == TOKEN_LITERAL || token->type == TOKEN_SUBEXPRESSION; }

// The end of the field that begins at `field`; empty fields count.
const char *fieldEnd(const char *field, const char *separator) noexcept {
    const char *end = separator && *separator ? std::strstr(field, separator) : nullptr;
    return end ? end : field + std::strlen(field);
}

int countFields(const char *word, const char *separator) noexcept {
    int fields = 1;
    for (const char *end = fieldEnd(word, separator); *end; end = fieldEnd(end + std::strlen(separator), separator)) ++fields;
    return fields;
}

} // namespace

bool LangParser::appendWord() {
    const char *word = text_;
    const char *separator = language_->fieldSeparator;
    const int fields = countFields(word, separator);
    if (fields > LANG_MAX_FIELDS) return fail("Too many fields in this expression token.");

    const TavText name(tavStrndup(word, static_cast<size_t>(fieldEnd(word, separator) - word)));
    if (!name) return false;
    Operand *operand = langFindOperand(language_, name.get());
    if (!operand) return appendKeyword(word);

    InfoPtr info = createInfo(operand);
    if (!info) return false;
    if (fields > 1) {
        if (!separatedArguments(info.get(), word, fields)) return false;
    } else if (operand->numFormalArgs > 0) {
        if (!parenthesizedArguments(info.get())) return false;
    }
    append(eet_OperandInstanceInfo, freeInfo, info.release());
    return true;
}

bool LangParser::appendKeyword(const char *word) {
    if (!langTokenIsOperator(language_, word)) return fail("Identifier is unknown to language ");
    char *copy = tavStrdup(word);
    if (copy) append(eet_Identifier, tavFree, copy);
    return copy != nullptr;
}

// queryparm$name
bool LangParser::separatedArguments(OperandInstanceInfo *info, const char *word, int fields) {
    const char *separator = language_->fieldSeparator;
    if (fields - 1 < info->operand->numFormalArgs) return fail("Missing arguments for operand.");
    if (fields - 1 > info->operand->numFormalArgs) return fail("Too many arguments for operand.");
    const char *field = word;
    for (int slot = 0; slot < info->operand->numFormalArgs; ++slot) {
        field = fieldEnd(field, separator) + std::strlen(separator);
        if (!setArgument(info, slot, {field, static_cast<size_t>(fieldEnd(field, separator) - field)})) return false;
    }
    return true;
}

// queryparm(name), queryparm(name=value). One turn for each formal argument; a value that is followed by anything but ",", ")" or "="
// fills no slot but costs its turn.
bool LangParser::parenthesizedArguments(OperandInstanceInfo *info) {
    enum { OpenForm, PositionalForm, NamedForm } form = OpenForm;
    const Token *open = consume();
    if (!open || open->type != TOKEN_LT_PAREN) return fail("Missing arguments");

    int nextSlot = 0;
    bool afterComma = false;
    for (int turn = 0; turn < info->operand->numFormalArgs; ++turn) {
        const char *value = nullptr;
        bool end = false;
        if (!argumentValue(turn == 0, afterComma, &value, &end)) return false;
        if (end) return true;

        afterComma = false;
        const Token *next = consume();
        if (!next) return fail("Unclosed argument list: ");
        if (next->type == TOKEN_COMMA || next->type == TOKEN_RT_PAREN) {
            if (form == NamedForm) return fail("Mixed format argument lists are not allowed");
            form = PositionalForm;
            if (!setArgument(info, nextSlot++, value)) return false;
            if (next->type == TOKEN_RT_PAREN) return true;
            afterComma = true;
        } else if (next->type == TOKEN_SUBEXPRESSION) {
            if (form == PositionalForm) return fail("Mixed format argument lists are not allowed");
            form = NamedForm;
            if (next->string[0] != '=') return fail("Expecting = in expression");
            if (!namedArgument(info, value, &end)) return false;
            if (end) return true;
            afterComma = true;
        }
    }
    return fail("Expression has no end");
}

// `*end`: the list closed instead, before its first value.
bool LangParser::argumentValue(bool first, bool afterComma, const char **value, bool *end) {
    const Token *token = consume();
    if (!token) return fail("Missing right parenthesis in argument list: ");
    if (token->type == TOKEN_RT_PAREN && afterComma) return fail("Missing argument after comma");
    *end = token->type == TOKEN_RT_PAREN && first;
    if (!*end && !isValue(token)) return fail("Invalid argument list");
    *value = token->string;
    return true;
}

// What follows the "=" of a named argument, and the sign after that; `*end`: it was ")".
bool LangParser::namedArgument(OperandInstanceInfo *info, const char *name, bool *end) {
    const Token *value = consume();
    if (!value) return fail("Missing right-hand side to = in expression");
    if (!isValue(value)) return fail("Invalid right-hand side in argument list");
    if (info->operand->numFormalArgs == 0) return fail("Operand takes no arguments.");
    const int slot = slotOf(info->operand, name);
    if (slot < 0) return fail("Unrecognized argument name.");
    if (!setArgument(info, slot, value->string)) return false;

    const Token *next = consume();
    if (!next) return fail("Unexpected end of argument list - missing right parenthesis");
    *end = next->type == TOKEN_RT_PAREN;
    return *end || next->type == TOKEN_COMMA || fail("Expecting a comma");
}

// The last text given for a slot wins.
bool LangParser::setArgument(OperandInstanceInfo *info, int slot, std::string_view value) noexcept {
    char *copy = tavStrndup(value.data(), value.size());
    if (!copy) return false;
    char *&place = info->actualArguments[slot];
    if (!place) ++info->numActualArguments;
    tavFree(place);
    place = copy;
    return true;
}
