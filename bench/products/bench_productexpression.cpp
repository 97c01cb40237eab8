// SPDX-License-Identifier: MIT
// Evaluating required-products expressions on their own, with a leaf that only looks the operand
// up in a set of installed ids, so the figure is the cost of the expression rules themselves.
//
// Generates 10,000 expressions of 3 to 7 leaves (mixed "&", "|", parentheses, ids with and
// without versions, a few id lists) from a fixed seed and reports the microseconds per
// expression, median of several passes.
// Usage: bench_productexpression [expressions, default 10000] [passes, default 7]

#include "manager/ProductExpression.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

const int kProducts = 20;
QSet<QString> s_installed;

bool InstalledLeaf(const QString& operand, bool& value)
{
    value = s_installed.contains(operand);
    return true;
}

QString ProductId(QRandomGenerator& random)
{
    QString id = QStringLiteral("prod%1").arg(random.bounded(kProducts), 2, 10, QLatin1Char('0'));
    switch (random.bounded(4))
    {
    case 0:
        id += QStringLiteral(":2016");
        break;
    case 1:
        id += QStringLiteral(":2017");
        break;
    default:
        break;
    }
    return id;
}

QString Operand(QRandomGenerator& random)
{
    // Now and then a list of ids stands for one operand.
    if (random.bounded(8) == 0)
        return ProductId(random) + QLatin1Char(',') + ProductId(random);
    return ProductId(random);
}

// An expression of exactly `leaves` operands; sub-expressions are parenthesised at random.
QString Expression(QRandomGenerator& random, int leaves)
{
    if (leaves == 1)
        return Operand(random);
    const int left = 1 + int(random.bounded(leaves - 1));
    const auto part = [&random](int count) {
        QString text = Expression(random, count);
        if (count > 1 && random.bounded(2) == 0)
            text = QLatin1Char('(') + text + QLatin1Char(')');
        return text;
    };
    const QString op = random.bounded(2) == 0 ? QStringLiteral(" & ") : QStringLiteral(" | ");
    return part(left) + op + part(leaves - left);
}

} // namespace

int main(int argc, char** argv)
{
    const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10000;
    const int passes = argc > 2 ? std::max(1, std::atoi(argv[2])) : 7;

    QRandomGenerator random(20161);
    for (int i = 0; i < kProducts; i += 2)
    {
        const QString id = QStringLiteral("prod%1").arg(i, 2, 10, QLatin1Char('0'));
        s_installed << id << id + QStringLiteral(":2016");
    }
    QStringList expressions;
    qsizetype characters = 0;
    for (int i = 0; i < count; ++i)
    {
        expressions << Expression(random, 3 + int(random.bounded(5)));
        characters += expressions.last().size();
    }

    int valid = 0;
    int satisfied = 0;
    std::vector<double> perExpression;
    for (int pass = 0; pass < passes; ++pass)
    {
        valid = 0;
        satisfied = 0;
        QElapsedTimer timer;
        timer.start();
        for (const QString& expression : expressions)
        {
            bool value = false;
            if (EvaluateExpression(&InstalledLeaf, expression, value))
            {
                ++valid;
                satisfied += value ? 1 : 0;
            }
        }
        perExpression.push_back(double(timer.nsecsElapsed()) / 1000.0 / count);
    }
    std::sort(perExpression.begin(), perExpression.end());

    std::printf("expressions: %d (3 to 7 leaves, %.1f characters on average), passes: %d\n", count,
                double(characters) / count, passes);
    std::printf("example: %s\n", qPrintable(expressions.first()));
    std::printf("well formed: %d, satisfied: %d\n", valid, satisfied);
    std::printf("evaluate: %.2f us per expression (median; fastest %.2f, slowest %.2f)\n",
                perExpression[perExpression.size() / 2], perExpression.front(), perExpression.back());
    return 0;
}
