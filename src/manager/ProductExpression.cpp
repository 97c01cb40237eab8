#include "manager/ProductExpression.h"

#include "util/FileUtil.h"

#include <vector>

namespace Velmora::WorkflowCore {

namespace {

const QChar kAnd = QLatin1Char('&');
const QChar kOr = QLatin1Char('|');
const QChar kOpen = QLatin1Char('(');
const QChar kClose = QLatin1Char(')');

// Nesting beyond this is refused rather than followed: hostile text must not exhaust the stack.
const int kMaxDepth = 64;

void AppendOperand(QStringList& tokens, const QString& text)
{
    const QString trimmed = text.trimmed();
    if (!trimmed.isEmpty())
        tokens << trimmed;
}

int NextNonBlank(const QString& text, int from)
{
    for (int i = from; i < text.size(); ++i) {
        if (!text.at(i).isSpace())
            return i;
    }
    return -1;
}

bool Evaluate(LeafEvaluator leaf, const QString& expression, bool& value, int depth)
{
    value = false;
    if (!leaf || expression.trimmed().isEmpty() || depth > kMaxDepth)
        return false;

    QString normal = expression;
    if (!NormaliseExpression(normal))
        return false;
    QStringList tokens;
    if (!TokenizeExpression(normal, tokens))
        return false;

    if (tokens.size() == 1) {
        if (leaf(tokens.first(), value))
            return true;
        value = false;
        return false;
    }

    bool running = false;
    for (int i = 0; i < tokens.size(); ++i) {
        const QString& token = tokens.at(i);
        if (i % 2 == 0) {
            bool operand = false;
            if (!Evaluate(leaf, token, operand, depth + 1)) {
                value = false;
                return false;
            }
            running = operand;
        } else if (IsOperatorToken(token)) {
            // Short-circuits from the left: each operator applies to everything to its right.
            // Callers rely on this grouping.
            const QChar op = token.trimmed().at(0);
            if ((op == kOr && running) || (op == kAnd && !running))
                break;
        }
    }
    value = running;
    return true;
}

} // namespace

bool IsOperatorToken(const QString& text)
{
    const QString trimmed = text.trimmed();
    return trimmed.size() == 1 && (trimmed.at(0) == kAnd || trimmed.at(0) == kOr);
}

bool NormaliseExpression(QString& expression)
{
    expression = expression.trimmed();
    if (expression.isEmpty())
        return true;

    // One pass pairs every parenthesis, so stripping many enclosing layers stays linear.
    const int length = expression.size();
    std::vector<int> matching(size_t(length), -1);
    std::vector<int> open;
    for (int i = 0; i < length; ++i) {
        const QChar c = expression.at(i);
        if (c == kOpen) {
            open.push_back(i);
        } else if (c == kClose) {
            if (open.empty())
                return false;
            matching[size_t(open.back())] = i;
            open.pop_back();
        }
    }
    if (!open.empty())
        return false;

    // Not trimmed after stripping: "( (a) )" keeps its inner blanks and stops there.
    int layers = 0;
    while (layers < length - 1 - layers && expression.at(layers) == kOpen &&
           matching[size_t(layers)] == length - 1 - layers)
        ++layers;
    if (layers > 0)
        expression = expression.mid(layers, length - 2 * layers);
    return true;
}

bool TokenizeExpression(const QString& expression, QStringList& tokens)
{
    tokens.clear();
    const int length = expression.size();
    int start = 0;
    int i = 0;
    while (i < length) {
        const QChar c = expression.at(i);
        if (c == kOr) {
            AppendOperand(tokens, expression.mid(start, i - start));
            tokens << QString(kOr);
            start = ++i;
            continue;
        }
        if (c == kOpen) {
            const QString before = expression.mid(start, i - start).trimmed();
            // Text before "(" that does not end in "&" is dropped: "a | b (c)" reads as "a | c".
            // Callers rely on this.
            if (before.endsWith(kAnd)) {
                AppendOperand(tokens, before.left(before.size() - 1));
                tokens << QString(kAnd);
            }
            const int close = MatchingParenthesis(expression, i);
            if (close < 0)
                return false;
            AppendOperand(tokens, expression.mid(i + 1, close - i - 1));
            const int next = NextNonBlank(expression, close + 1);
            if (next >= 0 && (expression.at(next) == kAnd || expression.at(next) == kOr)) {
                tokens << QString(expression.at(next));
                i = next + 1;
            } else {
                i = close + 1;
            }
            start = i;
            continue;
        }
        if (i == length - 1)
            AppendOperand(tokens, expression.mid(start, length - start));
        ++i;
    }

    if (tokens.isEmpty())
        return false;

    if (tokens.size() == 1 && !tokens.first().contains(kOpen) && !tokens.first().contains(kClose)) {
        const QStringList pieces = tokens.first().split(kAnd);
        QStringList split;
        for (const QString& piece : pieces) {
            const QString trimmed = piece.trimmed();
            if (trimmed.isEmpty())
                return false;
            if (!split.isEmpty())
                split << QString(kAnd);
            split << trimmed;
        }
        tokens = split;
    }

    for (int k = 0; k < tokens.size(); ++k) {
        if (IsOperatorToken(tokens.at(k)) && (k % 2 == 0 || k == tokens.size() - 1))
            return false;
    }
    return true;
}

bool EvaluateExpression(LeafEvaluator leaf, const QString& expression, bool& value)
{
    return Evaluate(leaf, expression, value, 0);
}

} // namespace Velmora::WorkflowCore
