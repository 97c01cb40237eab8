#pragma once

#include <QString>
#include <QStringList>

// Required-products expressions: product ids joined by "&" (all of) and "|" (any of), grouped by
// parentheses, evaluated leaf by leaf by a caller's evaluator.
namespace Velmora::WorkflowCore {

// Receives one operand and a place for its truth value; returns whether it could evaluate it.
using LeafEvaluator = bool (*)(const QString& operand, bool& value);

// True when the expression is well formed and every leaf evaluated; value is false otherwise.
bool EvaluateExpression(LeafEvaluator leaf, const QString& expression, bool& value);

// Trims and strips parentheses that enclose the whole text; false when they do not balance.
bool NormaliseExpression(QString& expression);

// Splits a normalised expression into operands at even and operators at odd positions; false
// when the list is empty or an operator stands where an operand must.
bool TokenizeExpression(const QString& expression, QStringList& tokens);

// "&" or "|", blanks around allowed.
bool IsOperatorToken(const QString& text);

} // namespace Velmora::WorkflowCore
