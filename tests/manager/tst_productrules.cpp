// SPDX-License-Identifier: MIT
// The workflow filter predicate: executability through required products installed on this
// machine (real hub manifests decide), the template flag and product-id matching.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductRules.h"
#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

QByteArray Manifest(const char* id, const char* version, const char* infoId)
{
    return QByteArray("<Application Id=\"") + id + "\" Version=\"" + version +
           "\" Executable=\"/bin/true\" InfoId=\"" + infoId + "\"/>";
}

std::unique_ptr<Workflow> MakeWorkflow(const QString& required, bool isTemplate = false)
{
    auto workflow = std::make_unique<Workflow>();
    WorkflowFields& fields = ImpOf(workflow.get())->Fields();
    fields.RequiredProducts = required;
    fields.IsTemplate = isTemplate;
    return workflow;
}

} // namespace

class tst_ProductRules : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        const QString products = m_env.Root() + QStringLiteral("/products");
        QVERIFY(WriteFile(products + QStringLiteral("/Products.xml"),
                          "<Products>"
                          "<Product Id=\"a\" Name=\"A\" OstrelName=\"Id_A\"/>"
                          "<Product Id=\"b\" Name=\"B\" OstrelName=\"Id_B\"/>"
                          "<Product Id=\"c\" Name=\"C\" OstrelName=\"Id_C\"/>"
                          "<Product Id=\"d\" Name=\"D\" OstrelName=\"Id_D\"/>"
                          "</Products>"));
        QVERIFY(WriteFile(m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf"),
                          "[General]\nProductsXmlFileSearchPath=" + QFile::encodeName(products) + "\n"));
        // Installed here: a (2016.1) and d (2017.0); b and c are not.
        const QString manifests = m_env.DataDirs() + QStringLiteral("/Velmora/Applications");
        QVERIFY(WriteFile(manifests + QStringLiteral("/a.xml"), Manifest("Id_A", "2016.1", "1")));
        QVERIFY(WriteFile(manifests + QStringLiteral("/d.xml"), Manifest("Id_D", "2017.0", "4")));
    }
    void init() { QVERIFY(WorkflowManager::Initialize()); }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void leafIsAlwaysEvaluable()
    {
        bool value = true;
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(), QStringLiteral("b"),
                                     value));
        QVERIFY(!value);
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(),
                                     QStringLiteral("  a  "), value));
        QVERIFY(value);
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(),
                                     QStringLiteral("b,d"), value)); // a list: any installed
        QVERIFY(value);
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(),
                                     QStringLiteral("a:2017"), value));
        QVERIFY(!value);
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(),
                                     QStringLiteral("a:2016"), value));
        QVERIFY(value);
        QVERIFY(ProductInstalledLeaf(&ImpOf(WorkflowManager::GetInstance())->Products(),
                                     QStringLiteral("unknown"), value));
        QVERIFY(!value);
    }

    void isExecutable_data()
    {
        QTest::addColumn<QString>("required");
        QTest::addColumn<bool>("executable");
        QTest::newRow("installed") << QStringLiteral("a") << true;
        QTest::newRow("not installed") << QStringLiteral("b") << false;
        QTest::newRow("and") << QStringLiteral("a & d") << true;
        QTest::newRow("and with missing") << QStringLiteral("a & b") << false;
        QTest::newRow("or") << QStringLiteral("b | d") << true;
        QTest::newRow("precedence a&b|c true") << QStringLiteral("a & d | b") << true;
        QTest::newRow("precedence first false then true") << QStringLiteral("b & a | d") << true;
        QTest::newRow("left short-circuit") << QStringLiteral("b & (a | c) | d") << false;
        QTest::newRow("version") << QStringLiteral("a:2016") << true;
        QTest::newRow("wrong version") << QStringLiteral("a:2017") << false;
        QTest::newRow("list operand") << QStringLiteral("b,c") << false;
        QTest::newRow("list operand with one installed") << QStringLiteral("b,a") << true;
        QTest::newRow("unbalanced") << QStringLiteral("(a") << false;
        QTest::newRow("operator last") << QStringLiteral("a &") << false;
    }
    void isExecutable()
    {
        QFETCH(QString, required);
        QFETCH(bool, executable);
        const auto workflow = MakeWorkflow(required);
        QCOMPARE(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("IsExecutable"), QStringLiteral("true")),
            executable);
        QCOMPARE(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("isexecutable"), QStringLiteral("FALSE")),
            !executable);
        // Any value other than "false" asks for executable workflows.
        QCOMPARE(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("IsExecutable"), QStringLiteral("whatever")),
            executable);
    }

    void workflowWithoutRequiredProductsNeverMatchesIsExecutable()
    {
        const auto workflow = MakeWorkflow(QString());
        QVERIFY(
            !WorkflowMatchesFilter(workflow.get(), QStringLiteral("IsExecutable"), QStringLiteral("true")));
        QVERIFY(
            !WorkflowMatchesFilter(workflow.get(), QStringLiteral("IsExecutable"), QStringLiteral("false")));
        const auto blanks = MakeWorkflow(QStringLiteral("   "));
        QVERIFY(!WorkflowMatchesFilter(blanks.get(), QStringLiteral("IsExecutable"), QStringLiteral("true")));
        QVERIFY(WorkflowMatchesFilter(blanks.get(), QStringLiteral("IsExecutable"), QStringLiteral("false")));
    }

    void isTemplate_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("meansTemplate");
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("0") << QStringLiteral("0") << false;
        QTest::newRow("false") << QStringLiteral("false") << false;
        QTest::newRow("FALSE") << QStringLiteral("FALSE") << false;
        QTest::newRow("true") << QStringLiteral("true") << true;
        QTest::newRow("1") << QStringLiteral("1") << true;
        QTest::newRow("yes") << QStringLiteral("yes") << true;
        QTest::newRow("no") << QStringLiteral("no") << true;
    }
    void isTemplate()
    {
        QFETCH(QString, value);
        QFETCH(bool, meansTemplate);
        const auto templ = MakeWorkflow(QString(), true);
        const auto user = MakeWorkflow(QString(), false);
        QCOMPARE(WorkflowMatchesFilter(templ.get(), QStringLiteral("IsTemplate"), value), meansTemplate);
        QCOMPARE(WorkflowMatchesFilter(user.get(), QStringLiteral("istemplate"), value), !meansTemplate);
    }

    void productIdMatches_data()
    {
        QTest::addColumn<QString>("filterId");
        QTest::addColumn<QString>("workflowId");
        QTest::addColumn<bool>("matches");
        QTest::newRow("code alone") << QStringLiteral("prod:2016") << QStringLiteral("prod") << true;
        QTest::newRow("filter code alone") << QStringLiteral("prod") << QStringLiteral("prod:2017") << true;
        QTest::newRow("same version") << QStringLiteral("prod:2016") << QStringLiteral("prod:2016") << true;
        QTest::newRow("filter shorter version")
            << QStringLiteral("prod:2016") << QStringLiteral("prod:2016.1") << true;
        QTest::newRow("filter longer version")
            << QStringLiteral("prod:2016.1") << QStringLiteral("prod:2016") << false;
        QTest::newRow("other version") << QStringLiteral("prod:2016") << QStringLiteral("prod:2017") << false;
        QTest::newRow("codes differ") << QStringLiteral("prod:2016") << QStringLiteral("other:2016") << false;
        QTest::newRow("case matters") << QStringLiteral("Prod") << QStringLiteral("prod") << false;
        QTest::newRow("empty filter") << QString() << QStringLiteral("prod") << false;
        QTest::newRow("empty workflow id") << QStringLiteral("prod") << QString() << false;
        QTest::newRow("empty filter version")
            << QStringLiteral("prod:") << QStringLiteral("prod:2016") << true;
    }
    void productIdMatches()
    {
        QFETCH(QString, filterId);
        QFETCH(QString, workflowId);
        QFETCH(bool, matches);
        QCOMPARE(ProductIdMatches(filterId, workflowId), matches);
    }

    void productKeysLookThroughTheStoredLists()
    {
        const auto workflow = MakeWorkflow(QStringLiteral("a:2016,,b"));
        WorkflowFields& fields = ImpOf(workflow.get())->Fields();
        fields.PrimaryProduct = QStringLiteral("x,y:2015");
        fields.TargetProduct = QStringLiteral("t:2017.2");
        QVERIFY(WorkflowMatchesFilter(workflow.get(), QStringLiteral("PrimaryProduct"), QStringLiteral("y")));
        QVERIFY(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("primaryproduct"), QStringLiteral("x:9")));
        QVERIFY(!WorkflowMatchesFilter(workflow.get(), QStringLiteral("PrimaryProduct"),
                                       QStringLiteral("y:2016")));
        QVERIFY(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("TargetProduct"), QStringLiteral("t:2017")));
        QVERIFY(!WorkflowMatchesFilter(workflow.get(), QStringLiteral("TargetProduct"),
                                       QStringLiteral("t:2017.1")));
        QVERIFY(
            WorkflowMatchesFilter(workflow.get(), QStringLiteral("RequiredProduct"), QStringLiteral("b")));
        QVERIFY(WorkflowMatchesFilter(workflow.get(), QStringLiteral("RequiredProduct"),
                                      QStringLiteral("a:2016")));
        QVERIFY(!WorkflowMatchesFilter(workflow.get(), QStringLiteral("RequiredProduct"), QString()));
    }

    void requiredProductKeySplitsAtCommasOnly()
    {
        // The stored expression is split at ",": "a & b" is one id, matching neither a nor b.
        const auto workflow = MakeWorkflow(QStringLiteral("a & b"));
        QVERIFY(
            !WorkflowMatchesFilter(workflow.get(), QStringLiteral("RequiredProduct"), QStringLiteral("a")));
        QVERIFY(WorkflowMatchesFilter(workflow.get(), QStringLiteral("RequiredProduct"),
                                      QStringLiteral("a & b")));
    }

    void unknownKeyOrNullWorkflowNeverMatches()
    {
        const auto workflow = MakeWorkflow(QStringLiteral("a"));
        QVERIFY(!WorkflowMatchesFilter(workflow.get(), QStringLiteral("Name"), QStringLiteral("a")));
        QVERIFY(!WorkflowMatchesFilter(workflow.get(), QString(), QString()));
        QVERIFY(!WorkflowMatchesFilter(nullptr, QStringLiteral("IsTemplate"), QStringLiteral("false")));
    }

    void catalogueIterationFiltersByProductRules()
    {
        QTemporaryDir dir;
        QVERIFY(WriteFile(
            dir.filePath(QStringLiteral("w.workflow")),
            WorkflowDocument(
                WorkflowElement(R"(Id="runs" Name="r" RequiredProducts="a &amp; d" PrimaryProduct="a")") +
                WorkflowElement(R"(Id="stuck" Name="s" RequiredProducts="a &amp; b" PrimaryProduct="b")") +
                WorkflowElement(R"(Id="none" Name="n")"))));
        WorkflowManager* manager = WorkflowManager::GetInstance();
        manager->SetWorkflowSearchPaths(Wide(dir.path()));
        const auto ids = [manager](const QString& filter) {
            std::unique_ptr<WorkflowIterator> it(manager->GetWorkflows(Wide(filter), Wide(QString())));
            QStringList result;
            while (it->MoveNext())
                result << ReadText([&](WideChar* b, int s) { return it->GetCurrent()->GetId(b, s); });
            return result;
        };
        QCOMPARE(ids(QStringLiteral("IsExecutable=true")), QStringList{QStringLiteral("runs")});
        QCOMPARE(ids(QStringLiteral("IsExecutable=false")), QStringList{QStringLiteral("stuck")});
        QCOMPARE(ids(QStringLiteral("PrimaryProduct=b")), QStringList{QStringLiteral("stuck")});
        QCOMPARE(ids(QStringLiteral("IsTemplate=true,PrimaryProduct=a")),
                 QStringList{QStringLiteral("runs")});
        QCOMPARE(ids(QStringLiteral("IsExecutable=true,PrimaryProduct=b")), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_ProductRules)
#include "tst_productrules.moc"
