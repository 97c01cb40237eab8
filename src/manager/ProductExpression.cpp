// SPDX-License-Identifier: MIT
#include "manager/ProductExpression.h"

#include <QStringView>

#include <vector>

namespace Velmora::WorkflowCore {

namespace {

constexpr QChar kAnd = u'&';
constexpr QChar kOr = u'|';
constexpr QChar kOpen = u'(';
constexpr QChar kClose = u')';

// Each nested group costs one evaluation level; deeper text fails instead of exhausting the stack.
constexpr int kMaxEvaluationDepth = 100;

bool IsBlank(QStringView text)
{
    for (const QChar c : text)
    {
        if (!c.isSpace())
            return false;
    }
    return true;
}

void AppendOperand(QStringList& tokens, QStringView text)
{
    const QStringView trimmed = text.trimmed();
    if (!trimmed.isEmpty())
        tokens << trimmed.toString();
}

// The ")" where nesting counted from the "(" at open returns to zero, or -1.
qsizetype MatchingClose(QStringView text, qsizetype open)
{
    qsizetype depth = 0;
    for (qsizetype i = open; i < text.size(); ++i)
    {
        const QChar c = text.at(i);
        if (c == kOpen)
            ++depth;
        else if (c == kClose && --depth == 0)
            return i;
    }
    return -1;
}

bool Evaluate(LeafEvaluator leaf, const QString& expression, bool& value, int depth)
{
    value = false;
    if (!leaf || IsBlank(expression) || depth > kMaxEvaluationDepth)
        return false;

    QString normal = expression;
    if (!NormaliseExpression(normal))
        return false;
    QStringList tokens;
    if (!TokenizeExpression(normal, tokens))
        return false;

    if (tokens.size() == 1)
    {
        // The token goes to the leaf as it stands: "x ((a))" hands over "(a)".
        if (leaf(tokens.first(), value))
            return true;
        value = false;
        return false;
    }

    bool running = false;
    for (qsizetype i = 0; i < tokens.size(); ++i)
    {
        const QString& token = tokens.at(i);
        if (i % 2 == 0)
        {
            if (!Evaluate(leaf, token, running, depth + 1))
            {
                value = false;
                return false;
            }
        }
        else if (IsOperatorToken(token))
        {
            // Short-circuits from the left, so each operator governs everything to its right:
            // "a & (b | c) | d" is false whenever a is. Callers rely on this grouping.
            const QChar op = token.at(0);
            if ((op == kOr && running) || (op == kAnd && !running))
                break;
        }
        // An operand at an odd position is skipped: "(a)(b)" is a. Callers rely on this.
    }
    value = running;
    return true;
}

} // namespace

bool IsOperatorToken(const QString& text)
{
    const QStringView trimmed = QStringView(text).trimmed();
    return trimmed.size() == 1 && (trimmed.at(0) == kAnd || trimmed.at(0) == kOr);
}

bool NormaliseExpression(QString& expression)
{
    expression = expression.trimmed();
    if (expression.isEmpty())
        return true;

    const qsizetype length = expression.size();
    qsizetype leadingOpens = 0;
    while (leadingOpens < length && expression.at(leadingOpens) == kOpen)
        ++leadingOpens;

    // One pass checks the balance and pairs the leading "(" run with its ")", so stripping many
    // enclosing layers stays linear.
    std::vector<qsizetype> closes(static_cast<size_t>(leadingOpens), -1);
    std::vector<qsizetype> open;
    for (qsizetype i = 0; i < length; ++i)
    {
        const QChar c = expression.at(i);
        if (c == kOpen)
        {
            open.push_back(i);
        }
        else if (c == kClose)
        {
            if (open.empty())
                return false;
            if (open.back() < leadingOpens)
                closes[static_cast<size_t>(open.back())] = i;
            open.pop_back();
        }
    }
    if (!open.empty())
        return false;

    // No trim between layers: "( (a) )" becomes " (a) " and stops there. Callers rely on this.
    qsizetype layers = 0;
    while (layers < leadingOpens && length - 2 * layers >= 2 &&
           closes[static_cast<size_t>(layers)] == length - 1 - layers)
        ++layers;
    if (layers > 0)
        expression = expression.mid(layers, length - 2 * layers);
    return true;
}

bool TokenizeExpression(const QString& expression, QStringList& tokens)
{
    tokens.clear();
    const auto fail = [&tokens] {
        tokens.clear();
        return false;
    };
    const QStringView text(expression);
    const qsizetype length = text.size();
    qsizetype start = 0;
    qsizetype i = 0;
    while (i < length)
    {
        const QChar c = text.at(i);
        if (c == kOr)
        {
            AppendOperand(tokens, text.mid(start, i - start));
            tokens << QString(kOr);
            start = ++i;
            continue;
        }
        if (c == kOpen)
        {
            const QStringView before = text.mid(start, i - start).trimmed();
            // Text before a group that does not end in "&" is dropped: "a | b (c)" reads as
            // "a | c". Callers rely on this.
            if (before.endsWith(kAnd))
            {
                AppendOperand(tokens, before.chopped(1));
                tokens << QString(kAnd);
            }
            const qsizetype close = MatchingClose(text, i);
            if (close < 0)
                return fail();
            AppendOperand(tokens, text.mid(i + 1, close - i - 1));
            qsizetype next = close + 1;
            while (next < length && text.at(next).isSpace())
                ++next;
            if (next < length && (text.at(next) == kAnd || text.at(next) == kOr))
            {
                tokens << QString(text.at(next));
                i = next + 1;
            }
            else
            {
                i = close + 1;
            }
            start = i;
            continue;
        }
        if (i == length - 1)
            AppendOperand(tokens, text.mid(start));
        ++i;
    }

    if (tokens.isEmpty())
        return false;

    // A lone token without parentheses is split into its "&" chain; a "|" inside it (only a
    // group can leave one there) does not split it.
    const QString& only = tokens.first();
    if (tokens.size() == 1 && !only.contains(kOpen) && !only.contains(kClose))
    {
        QStringList chain;
        for (const QStringView piece : QStringView(only).split(kAnd))
        {
            const QStringView trimmed = piece.trimmed();
            if (trimmed.isEmpty())
                return fail();
            if (!chain.isEmpty())
                chain << QString(kAnd);
            chain << trimmed.toString();
        }
        tokens = chain;
    }

    for (qsizetype k = 0; k < tokens.size(); ++k)
    {
        if (IsOperatorToken(tokens.at(k)) && (k % 2 == 0 || k == tokens.size() - 1))
            return fail();
    }
    return true;
}

bool EvaluateExpression(LeafEvaluator leaf, const QString& expression, bool& value)
{
    return Evaluate(leaf, expression, value, 0);
}

} // namespace Velmora::WorkflowCore
