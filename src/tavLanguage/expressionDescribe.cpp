// Parsed trees for human eyes. A walk keeps the nodes still to visit in a vector: no recursion.
#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

#include "tavLanguage/tavExpression.h"
#include "tavLanguage/tavLanguage.h"

namespace {

struct Pending {
    const Expression *expr;
    int level;
};

constexpr size_t numberSize = 32;

const char *constantText(const Expression *expr, char (&number)[numberSize]) noexcept {
    switch (expressionGetType(expr)) {
        case EXPR_STRING:
            return expressionGetStringValue(expr) ? expressionGetStringValue(expr) : "null";
        case EXPR_INT:
            std::snprintf(number, sizeof number, "%d", expressionGetIntegerValue(expr));
            return number;
        case EXPR_LONG:
            std::snprintf(number, sizeof number, "%ldL", expressionGetLongValue(expr));
            return number;
        case EXPR_BOOLEAN:
            return expressionGetBooleanValue(expr) ? "true" : "false";
        default:
            return "";
    }
}

const char *nameOr(const char *name) noexcept { return name ? name : ""; }

ExpressionNode nodeOf(const Expression *expr, int level, char (&number)[numberSize]) noexcept {
    ExpressionNode node{expr, NODE_CONSTANT, expressionGetType(expr), "", level, 0, 0, nullptr};
    if (expressionIsList(expr)) {
        node.kind = NODE_LIST;
        node.name = "list";
        const TavList *members = expressionGetListValue(expr);
        node.numChildren = members ? tavListGetCount(members) : 0;
    } else if (expr->embodiment == EXPR_IS_OPERATOR) {
        const auto *ctx = reinterpret_cast<const OperatorContext *>(expr->exprCtx);
        node.kind = NODE_OPERATOR;
        node.name = nameOr(ctx && ctx->operator_ ? ctx->operator_->name : nullptr);
        node.numChildren = operatorContextGetNumInputs(ctx);
    } else if (expr->embodiment == EXPR_IS_OPERAND) {
        const auto *ctx = reinterpret_cast<const OperandContext *>(expr->exprCtx);
        node.kind = NODE_OPERAND;
        node.name = nameOr(ctx ? operandGetName(ctx->operand) : nullptr);
        node.numArgs = operandContextGetNumArguments(ctx);
        node.args = ctx ? ctx->actualArgs : nullptr;
    } else {
        node.name = constantText(expr, number);
    }
    return node;
}

// Last child first, so that the first one is visited next.
void pushChildren(std::vector<Pending> &pending, const ExpressionNode &node) {
    const size_t before = pending.size();
    if (node.kind == NODE_LIST) {
        for (const Expression *member : TavListRange<Expression>(expressionGetListValue(node.expr)))
            pending.push_back({member, node.level + 1});
        std::reverse(pending.begin() + static_cast<std::ptrdiff_t>(before), pending.end());
    } else if (node.kind == NODE_OPERATOR) {
        const auto *ctx = reinterpret_cast<const OperatorContext *>(node.expr->exprCtx);
        for (int i = node.numChildren - 1; i >= 0; --i) pending.push_back({ctx->inputs[i], node.level + 1});
    }
}

void addQuoted(TavStringBuffer *sb, const char *text) noexcept {
    sbAdd(sb, "\"");
    sbAdd(sb, text);
    sbAdd(sb, "\"");
}

// Writes a tree on one line. A node with children stays open until the walk comes back to its level.
class LineWriter {
public:
    explicit LineWriter(TavStringBuffer *sb) : sb_(sb) {}

    void add(const ExpressionNode &node) {
        closeDownTo(node.level);
        if (!open_.empty()) {
            if (!open_.back().empty) sbAdd(sb_, ", ");
            open_.back().empty = false;
        }
        addName(node);
        if (node.kind == NODE_LIST || node.kind == NODE_OPERATOR) {
            sbAdd(sb_, node.kind == NODE_LIST ? "[" : "(");
            open_.push_back({node.kind == NODE_LIST ? "]" : ")", true});
        }
    }
    void closeDownTo(int level) noexcept {
        for (; open_.size() > static_cast<size_t>(level); open_.pop_back()) sbAdd(sb_, open_.back().closing);
    }
    bool failed = false;

private:
    struct Open {
        const char *closing;
        bool empty;
    };
    void addName(const ExpressionNode &node) noexcept {
        if (node.kind == NODE_LIST) return;
        if (node.kind == NODE_CONSTANT && node.type == EXPR_STRING) return addQuoted(sb_, node.name);
        sbAdd(sb_, node.name);
        for (int i = 0; i < node.numArgs; ++i) {
            sbAdd(sb_, i ? ", " : "(");
            addQuoted(sb_, nameOr(node.args[i]));
        }
        if (node.numArgs) sbAdd(sb_, ")");
    }
    TavStringBuffer *sb_;
    std::vector<Open> open_;
};

void addToLine(const ExpressionNode *node, void *passback) {
    auto *line = static_cast<LineWriter *>(passback);
    try {
        line->add(*node);
    } catch (const std::bad_alloc &) {
        line->failed = true;
    }
}

} // namespace

Boolean expressionWalk(const Expression *expr, ExpressionVisitFcn visit, void *passback) noexcept {
    if (!expr || !visit) return FALSE;
    try {
        std::vector<Pending> pending{{expr, 0}};
        while (!pending.empty()) {
            const Pending next = pending.back();
            pending.pop_back();
            char number[numberSize];
            const ExpressionNode node = nodeOf(next.expr, next.level, number);
            visit(&node, passback);
            pushChildren(pending, node);
        }
        return TRUE;
    } catch (const std::bad_alloc &) {
        return FALSE;
    }
}

Boolean expressionDescribe(const Expression *expr, TavStringBuffer *sb) noexcept {
    if (!sb) return FALSE;
    LineWriter line(sb);
    const Boolean complete = expressionWalk(expr, addToLine, &line);
    line.closeDownTo(0);
    return complete && !line.failed && !sb->failed;
}
