// Fuzzes normalising, tokenizing and evaluating required-products expressions. Besides crashes,
// hangs and sanitizer reports, it checks rules that must hold for every input.

#include "manager/ProductExpression.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Velmora::WorkflowCore;

namespace {

// Deterministic: an operand is installed when its trimmed length is even.
bool EvenLeaf(const QString& operand, bool& value)
{
    value = operand.trimmed().size() % 2 == 0;
    return true;
}

bool FailingLeaf(const QString&, bool& value)
{
    value = true;
    return false;
}

void Check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    QString normal = text;
    const bool balanced = NormaliseExpression(normal);
    if (balanced) {
        // Normalising only trims and strips: it never makes the text longer.
        Check(normal.size() <= text.trimmed().size());
        QStringList tokens;
        if (TokenizeExpression(normal, tokens)) {
            Check(!tokens.isEmpty());
            for (int i = 0; i < tokens.size(); ++i) {
                if (IsOperatorToken(tokens.at(i)))
                    Check(i % 2 == 1 && i != tokens.size() - 1);
            }
        }
    }

    bool value = true;
    const bool evaluated = EvaluateExpression(&EvenLeaf, text, value);
    if (!evaluated)
        Check(!value);
    if (text.trimmed().isEmpty() || !balanced)
        Check(!evaluated);

    // Evaluating is deterministic.
    bool again = !value;
    Check(EvaluateExpression(&EvenLeaf, text, again) == evaluated && again == value);

    bool failed = true;
    if (!EvaluateExpression(&FailingLeaf, text, failed))
        Check(!failed);
    bool missing = true;
    Check(!EvaluateExpression(nullptr, text, missing) && !missing);
    return 0;
}
