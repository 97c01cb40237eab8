// Required-products expressions: normalising, tokenizing and evaluating, including the quirks
// callers rely on. Expected values below are worked out by hand from the rules, not taken from
// the code's output.

#include "manager/ProductExpression.h"

#include <QSet>
#include <QtTest>

using namespace Velmora::WorkflowCore;

namespace {

QSet<QString> s_installed;

// Installed when any of its ","-separated ids is in the set; "bad" cannot be evaluated.
bool TestLeaf(const QString& operand, bool& value)
{
    const QString trimmed = operand.trimmed();
    if (trimmed == QLatin1String("bad"))
        return false;
    value = false;
    for (const QString& id : trimmed.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (s_installed.contains(id.trimmed()))
            value = true;
    }
    return true;
}

QSet<QString> Set(const QString& ids)
{
    QSet<QString> set;
    for (const QString& id : ids.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        set.insert(id);
    return set;
}

} // namespace

class tst_ProductExpression : public QObject
{
    Q_OBJECT
private slots:
    void evaluate_data()
    {
        QTest::addColumn<QString>("expression");
        QTest::addColumn<QString>("installed"); // blank-separated ids
        QTest::addColumn<bool>("valid");
        QTest::addColumn<bool>("value");
        const auto row = [](const char* name, const char* expression, const char* installed, bool valid, bool value) {
            QTest::newRow(name) << QString::fromUtf8(expression) << QString::fromUtf8(installed) << valid << value;
        };
        row("single installed", "a", "a b", true, true);
        row("single missing", "a", "c", true, false);
        row("empty", "", "a", false, false);
        row("blanks only", "   ", "a", false, false);
        row("parenthesised", "(a)", "a b", true, true);
        row("double parenthesised", "((a))", "a b", true, true);
        row("unclosed", "(a", "a", false, false);
        row("unopened", "a)", "a", false, false);
        row("and last", "a &", "a", false, false);
        row("and first", "& a", "a", false, false);
        row("double and", "a && b", "a b", false, false);
        row("double or", "a || b", "a b", false, false);
        row("and before or, a b installed", "a & b | c", "a b", true, true);
        row("and before or, only c installed", "a & b | c", "c", true, true);
        row("left short-circuit", "a & (b | c) | d", "d", true, false);
        row("left short-circuit, b installed", "a & (b | c) | d", "a b", true, true);
        row("left short-circuit, d rescues", "a & (b | c) | d", "a d", true, true);
        row("adjacent groups take the first", "(a)(b)", "a b", true, true);
        row("adjacent groups ignore the second", "(a)(b)", "b", true, false);
        row("text before group dropped, b installed", "a | b (c)", "b", true, false);
        row("text before group dropped, c installed", "a | b (c)", "c", true, true);
        row("list operand missing", "a,b", "c", true, false);
        row("list operand one installed", "a,b", "a b", true, true);
        row("or with list, nothing", "c | a,b", "", true, false);
        row("or with list, c", "c | a,b", "c", true, true);
        row("versions", "a:2016 & b", "a:2016 b", true, true);
        row("version not installed", "a:2016 & b", "a b", true, false);
        row("leaf fails", "bad", "a", false, false);
        row("or short-circuits past a failing leaf", "a | bad", "a b", true, true);
        row("failing leaf first", "bad | a", "a", false, false);
        row("and short-circuits past a failing leaf", "c & bad", "", true, false);
        row("failing leaf reached", "a & bad", "a b", false, false);
        row("two groups, none", "(a & b) | (c & d)", "a d", true, false);
        row("two groups, first", "(a & b) | (c & d)", "a b", true, true);
        row("two groups, second", "(a & b) | (c & d)", "c d", true, true);
        row("nested enclosing", "((a & b))", "a b", true, true);
        row("inner blanks kept", "( (a) )", "a b", true, true);
        row("three ands", "a & b & c", "a b", true, false);
        row("three ands all", "a & b & c", "a b c", true, true);
        row("three ors none", "a | b | c", "", true, false);
        row("three ors one", "a | b | c", "c", true, true);
        row("and or and, none", "a & b | c & d", "a d", true, false);
        row("and or and, second", "a & b | c & d", "c d", true, true);
        row("group and", "(a | b) & c", "a b", true, false);
        row("group and all", "(a | b) & c", "a c", true, true);
        row("and group", "a & (b | c)", "a c", true, true);
        row("and group first missing", "a & (b | c)", "b", true, false);
        row("groups joined by and", "(a) & (b)", "a b", true, true);
        row("groups joined by or", "(a) | (b)", "b", true, true);
        row("operator at even place", "(a) (b) | c", "c", false, false);
        row("and at even place", "(a)(b) & c", "a b c", false, false);
        row("operand at odd place skipped", "a | (b)(c)", "c", true, false);
        row("operand at odd place, b", "a | (b)(c)", "b", true, true);
        row("word before group dropped", "x (a)", "x", true, false);
        row("word before group dropped, a", "x (a)", "a", true, true);
        row("and chain before group dropped", "a & b (c)", "a b", true, false);
        row("and chain before group dropped, c", "a & b (c)", "c", true, true);
        row("and then group", "a & (b)", "a b", true, true);
        row("empty group", "()", "a", false, false);
        row("blank group", "(  )", "a", false, false);
        row("and empty group", "a & ()", "a", false, false);
        row("malformed inside group", "(a &) | b", "a b", false, false);
        row("unclosed group", "(a & b", "a b", false, false);
        row("unopened group", "a & b)", "a b", false, false);
        row("reversed", ")a(", "a", false, false);
        row("lists of versions", "a:2016,b:2017 & c", "b:2017 c", true, true);
        row("padded", "  a  ", "a", true, true);
        row("no blanks and", "a&b", "a b", true, true);
        row("no blanks or", "a|b", "b", true, true);
        row("or first", "|a", "a", false, false);
        row("or last", "a|", "a", false, false);
        row("groups in a group", "((a) | (b))", "b", true, true);
        row("double groups joined", "((a)) & ((b))", "a b", true, true);
        row("and chain then group, stops", "a & b & (c | d)", "a d", true, false);
        row("and chain then group", "a & b & (c | d)", "a b c", true, true);
        row("deep nesting", "((((((a))))))", "a", true, true);
        row("nested groups", "a & (b & (c & (d | e)))", "a b c e", true, true);
        row("nested groups missing", "a & (b & (c & (d | e)))", "a b c", true, false);
        row("or then and, a", "a | b & c", "a", true, true);
        row("or then and, b", "a | b & c", "b", true, false);
        row("and then or", "b & c | a", "a", true, true);
        row("and with list", "a & b,c", "a c", true, true);
        row("and blank and", "a & & b", "a b", false, false);
        row("and unclosed", "a & (b", "a b", false, false);
        row("group then group", "(a | b) (c)", "a", true, true);
    }
    void evaluate()
    {
        QFETCH(QString, expression);
        QFETCH(QString, installed);
        QFETCH(bool, valid);
        QFETCH(bool, value);
        s_installed = Set(installed);
        bool result = !value; // must be overwritten
        QCOMPARE(EvaluateExpression(&TestLeaf, expression, result), valid);
        QCOMPARE(result, value);
    }

    void missingLeafEvaluatorFails()
    {
        bool value = true;
        QVERIFY(!EvaluateExpression(nullptr, QStringLiteral("a"), value));
        QVERIFY(!value);
    }

    void normalise_data()
    {
        QTest::addColumn<QString>("expression");
        QTest::addColumn<bool>("balanced");
        QTest::addColumn<QString>("normal");
        QTest::newRow("empty") << QString() << true << QString();
        QTest::newRow("blanks") << QStringLiteral("   ") << true << QString();
        QTest::newRow("trimmed first") << QStringLiteral("  (a)  ") << true << QStringLiteral("a");
        QTest::newRow("two layers") << QStringLiteral("((a))") << true << QStringLiteral("a");
        QTest::newRow("inner blanks stop stripping") << QStringLiteral("( (a) )") << true << QStringLiteral(" (a) ");
        QTest::newRow("adjacent groups") << QStringLiteral("(a)(b)") << true << QStringLiteral("(a)(b)");
        QTest::newRow("empty group") << QStringLiteral("()") << true << QString();
        QTest::newRow("groups inside") << QStringLiteral("((a) | (b))") << true << QStringLiteral("(a) | (b)");
        QTest::newRow("unclosed") << QStringLiteral("(a") << false << QString();
        QTest::newRow("unopened") << QStringLiteral("a)") << false << QString();
        QTest::newRow("reversed") << QStringLiteral(")(") << false << QString();
    }
    void normalise()
    {
        QFETCH(QString, expression);
        QFETCH(bool, balanced);
        QFETCH(QString, normal);
        QString text = expression;
        QCOMPARE(NormaliseExpression(text), balanced);
        if (balanced)
            QCOMPARE(text, normal);
    }

    void tokenize_data()
    {
        QTest::addColumn<QString>("expression");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QStringList>("tokens");
        const auto list = [](std::initializer_list<const char*> items) {
            QStringList result;
            for (const char* item : items)
                result << QString::fromUtf8(item);
            return result;
        };
        QTest::newRow("and splits") << QStringLiteral("a & b") << true << list({"a", "&", "b"});
        QTest::newRow("and binds inside or") << QStringLiteral("a & b | c") << true << list({"a & b", "|", "c"});
        QTest::newRow("dropped word") << QStringLiteral("a | b (c)") << true << list({"a", "|", "c"});
        QTest::newRow("groups") << QStringLiteral("a & (b | c) | d") << true << list({"a", "&", "b | c", "|", "d"});
        QTest::newRow("adjacent groups") << QStringLiteral("(a)(b)") << true << list({"a", "b"});
        QTest::newRow("single or group") << QStringLiteral("x & (a | b)") << true << list({"x", "&", "a | b"});
        QTest::newRow("list") << QStringLiteral("a,b & c") << true << list({"a,b", "&", "c"});
        QTest::newRow("double or") << QStringLiteral("a || b") << false << QStringList();
        QTest::newRow("empty") << QString() << false << QStringList();
        QTest::newRow("empty and piece") << QStringLiteral("a & & b") << false << QStringList();
        QTest::newRow("operator last") << QStringLiteral("a |") << false << QStringList();
        QTest::newRow("unclosed group") << QStringLiteral("a & (b") << false << QStringList();
    }
    void tokenize()
    {
        QFETCH(QString, expression);
        QFETCH(bool, valid);
        QFETCH(QStringList, tokens);
        QStringList result;
        QCOMPARE(TokenizeExpression(expression, result), valid);
        if (valid)
            QCOMPARE(result, tokens);
    }

    void operatorToken_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isOperator");
        QTest::newRow("and") << QStringLiteral("&") << true;
        QTest::newRow("or") << QStringLiteral("|") << true;
        QTest::newRow("padded") << QStringLiteral(" & ") << true;
        QTest::newRow("double") << QStringLiteral("&&") << false;
        QTest::newRow("operand") << QStringLiteral("a") << false;
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("parenthesis") << QStringLiteral("(") << false;
    }
    void operatorToken()
    {
        QFETCH(QString, text);
        QFETCH(bool, isOperator);
        QCOMPARE(IsOperatorToken(text), isOperator);
    }

    void deepNestingFailsWithoutExhaustingTheStack()
    {
        s_installed = Set(QStringLiteral("a"));
        QString deep = QStringLiteral("a");
        for (int i = 0; i < 20000; ++i)
            deep = QStringLiteral("a & (") + deep + QLatin1Char(')');
        bool value = true;
        QVERIFY(!EvaluateExpression(&TestLeaf, deep, value));
        QVERIFY(!value);
    }

    void manyEnclosingParenthesesAreStrippedInOneGo()
    {
        s_installed = Set(QStringLiteral("a"));
        const QString wrapped = QString(100000, QLatin1Char('(')) + QLatin1Char('a') + QString(100000, QLatin1Char(')'));
        bool value = false;
        QVERIFY(EvaluateExpression(&TestLeaf, wrapped, value));
        QVERIFY(value);
    }
};

QTEST_APPLESS_MAIN(tst_ProductExpression)
#include "tst_productexpression.moc"
