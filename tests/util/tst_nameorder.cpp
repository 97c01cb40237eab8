// SPDX-License-Identifier: MIT
// The order a scan reads a folder's files in: the order QString's own comparison gives their
// names, whatever the names share, however long they are and whatever characters they hold.

#include "util/NameOrder.h"

#include <QRandomGenerator>
#include <QtTest>

#include <algorithm>
#include <numeric>

using namespace Velmora::WorkflowCore;

namespace {

// The places of names, in the order a plain sort by QString comparison gives them.
std::vector<qsizetype> PlainOrder(const QStringList& names)
{
    std::vector<qsizetype> places(size_t(names.size()));
    std::iota(places.begin(), places.end(), 0);
    std::stable_sort(places.begin(), places.end(),
                     [&names](qsizetype a, qsizetype b) { return names.at(a) < names.at(b); });
    return places;
}

// The names in the order the places give.
QStringList NamesIn(const std::vector<qsizetype>& places, const QStringList& names)
{
    QStringList ordered;
    for (const qsizetype place : places)
        ordered.append(names.at(place));
    return ordered;
}

QStringList SortedByName(const QStringList& names)
{
    std::vector<qsizetype> places(size_t(names.size()));
    std::iota(places.begin(), places.end(), 0);
    SortByName(places, names);
    return NamesIn(places, names);
}

// Units worth ordering: plain letters and digits, a letter of Latin-1, one high in the basic
// plane (above the surrogates, where unit order and code point order part), a letter outside it
// as a surrogate pair, the highest unit there is, and a null unit, which sorts like the end of
// a name in a packed key and must still sort after it.
const QStringList& Pieces()
{
    static const QStringList pieces = [] {
        QStringList list;
        for (char c : QByteArray("aAbz09_.-"))
            list << QString(QLatin1Char(c));
        for (char32_t c : {0x00E9u, 0xFF21u, 0x10400u, 0xFFFFu})
            list << QString::fromUcs4(&c, 1);
        list << QString(QChar(u'\0'));
        return list;
    }();
    return pieces;
}

QString RandomName(QRandomGenerator& random, const QString& stem, int longest)
{
    QString name = stem;
    const int length = random.bounded(longest + 1);
    for (int i = 0; i < length; ++i)
        name += Pieces().at(random.bounded(int(Pieces().size())));
    return name;
}

} // namespace

class tst_NameOrder : public QObject
{
    Q_OBJECT

private slots:
    void ordersAsQStringComparisonDoes_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::newRow("none") << QStringList();
        QTest::newRow("one") << QStringList{QStringLiteral("a.workflow")};
        QTest::newRow("numbered alike")
            << QStringList{QStringLiteral("flow000010.workflow"), QStringLiteral("flow000002.workflow"),
                           QStringLiteral("flow000001.workflow")};
        QTest::newRow("one name begins another")
            << QStringList{QStringLiteral("ab.workflow.workflow"), QStringLiteral("ab.workflow"),
                           QStringLiteral("ab.workflo")};
        QTest::newRow("shorter than the key after what they share") << QStringList{
            QStringLiteral("xyzb"), QStringLiteral("xyz"), QStringLiteral("xyza"), QStringLiteral("xy")};
        QTest::newRow("equal names") << QStringList{QStringLiteral("same"), QStringLiteral("other"),
                                                    QStringLiteral("same")};
        QTest::newRow("an empty name") << QStringList{QStringLiteral("b"), QString(), QStringLiteral("a")};
        QTest::newRow("case counts") << QStringList{
            QStringLiteral("b.workflow"), QStringLiteral("B.workflow"), QStringLiteral("a.workflow"),
            QStringLiteral("A.workflow")};
        QTest::newRow("a null unit after the shared part")
            << QStringList{QStringLiteral("ab") + QChar(u'\0') + QStringLiteral("c"), QStringLiteral("ab"),
                           QStringLiteral("ab") + QChar(u'\0')};
        QTest::newRow("surrogates against the top of the basic plane")
            << QStringList{QStringLiteral("n") + QString::fromUcs4(U"\U00010400", 1),
                           QStringLiteral("n\uFF21"), QStringLiteral("n\uD7FF")};
        QTest::newRow("differing past the key")
            << QStringList{QStringLiteral("pre0000b"), QStringLiteral("pre0000a"), QStringLiteral("pre0001"),
                           QStringLiteral("pre0000")};
    }
    void ordersAsQStringComparisonDoes()
    {
        QFETCH(QStringList, names);
        QCOMPARE(SortedByName(names), NamesIn(PlainOrder(names), names));
    }

    // Thousands of random names, some sharing a long stem and some not, against a plain sort.
    void randomNamesOrderAsAPlainSortDoes()
    {
        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        for (int round = 0; round < 200; ++round)
        {
            QStringList names;
            const int count = random.bounded(1, 60);
            const QString stem = round % 3 == 0 ? QString() : RandomName(random, QString(), round % 10);
            for (int i = 0; i < count; ++i)
                names.append(RandomName(random, random.bounded(8) == 0 ? QString() : stem, 7));
            if (SortedByName(names) != NamesIn(PlainOrder(names), names))
                QFAIL(qPrintable(
                    QStringLiteral("seed %1, round %2: %3").arg(seed).arg(round).arg(names.join(u'|'))));
        }
    }

    // Only the given places are ordered; the names elsewhere in the list are left out.
    void ordersOnlyThePlacesGiven()
    {
        const QStringList names{QStringLiteral("d"), QStringLiteral("c"), QStringLiteral("b"),
                                QStringLiteral("a")};
        std::vector<qsizetype> places{0, 2, 1};
        SortByName(places, names);
        QCOMPARE(places, (std::vector<qsizetype>{2, 1, 0}));
    }
};

QTEST_GUILESS_MAIN(tst_NameOrder)
#include "tst_nameorder.moc"
