// SPDX-License-Identifier: MIT
// The keys of the catalogue's lookups: equal exactly when their case-folded forms are, and
// hashed alike whenever they are equal, whichever way each of them folds.

#include "util/FoldedText.h"

#include <QHash>
#include <QRandomGenerator>
#include <QtTest>

using namespace Velmora::WorkflowCore;

namespace {

bool FoldedEqual(const QString& a, const QString& b)
{
    return a.toCaseFolded() == b.toCaseFolded();
}

// Characters whose folding is worth trying: plain letters and digits, letters of Latin-1, Greek
// and Cyrillic, letters that fold to plain ASCII (the Kelvin sign, the long s), letters that fold
// to more than one character (sharp s, the ligature ff), the dotted and dotless i, and a letter
// outside the basic plane, written as a surrogate pair.
const QStringList& Alphabet()
{
    static const QStringList alphabet = [] {
        QStringList letters;
        for (char c : QByteArray("aAbBkKsSzZiI09_ -.:"))
        {
            if (c)
                letters << QString(QLatin1Char(c));
        }
        for (char32_t c : {0x00E9u, 0x00C9u, 0x00DFu, 0x1E9Eu, 0x03C3u, 0x03C2u, 0x03A3u, 0x03A9u, 0x03C9u,
                           0x0416u, 0x0436u, 0x212Au, 0x017Fu, 0x0130u, 0x0131u, 0xFB00u, 0x10400u, 0x10428u})
            letters << QString::fromUcs4(&c, 1);
        return letters;
    }();
    return alphabet;
}

QString RandomText(QRandomGenerator& random, int longest)
{
    QString text;
    const int length = random.bounded(longest + 1);
    for (int i = 0; i < length; ++i)
        text += Alphabet().at(random.bounded(int(Alphabet().size())));
    return text;
}

// The same text with the case of some of its characters changed, or a character swapped for
// one that folds alike: a pair that is often, not always, equal once folded.
QString Recased(QRandomGenerator& random, const QString& text)
{
    QString result;
    for (const QChar c : text)
    {
        switch (random.bounded(4))
        {
        case 0:
            result += c.toUpper();
            break;
        case 1:
            result += c.toLower();
            break;
        case 2:
            result += c == QLatin1Char('k') ? QChar(0x212A) : c == QLatin1Char('s') ? QChar(0x017F) : c;
            break;
        default:
            result += c;
        }
    }
    return result;
}

} // namespace

class tst_FoldedText : public QObject
{
    Q_OBJECT
private slots:
    void plainTextsCompareWithoutCase()
    {
        QVERIFY(FoldedText(QStringLiteral("Id_Flow0")) == FoldedText(QStringLiteral("ID_FLOW0")));
        QVERIFY(FoldedText(QStringLiteral("id_flow0")) == FoldedText(QStringLiteral("Id_Flow0")));
        QVERIFY(FoldedText(QStringLiteral("Id_Flow0")) != FoldedText(QStringLiteral("Id_Flow1")));
        QVERIFY(FoldedText(QStringLiteral("Id_Flow0")) != FoldedText(QStringLiteral("Id_Flow01")));
        // Only letters have a case: "@" and "`" sit beside the capitals and the small letters.
        QVERIFY(FoldedText(QStringLiteral("@")) != FoldedText(QStringLiteral("`")));
        QVERIFY(FoldedText(QStringLiteral("[")) != FoldedText(QStringLiteral("{")));
        QVERIFY(FoldedText(QString()) == FoldedText(QStringLiteral("")));
        QCOMPARE(FoldedText(QStringLiteral("Keep")).Text(), QStringLiteral("Keep"));
    }

    void everyTextComparesAsItsFoldedForm_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        const auto u = [](const char* text) { return QString::fromUtf8(text); };
        QTest::newRow("plain") << u("Report") << u("rEPORT");
        QTest::newRow("latin-1") << u("\u00c9t\u00e9") << u("\u00e9T\u00c9");
        QTest::newRow("latin-1 against plain") << u("\u00e9t\u00e9") << u("ete");
        QTest::newRow("kelvin sign") << u("\u212Aey") << u("key");
        QTest::newRow("long s") << u("\u017Fum") << u("SUM");
        QTest::newRow("sharp s") << u("stra\u00dfe") << u("STRASSE");
        QTest::newRow("capital sharp s") << u("\u1E9E") << u("\u00df");
        QTest::newRow("final sigma") << u("\u03c3\u03c2") << u("\u03a3\u03a3");
        QTest::newRow("dotted capital i") << u("\u0130") << u("i");
        QTest::newRow("dotless i") << u("\u0131") << u("I");
        QTest::newRow("ligature") << u("\uFB00") << u("FF");
        QTest::newRow("outside the basic plane") << u("\U00010400x") << u("\U00010428X");
        QTest::newRow("different lengths") << u("\u00e9t\u00e9s") << u("\u00c9T\u00c9");
    }

    void everyTextComparesAsItsFoldedForm()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        const bool equal = FoldedEqual(a, b);
        QCOMPARE(FoldedText(a) == FoldedText(b), equal);
        QCOMPARE(FoldedText(b) == FoldedText(a), equal);
        if (equal)
        {
            for (size_t seed : {size_t(0), size_t(1), size_t(0x9E3779B97F4A7C15ULL)})
                QCOMPARE(qHash(FoldedText(a), seed), qHash(FoldedText(b), seed));
        }
    }

    void randomTextsCompareAndHashAsTheirFoldedForms()
    {
        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        int equalPairs = 0;
        int mixedPairs = 0;
        for (int i = 0; i < 20000; ++i)
        {
            const QString a = RandomText(random, 8);
            const QString b = random.bounded(3) == 0 ? RandomText(random, 8) : Recased(random, a);
            const bool equal = FoldedEqual(a, b);
            const FoldedText x(a);
            const FoldedText y(b);
            if ((x == y) != equal || (y == x) != equal)
                QFAIL(qPrintable(
                    QStringLiteral("seed %1: \"%2\" and \"%3\" compare wrongly").arg(seed).arg(a, b)));
            if (equal && qHash(x, 7) != qHash(y, 7))
                QFAIL(
                    qPrintable(QStringLiteral("seed %1: \"%2\" and \"%3\" hash apart").arg(seed).arg(a, b)));
            equalPairs += equal ? 1 : 0;
            mixedPairs += equal && a != b ? 1 : 0;
        }
        // The pairs tried both sides of the comparison, and many were equal only once folded.
        QVERIFY2(equalPairs > 1000 && equalPairs < 19000, qPrintable(QString::number(equalPairs)));
        QVERIFY2(mixedPairs > 1000, qPrintable(QString::number(mixedPairs)));
    }

    void aHashOfKeysFindsEveryFoldingOfThem()
    {
        QHash<FoldedText, int> keys;
        keys.insert(FoldedText(QStringLiteral("Id_Flow7")), 7);
        keys.insert(FoldedText(QString::fromUtf8("\u212Aelvin")), 1);
        keys.insert(FoldedText(QString::fromUtf8("\u00e9t\u00e9")), 2);
        QCOMPARE(keys.value(FoldedText(QStringLiteral("ID_FLOW7")), -1), 7);
        QCOMPARE(keys.value(FoldedText(QStringLiteral("KELVIN")), -1), 1);
        QCOMPARE(keys.value(FoldedText(QString::fromUtf8("\u00c9T\u00c9")), -1), 2);
        QCOMPARE(keys.value(FoldedText(QStringLiteral("ID_FLOW70")), -1), -1);
        QCOMPARE(keys.value(FoldedText(QStringLiteral("ete")), -1), -1);
        // A second key that folds alike replaces the first rather than standing beside it.
        keys.insert(FoldedText(QStringLiteral("id_flow7")), 8);
        QCOMPARE(keys.size(), 3);
        QCOMPARE(keys.value(FoldedText(QStringLiteral("Id_Flow7")), -1), 8);
    }
};

QTEST_GUILESS_MAIN(tst_FoldedText)
#include "tst_foldedtext.moc"
