// SPDX-License-Identifier: MIT
// The catalogue's sort by a sort text, checked against the comparison by key on many random
// catalogues: every pair of neighbours must be in order under the items in the order written.

#include <VmWorkflowCore/Workflow.h>

#include "TestEnvironment.h"
#include "manager/WorkflowQuery.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QRandomGenerator>
#include <QtTest>

#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

// Display names that do not follow the ids' own order, so that sorting by id would be caught.
QString ProductNames(const QString& ids)
{
    QString names = ids;
    names.replace(QStringLiteral("p1"), QStringLiteral("Zeta"));
    names.replace(QStringLiteral("p2"), QStringLiteral("alpha"));
    names.replace(QStringLiteral("p3"), QStringLiteral("\u00c9cole"));
    return names;
}

// -1, 0 or 1: how a and b stand under the items of the sort text in the order written.
int Order(Workflow* a, Workflow* b, const QString& sortText)
{
    for (const QString& item : sortText.split(QLatin1Char(','), Qt::SkipEmptyParts))
    {
        const QStringList pieces = item.split(QLatin1Char(':'), Qt::SkipEmptyParts);
        const QString key = pieces.isEmpty() ? QString() : pieces.first().trimmed();
        const bool ascending = pieces.size() < 2 || pieces.at(1).trimmed().toInt() == 0;
        const int compared = ascending ? CompareWorkflowsByKey(a, b, key, ProductNames)
                                       : CompareWorkflowsByKey(b, a, key, ProductNames);
        if (compared != 0)
            return compared < 0 ? -1 : 1;
    }
    return 0;
}

} // namespace

class tst_WorkflowQuery : public QObject
{
    Q_OBJECT
private:
    // A template keeps its per-user choices when it is destroyed: they go to a private folder.
    VmWorkflowTest::TestEnvironment m_env;

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }

    void sortPutsEveryNeighbourInOrder_data()
    {
        QTest::addColumn<QString>("sortText");
        QTest::newRow("one key") << QStringLiteral("Name");
        QTest::newRow("products then name") << QStringLiteral("TargetProduct:1,Name:0");
        QTest::newRow("name then products") << QStringLiteral("name:0, targetproduct:1");
        QTest::newRow("templates first") << QStringLiteral("IsTemplate:0,PrimaryProduct:1,Name");
        QTest::newRow("unknown key first") << QStringLiteral("Colour:1,RequiredProduct:0,Name:1");
        QTest::newRow("one key twice") << QStringLiteral("Name:0,Name:1,IsTemplate:1");
        QTest::newRow("separators and text orders") << QStringLiteral(",,PrimaryProduct:x,,IsTemplate:7,");
    }
    void sortPutsEveryNeighbourInOrder()
    {
        QFETCH(QString, sortText);
        const quint32 seed = 20261123;
        QRandomGenerator random(seed);
        const QStringList names = {QStringLiteral("report"),        QStringLiteral("Report"),
                                   QStringLiteral("\u00e9t\u00e9"), QStringLiteral("ete"),
                                   QStringLiteral("zebra"),         QString(),
                                   QStringLiteral("10 items"),      QStringLiteral("9 items")};
        const QStringList products = {QStringLiteral("p1"),    QStringLiteral("p2:2016"),
                                      QStringLiteral("p3"),    QString(),
                                      QStringLiteral("p1,p2"), QStringLiteral("p2 & p3")};
        for (int round = 0; round < 8; ++round)
        {
            std::vector<std::unique_ptr<Workflow>> owned;
            QList<Workflow*> list;
            const int count = 2 + int(random.bounded(150));
            for (int i = 0; i < count; ++i)
            {
                owned.push_back(std::make_unique<Workflow>());
                WorkflowFields& fields = ImpOf(owned.back().get())->Fields();
                fields.Id = QStringLiteral("Id_%1").arg(i);
                fields.Name = names.at(int(random.bounded(names.size())));
                fields.IsTemplate = random.bounded(2) == 0;
                fields.PrimaryProduct = products.at(int(random.bounded(products.size())));
                fields.TargetProduct = products.at(int(random.bounded(products.size())));
                fields.RequiredProducts = products.at(int(random.bounded(products.size())));
                list.append(owned.back().get());
            }
            QList<Workflow*> sorted = list;
            SortWorkflows(sorted, sortText, ProductNames);
            QCOMPARE(sorted.size(), list.size());
            QList<Workflow*> a = sorted;
            QList<Workflow*> b = list;
            std::sort(a.begin(), a.end());
            std::sort(b.begin(), b.end());
            QVERIFY2(a == b, "the sort lost or repeated workflows");
            for (qsizetype i = 1; i < sorted.size(); ++i)
            {
                QVERIFY2(Order(sorted.at(i - 1), sorted.at(i), sortText) <= 0,
                         qPrintable(QStringLiteral("seed %1, round %2: %3 before %4")
                                        .arg(seed)
                                        .arg(round)
                                        .arg(ImpOf(sorted.at(i - 1))->Fields().Id,
                                             ImpOf(sorted.at(i))->Fields().Id)));
            }
        }
    }

    void emptySortTextsLeaveTheOrder()
    {
        std::vector<std::unique_ptr<Workflow>> owned;
        QList<Workflow*> list;
        for (const char* name : {"c", "a", "b"})
        {
            owned.push_back(std::make_unique<Workflow>());
            ImpOf(owned.back().get())->Fields().Name = QString::fromLatin1(name);
            list.append(owned.back().get());
        }
        for (const QString& text : {QString(), QStringLiteral(",,"), QStringLiteral("Colour:1")})
        {
            QList<Workflow*> sorted = list;
            SortWorkflows(sorted, text, ProductNames);
            QCOMPARE(sorted, list);
        }
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowQuery)
#include "tst_workflowquery.moc"
