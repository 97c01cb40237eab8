// SPDX-License-Identifier: MIT
// Required-products expressions: normalising, tokenizing and evaluating, including the readings
// that callers rely on. Every expected outcome below was worked out by hand from the rules.

#include "manager/ProductExpression.h"

#include <QSet>
#include <QStringList>
#include <QtTest>

#include <initializer_list>
#include <utility>

using namespace Velmora::WorkflowCore;

namespace {

// The ids that count as installed for the current row, and every operand the leaf was asked.
QSet<QString> s_installed;
QStringList s_asked;

// Installed when the trimmed operand, as a whole, is in the set. "bad" cannot be evaluated: the
// leaf then claims true and reports failure, so a caller that trusted the value would be caught.
bool InstalledLeaf(const QString& operand, bool& value)
{
    s_asked << operand;
    if (operand.trimmed() == QLatin1String("bad"))
    {
        value = true;
        return false;
    }
    value = s_installed.contains(operand.trimmed());
    return true;
}

void Install(std::initializer_list<const char*> ids)
{
    s_installed.clear();
    for (const char* id : ids)
        s_installed.insert(QString::fromUtf8(id));
    s_asked.clear();
}

enum Outcome
{
    True,
    False,
    Fail
};

struct Case
{
    std::initializer_list<const char*> installed;
    Outcome outcome;
};

// One row per installed set, all for the same expression.
void AddExpression(const char* expression, std::initializer_list<Case> cases)
{
    for (const Case& c : cases)
    {
        QStringList installed;
        for (const char* id : c.installed)
            installed << QString::fromUtf8(id);
        QString name = QString::fromUtf8(expression);
        name.replace(QLatin1Char('\t'), QLatin1String("\\t"))
            .replace(QLatin1Char('\n'), QLatin1String("\\n"));
        QTest::addRow("%s {%s}", qPrintable(name), qPrintable(installed.join(QLatin1String(", "))))
            << QString::fromUtf8(expression) << installed << (c.outcome != Fail) << (c.outcome == True);
    }
}

QStringList List(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items)
        list << QString::fromUtf8(item);
    return list;
}

// Evaluates with a value that starts true, so a failure that forgot to clear it shows.
std::pair<bool, bool> Evaluate(const QString& expression)
{
    bool value = true;
    const bool valid = EvaluateExpression(&InstalledLeaf, expression, value);
    return {valid, value};
}

const std::pair<bool, bool> kTrue{true, true};
const std::pair<bool, bool> kFalse{true, false};
const std::pair<bool, bool> kFail{false, false};

// "a & (a & (... (a) ...))" with the given number of nested groups.
QString NestedAnds(int groups)
{
    QString text;
    text.reserve(groups * 6 + 1);
    for (int i = 0; i < groups; ++i)
        text += QLatin1String("a & (");
    text += QLatin1Char('a');
    text += QString(groups, QLatin1Char(')'));
    return text;
}

} // namespace

class tst_ProductExpression : public QObject
{
    Q_OBJECT
private slots:
    void evaluate_data();
    void evaluate();

    void emptyExpressionFails();
    void blankExpressionFails();
    void enclosedOperandEvaluatesAsTheOperand();
    void unclosedParenthesisFails();
    void unopenedParenthesisFails();
    void trailingOperatorFails();
    void leadingOperatorFails();
    void doubledAndFails();
    void doubledOrFails();
    void andBindsTighterThanOrWithinOneLevel();
    void groupsShortCircuitFromTheLeft();
    void adjacentGroupsTakeTheFirst();
    void textBeforeGroupIsDropped();
    void operandAtOddPositionIsSkipped();
    void loneGroupReachesTheLeafWhole();
    void missingLeafEvaluatorFails();
    void leafFailureFailsTheEvaluation();
    void shortCircuitNeverAsksTheLeaf();
    void nestingUpToTheLimitEvaluates();
    void hundredThousandNestedGroupsFailWithoutExhaustingTheStack();
    void hundredThousandEnclosingParenthesesAreStripped();

    void normalise_data();
    void normalise();
    void normaliseTrimsEvenWhenUnbalanced();
    void tokenize_data();
    void tokenize();
    void isOperatorToken_data();
    void isOperatorToken();
};

void tst_ProductExpression::evaluate_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QStringList>("installed");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("value");

    // Single operands, blanks, enclosing parentheses.
    AddExpression("a", {{{"a"}, True}, {{}, False}, {{"b"}, False}});
    AddExpression("  a  ", {{{"a"}, True}, {{}, False}});
    AddExpression("(a)", {{{"a"}, True}, {{}, False}});
    AddExpression("((a))", {{{"a"}, True}, {{"b"}, False}});
    AddExpression("((((((a))))))", {{{"a"}, True}, {{}, False}});
    AddExpression("( (a) )", {{{"a"}, True}, {{}, False}});
    AddExpression("((a & b))", {{{"a", "b"}, True}, {{"a"}, False}});
    AddExpression("", {{{"a"}, Fail}, {{}, Fail}});
    AddExpression("   ", {{{"a"}, Fail}});
    AddExpression("()", {{{"a"}, Fail}});
    AddExpression("(  )", {{{"a"}, Fail}});

    // Unbalanced parentheses.
    AddExpression("(a", {{{"a"}, Fail}, {{}, Fail}});
    AddExpression("a)", {{{"a"}, Fail}});
    AddExpression(")a(", {{{"a"}, Fail}});
    AddExpression("a & (b", {{{"a", "b"}, Fail}, {{}, Fail}});
    AddExpression("(a | b))", {{{"a"}, Fail}});

    // Operators where an operand must be, and empty operands.
    AddExpression("a &", {{{"a"}, Fail}});
    AddExpression("& a", {{{"a"}, Fail}});
    AddExpression("a && b", {{{"a", "b"}, Fail}, {{}, Fail}});
    AddExpression("a || b", {{{"a", "b"}, Fail}, {{}, Fail}});
    AddExpression("a |", {{{"a"}, Fail}});
    AddExpression("| a", {{{"a"}, Fail}});
    AddExpression("a & & b", {{{"a", "b"}, Fail}});
    AddExpression("a & ()", {{{"a"}, Fail}, {{}, Fail}});
    AddExpression("a & ( ) & b", {{{"a", "b"}, Fail}});

    // "&" chains and "|" chains.
    AddExpression("a & b", {{{"a", "b"}, True}, {{"a"}, False}, {{"b"}, False}, {{}, False}});
    AddExpression("a&b", {{{"a", "b"}, True}, {{"a"}, False}});
    AddExpression("a\t&\tb", {{{"a", "b"}, True}, {{"b"}, False}});
    AddExpression("a & b & c", {{{"a", "b", "c"}, True}, {{"a", "b"}, False}, {{}, False}});
    AddExpression("a & b & c & d", {{{"a", "b", "c", "d"}, True}, {{"a", "b", "c"}, False}});
    AddExpression("a|b", {{{"a"}, True}, {{"b"}, True}, {{}, False}});
    AddExpression("a\n|\nb", {{{"b"}, True}, {{}, False}});
    AddExpression("a | b | c", {{{"c"}, True}, {{"b"}, True}, {{}, False}});

    // "&" before "|" within one level of text.
    AddExpression("a & b | c",
                  {{{"a", "b"}, True}, {{"c"}, True}, {{"a"}, False}, {{"a", "c"}, True}, {{}, False}});
    AddExpression("a | b & c", {{{"a"}, True}, {{"b"}, False}, {{"b", "c"}, True}, {{"c"}, False}});
    AddExpression("b & c | a", {{{"a"}, True}, {{"b", "c"}, True}, {{"b"}, False}});
    AddExpression("a & b | c & d",
                  {{{"a", "d"}, False}, {{"c", "d"}, True}, {{"a", "b"}, True}, {{"b", "c"}, False}});
    AddExpression("a&b|c&d", {{{"c", "d"}, True}, {{"a", "c"}, False}, {{"a", "b"}, True}});
    AddExpression("(a & b | c)", {{{"c"}, True}, {{"a"}, False}, {{"a", "b"}, True}});

    // Groups, evaluated with short-circuits from the left.
    AddExpression(
        "a & (b | c) | d",
        {{{"d"}, False}, {{"a", "b"}, True}, {{"a", "d"}, True}, {{"a"}, False}, {{"b", "c", "d"}, False}});
    AddExpression("a & (b | c)", {{{"a", "c"}, True}, {{"b"}, False}, {{"a"}, False}});
    AddExpression("(a | b) & c", {{{"a"}, False}, {{"b", "c"}, True}, {{"c"}, False}});
    AddExpression("(a & b) | (c & d)",
                  {{{"a", "d"}, False}, {{"a", "b"}, True}, {{"c", "d"}, True}, {{"b", "c"}, False}});
    AddExpression("(a) & (b)", {{{"a", "b"}, True}, {{"a"}, False}});
    AddExpression("(a) | (b)", {{{"b"}, True}, {{}, False}});
    AddExpression("( a ) & ( b )", {{{"a", "b"}, True}, {{"a"}, False}});
    AddExpression(
        "(a) & (b) | (c)",
        {{{"c"}, False}, {{"a", "c"}, True}, {{"a", "b"}, True}, {{"a"}, False}, {{"b", "c"}, False}});
    AddExpression("(a) | (b) & (c)", {{{"a"}, True}, {{"b"}, False}, {{"b", "c"}, True}, {{"c"}, False}});
    AddExpression("(a)&(b)|(c)&(d)",
                  {{{"a", "c", "d"}, True}, {{"c", "d"}, False}, {{"a", "b"}, True}, {{"a", "c"}, False}});
    AddExpression("(a) & b | c", {{{"c"}, False}, {{"a", "c"}, True}, {{"a", "b"}, True}, {{"a"}, False}});
    AddExpression("a & (b) | c", {{{"c"}, False}, {{"a", "c"}, True}, {{"a", "b"}, True}});
    AddExpression("a | (b | c) & d", {{{"a"}, True}, {{"b"}, False}, {{"c", "d"}, True}, {{"d"}, False}});
    AddExpression("a & b & (c | d)", {{{"a", "d"}, False}, {{"a", "b", "c"}, True}, {{"a", "b"}, False}});
    AddExpression("a & (b)", {{{"a", "b"}, True}, {{"a"}, False}, {{"b"}, False}});
    AddExpression("((a) | (b))", {{{"b"}, True}, {{"a"}, True}, {{}, False}});
    AddExpression("((a)) & ((b))", {{{"a", "b"}, True}, {{"a"}, False}, {{"b"}, False}});
    AddExpression("a | ((b))", {{{"b"}, True}, {{}, False}});
    AddExpression("a & (b & (c & (d | e)))",
                  {{{"a", "b", "c", "e"}, True}, {{"a", "b", "c"}, False}, {{"b", "c", "d"}, False}});
    AddExpression("(x (a)) & b", {{{"a", "b"}, True}, {{"x", "b"}, False}});

    // Operands at odd positions are skipped.
    AddExpression("(a)(b)", {{{"a"}, True}, {{"b"}, False}, {{"a", "b"}, True}});
    AddExpression("(a | b) (c)", {{{"a"}, True}, {{"b"}, True}, {{"c"}, False}});
    AddExpression("a | (b)(c)", {{{"c"}, False}, {{"b"}, True}, {{"a"}, True}});
    AddExpression("(a) x", {{{"a"}, True}, {{"x"}, False}});
    AddExpression("(a) b & c", {{{"a"}, True}, {{"b", "c"}, False}});
    AddExpression("(a) (b) | c", {{{"c"}, Fail}, {{"a"}, Fail}});
    AddExpression("(a)(b) & c", {{{"a", "b", "c"}, Fail}});

    // Text before a group that does not end in "&" is dropped.
    AddExpression("a | b (c)", {{{"b"}, False}, {{"c"}, True}, {{"a"}, True}, {{"b", "c"}, True}});
    AddExpression("x (a)", {{{"x"}, False}, {{"a"}, True}});
    AddExpression("a & b (c)", {{{"a", "b"}, False}, {{"c"}, True}});

    // A lone token that still holds a group or a "|" goes to the leaf whole.
    AddExpression("x ((a))", {{{"a"}, False}, {{"(a)"}, True}});
    AddExpression("a ((b))", {{{"b"}, False}, {{"a"}, False}, {{"(b)"}, True}});
    AddExpression("x (y (a))", {{{"a"}, False}, {{"y"}, False}, {{"y (a)"}, True}});
    AddExpression("x (a | b)", {{{"a"}, False}, {{"b"}, False}, {{"a | b"}, True}});
    // ... but an "&" inside it still splits, so the "|" binds tighter there.
    AddExpression("x (a | b & c)", {{{"a", "c"}, True}, {{"a"}, False}, {{"c"}, False}, {{"b", "c"}, True}});
    AddExpression("x (a & b | c)", {{{"c"}, False}, {{"a", "c"}, True}, {{"a", "b"}, True}, {{"a"}, False}});

    // Product ids with versions, and lists of ids as one operand.
    AddExpression("a:2016 & b", {{{"a:2016", "b"}, True}, {{"a", "b"}, False}});
    AddExpression("prodA:2016,prodB", {{{"prodA:2016,prodB"}, True}, {{"prodA:2016"}, False}});
    AddExpression("prodA:2016,prodB:2017 & prodC",
                  {{{"prodA:2016,prodB:2017", "prodC"}, True}, {{"prodC"}, False}});
    AddExpression("prodA:2016 & (prodB:1.2 | prodC:3:4)",
                  {{{"prodA:2016", "prodC:3:4"}, True}, {{"prodA:2016"}, False}, {{"prodB:1.2"}, False}});
    AddExpression("prodA:2016 | prodB:2017 & (prodC | prodD:1.0)", {{{"prodA:2016"}, True},
                                                                    {{"prodB:2017", "prodD:1.0"}, True},
                                                                    {{"prodB:2017"}, False},
                                                                    {{"prodC"}, False}});
    AddExpression("a & b,c", {{{"a", "b,c"}, True}, {{"a", "b"}, False}});

    // Malformed parts and failing leaves matter only when the walk reaches them.
    AddExpression("(a &) | b", {{{"a", "b"}, Fail}, {{}, Fail}});
    AddExpression("b | (a &)", {{{"b"}, True}, {{}, Fail}});
    AddExpression("bad", {{{"a"}, Fail}, {{"bad"}, Fail}});
    AddExpression("a | bad", {{{"a"}, True}, {{}, Fail}});
    AddExpression("bad | a", {{{"a"}, Fail}});
    AddExpression("c & bad", {{{}, False}, {{"c"}, Fail}});
    AddExpression("(a | bad) & c", {{{"a", "c"}, True}, {{"a"}, False}, {{"c"}, Fail}});
}

void tst_ProductExpression::evaluate()
{
    QFETCH(QString, expression);
    QFETCH(QStringList, installed);
    QFETCH(bool, valid);
    QFETCH(bool, value);
    s_installed = QSet<QString>(installed.cbegin(), installed.cend());
    s_asked.clear();
    const auto result = Evaluate(expression);
    QCOMPARE(result.first, valid);
    QCOMPARE(result.second, value);
}

void tst_ProductExpression::emptyExpressionFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QString()), kFail);
    QCOMPARE(Evaluate(QLatin1String("")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::blankExpressionFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("   ")), kFail);
    QCOMPARE(Evaluate(QStringLiteral(" \t\n ")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::enclosedOperandEvaluatesAsTheOperand()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("(a)")), kTrue);
    QCOMPARE(Evaluate(QStringLiteral("((a))")), kTrue);
    QCOMPARE(s_asked, List({"a", "a"}));
    Install({"b"});
    QCOMPARE(Evaluate(QStringLiteral("(a)")), kFalse);
    QCOMPARE(Evaluate(QStringLiteral("((a))")), kFalse);
}

void tst_ProductExpression::unclosedParenthesisFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("(a")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::unopenedParenthesisFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("a)")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::trailingOperatorFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("a &")), kFail);
    QCOMPARE(Evaluate(QStringLiteral("a |")), kFail);
}

void tst_ProductExpression::leadingOperatorFails()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("& a")), kFail);
    QCOMPARE(Evaluate(QStringLiteral("| a")), kFail);
}

void tst_ProductExpression::doubledAndFails()
{
    Install({"a", "b"});
    QCOMPARE(Evaluate(QStringLiteral("a && b")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::doubledOrFails()
{
    Install({"a", "b"});
    QCOMPARE(Evaluate(QStringLiteral("a || b")), kFail);
    QVERIFY(s_asked.isEmpty());
}

void tst_ProductExpression::andBindsTighterThanOrWithinOneLevel()
{
    const QString expression = QStringLiteral("a & b | c");
    Install({"a", "b"});
    QCOMPARE(Evaluate(expression), kTrue);
    QCOMPARE(s_asked, List({"a", "b"}));
    Install({"c"});
    QCOMPARE(Evaluate(expression), kTrue);
    QCOMPARE(s_asked, List({"a", "c"}));
}

void tst_ProductExpression::groupsShortCircuitFromTheLeft()
{
    const QString expression = QStringLiteral("a & (b | c) | d");
    Install({"d"});
    QCOMPARE(Evaluate(expression), kFalse);
    QCOMPARE(s_asked, List({"a"}));
    Install({"a", "d"});
    QCOMPARE(Evaluate(expression), kTrue);
    QCOMPARE(s_asked, List({"a", "b", "c", "d"}));
}

void tst_ProductExpression::adjacentGroupsTakeTheFirst()
{
    Install({"b"});
    QCOMPARE(Evaluate(QStringLiteral("(a)(b)")), kFalse);
    QCOMPARE(s_asked, List({"a"}));
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("(a)(b)")), kTrue);
}

void tst_ProductExpression::textBeforeGroupIsDropped()
{
    const QString expression = QStringLiteral("a | b (c)");
    Install({"b"});
    QCOMPARE(Evaluate(expression), kFalse);
    QCOMPARE(s_asked, List({"a", "c"}));
    Install({"c"});
    QCOMPARE(Evaluate(expression), kTrue);
}

void tst_ProductExpression::operandAtOddPositionIsSkipped()
{
    QStringList tokens;
    QVERIFY(TokenizeExpression(QStringLiteral("a | (b)(c)"), tokens));
    QCOMPARE(tokens, List({"a", "|", "b", "c"}));
    Install({"c"});
    QCOMPARE(Evaluate(QStringLiteral("a | (b)(c)")), kFalse);
    QCOMPARE(s_asked, List({"a", "b"}));
}

void tst_ProductExpression::loneGroupReachesTheLeafWhole()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("x ((a))")), kFalse);
    QCOMPARE(s_asked, List({"(a)"}));
    Install({"a", "b"});
    QCOMPARE(Evaluate(QStringLiteral("x (a | b)")), kFalse);
    QCOMPARE(s_asked, List({"a | b"}));
}

void tst_ProductExpression::missingLeafEvaluatorFails()
{
    bool value = true;
    QVERIFY(!EvaluateExpression(nullptr, QStringLiteral("a"), value));
    QVERIFY(!value);
    value = true;
    QVERIFY(!EvaluateExpression(nullptr, QStringLiteral("a & (b | c)"), value));
    QVERIFY(!value);
}

void tst_ProductExpression::leafFailureFailsTheEvaluation()
{
    Install({"a", "b"});
    QCOMPARE(Evaluate(QStringLiteral("bad")), kFail);
    QCOMPARE(Evaluate(QStringLiteral("a & (bad | b)")), kFail);
    QCOMPARE(Evaluate(QStringLiteral("a & bad")), kFail);
}

void tst_ProductExpression::shortCircuitNeverAsksTheLeaf()
{
    Install({"a"});
    QCOMPARE(Evaluate(QStringLiteral("a | bad")), kTrue);
    QCOMPARE(s_asked, List({"a"}));
    Install({});
    QCOMPARE(Evaluate(QStringLiteral("a & bad")), kFalse);
    QCOMPARE(s_asked, List({"a"}));
}

void tst_ProductExpression::nestingUpToTheLimitEvaluates()
{
    // "a" at the bottom of 100 nested groups is the hundredth level below the top.
    Install({"a"});
    QCOMPARE(Evaluate(NestedAnds(100)), kTrue);
    QCOMPARE(s_asked.size(), 101);
    QCOMPARE(Evaluate(NestedAnds(101)), kFail);
}

void tst_ProductExpression::hundredThousandNestedGroupsFailWithoutExhaustingTheStack()
{
    const QString deep = NestedAnds(100000);
    Install({"a"});
    QCOMPARE(Evaluate(deep), kFail);
    // The walk stops at the first "&" before going deep at all.
    Install({});
    QCOMPARE(Evaluate(deep), kFalse);
    QCOMPARE(s_asked, List({"a"}));
}

void tst_ProductExpression::hundredThousandEnclosingParenthesesAreStripped()
{
    const QString wrapped =
        QString(100000, QLatin1Char('(')) + QLatin1Char('a') + QString(100000, QLatin1Char(')'));
    Install({"a"});
    QCOMPARE(Evaluate(wrapped), kTrue);
    QString text = wrapped;
    QVERIFY(NormaliseExpression(text));
    QCOMPARE(text, QStringLiteral("a"));
}

void tst_ProductExpression::normalise_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<bool>("balanced");
    QTest::addColumn<QString>("normal");
    QTest::newRow("empty") << QString() << true << QString();
    QTest::newRow("blanks") << QStringLiteral(" \t ") << true << QString();
    QTest::newRow("operand") << QStringLiteral("  a & b ") << true << QStringLiteral("a & b");
    QTest::newRow("trimmed, then stripped") << QStringLiteral("  (a)  ") << true << QStringLiteral("a");
    QTest::newRow("two layers") << QStringLiteral("((a))") << true << QStringLiteral("a");
    QTest::newRow("inner blanks stop stripping")
        << QStringLiteral("( (a) )") << true << QStringLiteral(" (a) ");
    QTest::newRow("inner blanks kept") << QStringLiteral("(( a ))") << true << QStringLiteral(" a ");
    QTest::newRow("adjacent groups") << QStringLiteral("(a)(b)") << true << QStringLiteral("(a)(b)");
    QTest::newRow("first group closes early")
        << QStringLiteral("(a & b) | (c)") << true << QStringLiteral("(a & b) | (c)");
    QTest::newRow("groups inside") << QStringLiteral("((a) | (b))") << true << QStringLiteral("(a) | (b)");
    QTest::newRow("enclosed groups side by side")
        << QStringLiteral("((a)) & ((b))") << true << QStringLiteral("((a)) & ((b))");
    QTest::newRow("empty group") << QStringLiteral("()") << true << QString();
    QTest::newRow("empty groups") << QStringLiteral("(())") << true << QString();
    QTest::newRow("blank group") << QStringLiteral("(  )") << true << QStringLiteral("  ");
    QTest::newRow("operand then group") << QStringLiteral("a (b)") << true << QStringLiteral("a (b)");
    QTest::newRow("unclosed") << QStringLiteral("(a") << false << QStringLiteral("(a");
    QTest::newRow("unopened") << QStringLiteral("a)") << false << QStringLiteral("a)");
    QTest::newRow("reversed") << QStringLiteral(")(") << false << QStringLiteral(")(");
    QTest::newRow("balanced count, wrong order")
        << QStringLiteral("(a))(") << false << QStringLiteral("(a))(");
}

void tst_ProductExpression::normalise()
{
    QFETCH(QString, expression);
    QFETCH(bool, balanced);
    QFETCH(QString, normal);
    QString text = expression;
    QCOMPARE(NormaliseExpression(text), balanced);
    QCOMPARE(text, normal);
}

void tst_ProductExpression::normaliseTrimsEvenWhenUnbalanced()
{
    QString text = QStringLiteral("  (a & b  ");
    QVERIFY(!NormaliseExpression(text));
    QCOMPARE(text, QStringLiteral("(a & b"));
}

void tst_ProductExpression::tokenize_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QStringList>("tokens");
    QTest::newRow("operand") << QStringLiteral("a") << true << List({"a"});
    QTest::newRow("and chain split") << QStringLiteral("a & b") << true << List({"a", "&", "b"});
    QTest::newRow("and chain, tabs") << QStringLiteral("a\t&\tb&c") << true
                                     << List({"a", "&", "b", "&", "c"});
    QTest::newRow("and stays inside or") << QStringLiteral("a & b | c") << true << List({"a & b", "|", "c"});
    QTest::newRow("or chain") << QStringLiteral("a|b | c") << true << List({"a", "|", "b", "|", "c"});
    QTest::newRow("text before group dropped")
        << QStringLiteral("a | b (c)") << true << List({"a", "|", "c"});
    QTest::newRow("and chain before group dropped") << QStringLiteral("a & b (c)") << true << List({"c"});
    QTest::newRow("and before group kept")
        << QStringLiteral("a & b & (c | d)") << true << List({"a & b", "&", "c | d"});
    QTest::newRow("groups and operators")
        << QStringLiteral("a & (b | c) | d") << true << List({"a", "&", "b | c", "|", "d"});
    QTest::newRow("adjacent groups") << QStringLiteral("(a)(b)") << true << List({"a", "b"});
    QTest::newRow("operand after group") << QStringLiteral("(a) b & c") << true << List({"a", "b & c"});
    QTest::newRow("operator after group continues")
        << QStringLiteral("(a) & b | c") << true << List({"a", "&", "b", "|", "c"});
    QTest::newRow("group inner text trimmed")
        << QStringLiteral("( a ) & ( b )") << true << List({"a", "&", "b"});
    QTest::newRow("blanks around a group") << QStringLiteral(" (a) ") << true << List({"a"});
    QTest::newRow("lone group kept whole") << QStringLiteral("x ((a))") << true << List({"(a)"});
    QTest::newRow("lone or group kept whole") << QStringLiteral("x (a | b)") << true << List({"a | b"});
    QTest::newRow("lone group split at and")
        << QStringLiteral("x (a | b & c)") << true << List({"a | b", "&", "c"});
    QTest::newRow("nested group kept for later")
        << QStringLiteral("a & (b & (c | d))") << true << List({"a", "&", "b & (c | d)"});
    QTest::newRow("id lists and versions") << QStringLiteral("prodA:2016,prodB & prodC:1:2") << true
                                           << List({"prodA:2016,prodB", "&", "prodC:1:2"});
    QTest::newRow("operand at odd position")
        << QStringLiteral("a | (b)(c)") << true << List({"a", "|", "b", "c"});
    QTest::newRow("balance is not its business") << QStringLiteral("a)") << true << List({"a)"});
    QTest::newRow("empty") << QString() << false << QStringList();
    QTest::newRow("blanks") << QStringLiteral("   ") << false << QStringList();
    QTest::newRow("what a blank group normalises to") << QStringLiteral("  ") << false << QStringList();
    QTest::newRow("double or") << QStringLiteral("a || b") << false << QStringList();
    QTest::newRow("double and") << QStringLiteral("a && b") << false << QStringList();
    QTest::newRow("and last") << QStringLiteral("a &") << false << QStringList();
    QTest::newRow("and first") << QStringLiteral("& a") << false << QStringList();
    QTest::newRow("or last") << QStringLiteral("a |") << false << QStringList();
    QTest::newRow("or first") << QStringLiteral("| a") << false << QStringList();
    QTest::newRow("and then empty group") << QStringLiteral("a & ()") << false << QStringList();
    QTest::newRow("operator at even position") << QStringLiteral("(a) (b) | c") << false << QStringList();
    QTest::newRow("unclosed group") << QStringLiteral("a & (b") << false << QStringList();
}

void tst_ProductExpression::tokenize()
{
    QFETCH(QString, expression);
    QFETCH(bool, valid);
    QFETCH(QStringList, tokens);
    QStringList result = List({"left over"});
    QCOMPARE(TokenizeExpression(expression, result), valid);
    QCOMPARE(result, tokens);
}

void tst_ProductExpression::isOperatorToken_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isOperator");
    QTest::newRow("and") << QStringLiteral("&") << true;
    QTest::newRow("or") << QStringLiteral("|") << true;
    QTest::newRow("padded and") << QStringLiteral(" & ") << true;
    QTest::newRow("padded or") << QStringLiteral("\t|\n") << true;
    QTest::newRow("double and") << QStringLiteral("&&") << false;
    QTest::newRow("and or") << QStringLiteral("& |") << false;
    QTest::newRow("operand") << QStringLiteral("a") << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("blank") << QStringLiteral(" ") << false;
    QTest::newRow("parenthesis") << QStringLiteral("(") << false;
}

void tst_ProductExpression::isOperatorToken()
{
    QFETCH(QString, text);
    QFETCH(bool, isOperator);
    QCOMPARE(IsOperatorToken(text), isOperator);
}

QTEST_APPLESS_MAIN(tst_ProductExpression)
#include "tst_productexpression.moc"
