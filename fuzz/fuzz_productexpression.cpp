// SPDX-License-Identifier: MIT
// Feeds arbitrary text to the required-products expression rules (normalise, tokenize, evaluate).
// Besides crashes, hangs and sanitizer reports it aborts when a property that every input must
// have is broken.

#include "manager/ProductExpression.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Velmora::WorkflowCore;

namespace {

void Check(bool condition)
{
    if (!condition)
        std::abort();
}

// Operands reach the leaf trimmed and never empty.
void CheckOperand(const QString& operand)
{
    Check(!operand.isEmpty() && operand == operand.trimmed());
}

// Deterministic: an operand is installed when its length is even.
bool EvenLeaf(const QString& operand, bool& value)
{
    CheckOperand(operand);
    value = operand.size() % 2 == 0;
    return true;
}

// Installed whenever EvenLeaf says so, and more: evaluation must never turn that into false.
bool WiderLeaf(const QString& operand, bool& value)
{
    CheckOperand(operand);
    value = operand.size() % 2 == 0 || operand.size() % 3 == 0;
    return true;
}

bool TrueLeaf(const QString& operand, bool& value)
{
    CheckOperand(operand);
    value = true;
    return true;
}

bool FalseLeaf(const QString& operand, bool& value)
{
    CheckOperand(operand);
    value = false;
    return true;
}

// Claims true but reports that it could not evaluate.
bool FailingLeaf(const QString&, bool& value)
{
    value = true;
    return false;
}

// Normalising layer by layer, the slow and obvious way, to hold the one-pass stripping to.
bool SlowNormalise(QString& text)
{
    text = text.trimmed();
    int count = 0;
    for (const QChar c : text)
    {
        count += c == u'(' ? 1 : c == u')' ? -1 : 0;
        if (count < 0)
            return false;
    }
    if (count != 0)
        return false;
    while (!text.isEmpty() && text.at(0) == u'(')
    {
        int depth = 0;
        qsizetype close = -1;
        for (qsizetype i = 0; i < text.size() && close < 0; ++i)
        {
            if (text.at(i) == u'(')
                ++depth;
            else if (text.at(i) == u')' && --depth == 0)
                close = i;
        }
        if (close != text.size() - 1)
            break;
        text = text.mid(1, text.size() - 2);
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    QString normal = text;
    const bool balanced = NormaliseExpression(normal);
    QString slow = text;
    Check(SlowNormalise(slow) == balanced && slow == normal);
    if (balanced)
    {
        // Stripping matched pairs keeps the text balanced.
        QString again = normal;
        Check(NormaliseExpression(again));
    }

    QStringList tokens;
    if (TokenizeExpression(normal, tokens))
    {
        Check(!tokens.isEmpty());
        for (qsizetype i = 0; i < tokens.size(); ++i)
        {
            const QString& token = tokens.at(i);
            Check(!token.isEmpty() && token == token.trimmed());
            if (IsOperatorToken(token))
                Check(i % 2 == 1 && i != tokens.size() - 1);
        }
    }
    else
    {
        Check(tokens.isEmpty());
    }

    bool value = true;
    const bool evaluated = EvaluateExpression(&EvenLeaf, text, value);
    if (!evaluated)
        Check(!value);
    if (text.trimmed().isEmpty() || !balanced)
        Check(!evaluated);

    // Deterministic.
    bool repeated = !value;
    Check(EvaluateExpression(&EvenLeaf, text, repeated) == evaluated && repeated == value);

    // "&" and "|" are monotone: more installed operands never make the result false.
    bool wider = false;
    if (EvaluateExpression(&WiderLeaf, text, wider) && evaluated)
        Check(!value || wider);

    bool all = false;
    if (EvaluateExpression(&TrueLeaf, text, all))
        Check(all);
    bool none = true;
    EvaluateExpression(&FalseLeaf, text, none);
    Check(!none);

    // Every evaluation reaches at least one leaf, so a leaf that always fails fails it all.
    bool failed = true;
    Check(!EvaluateExpression(&FailingLeaf, text, failed) && !failed);

    bool missing = true;
    Check(!EvaluateExpression(nullptr, text, missing) && !missing);
    return 0;
}
