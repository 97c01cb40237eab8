// SPDX-License-Identifier: MIT
// The filtering and sorting proxy: its two texts, the host's current product, the order of its
// sort keys, the default order, and input it has to survive.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "models/WorkflowListModel.h"
#include "models/WorkflowListProxyModel.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "ModelFixture.h"
#include "WideText.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

// Opens the comparison to the test.
class ProbeProxy : public WorkflowListProxyModel
{
public:
    using WorkflowListProxyModel::filterAcceptsRow;
    using WorkflowListProxyModel::lessThan;
    using WorkflowListProxyModel::WorkflowListProxyModel;
};

std::unique_ptr<WorkflowListProxyModel> Proxy(const QString& filter, const QString& sort)
{
    return std::unique_ptr<WorkflowListProxyModel>(
        static_cast<WorkflowListProxyModel*>(WorkflowPrivate::GetWorkflowListModel(filter, sort)));
}

QStringList ProxyIds(const WorkflowListProxyModel& proxy)
{
    QStringList ids;
    for (int row = 0; row < proxy.rowCount(); ++row)
        ids << IdOf(proxy.WorkflowAtRow(row));
    return ids;
}

Workflow* AddTemplate(const QString& id, const QString& name, const QString& primaryProduct = QString())
{
    auto* workflow = new Workflow;
    WorkflowFields& fields = ImpOf(workflow)->Fields();
    fields.Id = id;
    fields.Name = name;
    fields.IsTemplate = true;
    fields.PrimaryProduct = primaryProduct;
    WorkflowPrivate::AddWorkflow(workflow);
    return workflow;
}

} // namespace

class tst_WorkflowListProxyModel : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_dir;
    TestHost m_host;

    WorkflowManager* Manager() const { return WorkflowManager::GetInstance(); }
    WorkflowManagerImp* Imp() const { return WorkflowManagerImp::Instance(); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(WriteProductsAndManifests(m_env));
    }
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
        QVERIFY(WriteSampleCatalogue(m_dir->path()));
        QVERIFY(WorkflowManager::Initialize());
        m_host = TestHost();
        Manager()->SetHostApplicationContext(&m_host);
        Manager()->SetWorkflowSearchPaths(Wide(m_dir->path()));
        QCOMPARE(CatalogueIds(), Strings({"T1", "T2", "T3", "W1", "W2", "W3"}));
    }
    void cleanup()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        m_dir.reset();
    }

    void emptyFilterShowsTheHostsPrimaryProduct()
    {
        m_host.currentProduct = QStringLiteral("prodA");
        auto proxy = Proxy(QString(), QStringLiteral("Name:0"));
        QAbstractItemModelTester tester(proxy.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        QCOMPARE(ProxyIds(*proxy), Strings({"T3", "W1", "T1"}));
        // The host is asked into a buffer of 260 characters.
        QVERIFY(m_host.calls > 0);
        QCOMPARE(m_host.lastSize, 260);
        m_host.currentProduct = QStringLiteral("prodB");
        proxy->invalidate();
        QCOMPARE(ProxyIds(*proxy), Strings({"W2", "T2", "W3"}));
    }

    void hostWithoutCurrentProductShowsNothingByDefault()
    {
        m_host.currentProduct.clear();
        auto proxy = Proxy(QString(), QString());
        QCOMPARE(proxy->rowCount(), 0);
    }

    void templateAndRequiredProductFilterShowsTemplatesRequiringIt()
    {
        auto proxy = Proxy(QStringLiteral("IsTemplate=true,RequiredProduct=prodA"), QStringLiteral("Name:0"));
        QCOMPARE(ProxyIds(*proxy), Strings({"T3", "T1"}));
    }

    void filterItemWithoutEqualsIsIgnored()
    {
        auto proxy = Proxy(QStringLiteral("IsTemplate,RequiredProduct=prodA"), QStringLiteral("Name:0"));
        QCOMPARE(proxy->Filters().size(), 1);
        QCOMPARE(ProxyIds(*proxy), Strings({"T3", "W1", "T1", "W3"}));
    }

    void executableFilterFollowsInstalledProducts()
    {
        auto runs = Proxy(QStringLiteral("IsExecutable=true"), QStringLiteral("Name:0"));
        QCOMPARE(ProxyIds(*runs), Strings({"T3", "W1", "T1", "W3"}));
        auto cannot = Proxy(QStringLiteral(" isexecutable = FALSE "), QStringLiteral("Name:0"));
        QCOMPARE(ProxyIds(*cannot), Strings({"W2", "T2"}));
    }

    void laterFilterItemReplacesAnEarlierOne()
    {
        auto proxy = Proxy(QStringLiteral("IsTemplate=true,IsTemplate=false"), QString());
        QCOMPARE(proxy->Filters().size(), 1);
        QCOMPARE(proxy->Filters().value(QStringLiteral("IsTemplate")), QStringLiteral("false"));
        auto required =
            Proxy(QStringLiteral("RequiredProduct=prodA,RequiredProduct=prodB"), QStringLiteral("Name:0"));
        QCOMPARE(ProxyIds(*required), Strings({"W2", "T2"}));
    }

    void sortKeysApplyInKeyOrderNotWrittenOrder()
    {
        // "Name" orders before "TargetProduct": names decide first, target products (descending)
        // only between the two workflows named "Report".
        auto sorted = Proxy(QStringLiteral("PrimaryProduct=prodA"), QStringLiteral("TargetProduct:1,Name:0"));
        QCOMPARE(ProxyIds(*sorted), Strings({"T3", "W1", "T1"}));
        auto both = Proxy(QStringLiteral("IsExecutable=true"), QStringLiteral("TargetProduct:1,Name:0"));
        // Report T1 targets Zulu, Report W3 targets Alpha: descending puts Zulu first.
        QCOMPARE(ProxyIds(*both), Strings({"T3", "W1", "T1", "W3"}));
        auto reversed = Proxy(QStringLiteral("IsExecutable=true"), QStringLiteral("TargetProduct:0,Name:0"));
        QCOMPARE(ProxyIds(*reversed), Strings({"T3", "W1", "W3", "T1"}));
    }

    void rowsEqualUnderEverySortKeyAreNotLessEitherWay()
    {
        WorkflowListModel model;
        ProbeProxy proxy(WorkflowFilterMap(), ParseSortText(QStringLiteral("Name:0,IsTemplate:1,Colour:0")));
        proxy.setSourceModel(&model);
        // A second template named like T1 that differs only outside the sort keys.
        Workflow* twin = AddTemplate(QStringLiteral("T1b"), QStringLiteral("Report"));
        ImpOf(twin)->Fields().TargetProduct = QStringLiteral("prodC");
        const QModelIndex t1 = model.index(0, 0);
        const QModelIndex t1b = model.index(6, 0);
        QCOMPARE(IdOf(model.WorkflowAt(6)), QStringLiteral("T1b"));
        QVERIFY(!proxy.lessThan(t1, t1b));
        QVERIFY(!proxy.lessThan(t1b, t1));
        // Rows that differ in a key are ordered one way only.
        const QModelIndex w3 = model.index(5, 0); // "Report", not a template
        QVERIFY(proxy.lessThan(w3, t1));          // IsTemplate descending: the non-template first
        QVERIFY(!proxy.lessThan(t1, w3));
    }

    void defaultOrderIsTargetNamesThenTemplatesThenNames()
    {
        // Without a host every row passes, and without sort keys the default order applies.
        Manager()->SetHostApplicationContext(nullptr);
        auto proxy = Proxy(QString(), QString());
        QCOMPARE(proxy->rowCount(), 6);
        // Alpha (prodB): the template Export, then Backup and Report; Mike (prodC): Archive;
        // Zulu (prodA): the template Report, then Monthly.
        QCOMPARE(ProxyIds(*proxy), Strings({"T2", "W2", "W3", "T3", "T1", "W1"}));
    }

    void withoutHostTheFilterIsNotConsulted()
    {
        Manager()->SetHostApplicationContext(nullptr);
        auto proxy = Proxy(QStringLiteral("IsTemplate=true"), QStringLiteral("Name:0"));
        QCOMPARE(proxy->rowCount(), 6);
    }

    void textsAreParsedIntoMaps_data()
    {
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QString>("sort");
        QTest::addColumn<QStringList>("filterEntries");
        QTest::addColumn<QStringList>("sortEntries");
        QTest::newRow("empty") << QString() << QString() << QStringList() << QStringList();
        QTest::newRow("only separators")
            << QStringLiteral(",,,") << QStringLiteral(",,") << QStringList() << QStringList();
        // "=" splits into no pieces at all; ":" into two empty ones, which make an (unknown) empty key.
        QTest::newRow("only inner separators")
            << QStringLiteral("=,=,") << QStringLiteral(":,:,:") << QStringList() << Strings({"=asc"});
        QTest::newRow("trimmed") << QStringLiteral(" IsTemplate = true ,") << QStringLiteral(" Name : 1 ")
                                 << Strings({"IsTemplate=true"}) << Strings({"Name=desc"});
        QTest::newRow("not a number reads as ascending")
            << QString() << QStringLiteral("Name:abc,IsTemplate:,TargetProduct:0x1") << QStringList()
            << Strings({"IsTemplate=asc", "Name=asc", "TargetProduct=asc"});
        QTest::newRow("any other number is descending")
            << QString() << QStringLiteral("Name:-3,IsTemplate:7") << QStringList()
            << Strings({"IsTemplate=desc", "Name=desc"});
        QTest::newRow("extra pieces are dropped")
            << QStringLiteral("a=b=c,IsTemplate") << QStringLiteral("Name,Name:1:2") << QStringList()
            << QStringList();
        QTest::newRow("unknown keys are kept") << QStringLiteral("Colour=red") << QStringLiteral("Colour:1")
                                               << Strings({"Colour=red"}) << Strings({"Colour=desc"});
    }
    void textsAreParsedIntoMaps()
    {
        QFETCH(QString, filter);
        QFETCH(QString, sort);
        QFETCH(QStringList, filterEntries);
        QFETCH(QStringList, sortEntries);
        auto proxy = Proxy(filter, sort);
        QStringList filters;
        for (auto it = proxy->Filters().cbegin(); it != proxy->Filters().cend(); ++it)
            filters << it.key() + QLatin1Char('=') + it.value();
        QStringList sortKeys;
        for (auto it = proxy->SortKeys().cbegin(); it != proxy->SortKeys().cend(); ++it)
            sortKeys << it.key() + (it.value() ? QStringLiteral("=asc") : QStringLiteral("=desc"));
        QCOMPARE(filters, filterEntries);
        QCOMPARE(sortKeys, sortEntries);
    }

    void unknownFilterKeyRejectsEveryRow()
    {
        auto proxy = Proxy(QStringLiteral("Colour=red"), QString());
        QCOMPARE(proxy->rowCount(), 0);
        auto mixed = Proxy(QStringLiteral("IsTemplate=true,Colour=red"), QString());
        QCOMPARE(mixed->rowCount(), 0);
    }

    void unknownSortKeysLeaveTheOrderToTheKnownOnes()
    {
        auto proxy = Proxy(QStringLiteral("IsExecutable=true"), QStringLiteral("Colour:1,Size:0,Name:1"));
        QCOMPARE(ProxyIds(*proxy), Strings({"T1", "W3", "W1", "T3"}));
        auto unknownOnly = Proxy(QStringLiteral("IsExecutable=true"), QStringLiteral("Colour:1"));
        // Every comparison is 0, so nothing is less: the catalogue order stays.
        QCOMPARE(ProxyIds(*unknownOnly), Strings({"T1", "T3", "W1", "W3"}));
    }

    void tenThousandItemTextsAreRead()
    {
        QStringList filterItems;
        QStringList sortItems;
        for (int i = 0; i < 10000; ++i)
        {
            filterItems << QStringLiteral("IsTemplate=%1")
                               .arg(i % 2 ? QStringLiteral("true") : QStringLiteral("false"));
            sortItems << QStringLiteral("Unknown%1:%2").arg(i).arg(i % 2);
        }
        sortItems << QStringLiteral("Name:1");
        auto proxy = Proxy(filterItems.join(QLatin1Char(',')), sortItems.join(QLatin1Char(',')));
        QCOMPARE(proxy->Filters().size(), 1);
        QCOMPARE(proxy->Filters().value(QStringLiteral("IsTemplate")),
                 QStringLiteral("true")); // the last one
        QCOMPARE(proxy->SortKeys().size(), 10001);
        QCOMPARE(ProxyIds(*proxy), Strings({"T1", "T2", "T3"}));
    }

    void tenThousandWorkflowsAreFilteredAndSorted()
    {
        QStringList names;
        for (int i = 0; i < 10000; ++i)
        {
            const QString name = QStringLiteral("Flow %1").arg((i * 7919) % 10000, 5, 10, QLatin1Char('0'));
            AddTemplate(QStringLiteral("Many%1").arg(i), name,
                        i % 3 ? QStringLiteral("prodA") : QStringLiteral("prodB"));
            if (i % 3 == 0)
                names << name;
        }
        auto proxy = Proxy(QStringLiteral("PrimaryProduct=prodB,IsTemplate=true"), QStringLiteral("Name:1"));
        QAbstractItemModelTester tester(proxy.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        names << QStringLiteral("Export");
        std::sort(names.begin(), names.end(),
                  [](const QString& a, const QString& b) { return QString::localeAwareCompare(a, b) > 0; });
        QCOMPARE(proxy->rowCount(), int(names.size()));
        for (int row = 0; row < proxy->rowCount(); ++row)
            QCOMPARE(proxy->data(proxy->index(row, 0)).toString(), names.at(row));
    }

    void overlongCurrentProductIsCutToTheBuffer()
    {
        const QString longId(300, QLatin1Char('p'));
        m_host.currentProduct = longId;
        AddTemplate(QStringLiteral("Cut"), QStringLiteral("Cut"), longId.left(259));
        AddTemplate(QStringLiteral("Whole"), QStringLiteral("Whole"), longId);
        AddTemplate(QStringLiteral("Shorter"), QStringLiteral("Shorter"), longId.left(258));
        auto proxy = Proxy(QString(), QString());
        QCOMPARE(m_host.lastSize, 260);
        QCOMPARE(ProxyIds(*proxy), Strings({"Cut"}));
    }
};

QTEST_MAIN(tst_WorkflowListProxyModel)
#include "tst_workflowlistproxymodel.moc"
