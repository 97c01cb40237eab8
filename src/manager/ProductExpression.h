// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// Required-products expressions: product ids (or ","-separated lists of them) joined by "&" (all
// of) and "|" (any of) and grouped by parentheses, evaluated operand by operand by the caller's
// leaf evaluator. Internal to the library.
namespace Velmora::WorkflowCore {

// Receives one operand (trimmed) and a place for its truth value; returns whether it could
// evaluate the operand at all.
using LeafEvaluator = std::function<bool(const QString& operand, bool& value)>;

// True when the expression is well formed and every leaf that was reached evaluated; value then
// holds the result. On failure value is false. A null leaf, an empty or blank expression, and
// nesting deeper than 100 evaluation levels all fail.
bool EvaluateExpression(LeafEvaluator leaf, const QString& expression, bool& value);

// Trims, then strips the parentheses that enclose the whole text, layer by layer (without
// trimming between layers). False when the parentheses do not balance; the text is then trimmed
// but otherwise untouched. An empty text is accepted.
bool NormaliseExpression(QString& expression);

// Splits a normalised expression into trimmed tokens: operands at even and operators ("&", "|")
// at odd positions. False when the list would be empty, an "&" leaves an empty operand, a "(" has
// no matching ")", or an operator stands at an even position or last; tokens is then empty.
bool TokenizeExpression(const QString& expression, QStringList& tokens);

// The text, trimmed, is exactly "&" or "|".
bool IsOperatorToken(const QString& text);

} // namespace Velmora::WorkflowCore
